// Bring-up and teardown of the pipeline, on the worker thread: which adapter captures, which
// encodes, whether a cross-adapter copy stands between them, then capture source, scaler,
// encoder and RTP sender, in that order.
#pragma once

class NativeSession;

// Fills the session's slots. False: reportInitFailure has told the reason.
bool bringUpPipeline(NativeSession& session);
// Empties the slots in the order capture, encoder, scaler, copy, RTP, encode and capture
// contexts, so that nothing outlives the device it was made on; then clears `running`.
void tearDownPipeline(NativeSession& session);
