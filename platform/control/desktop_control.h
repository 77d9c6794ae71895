// Steering the desktop that Desktop Duplication sees. Outputs are numbered across all adapters in
// enumeration order, from 0, as \\.\DISPLAY1 is number 0. On the synthetic desktop each output
// animates at the machine's refresh rate until told otherwise; with an X display the pixels are
// the X screen's, and the pointer, mode and desktop-switch controls still apply.
#pragma once

#include <cstdint>

namespace platform::control {

// Shows one colour (0xAARRGGBB) on the whole output and keeps it still: one new image now.
bool fillOutput(uint32_t outputNumber, uint32_t colour);
// Keeps the animation's current image on the output: no new image until it animates again.
bool freezeOutput(uint32_t outputNumber);
// Animates again from the current image on: a new image now and then `refreshRate` a second.
bool animateOutput(uint32_t outputNumber);
// Moves the pointer only; duplications see an update with no new image.
bool movePointer(uint32_t outputNumber, int32_t x, int32_t y);
// Changes the output's mode to a new size; live duplications of it are lost.
bool setOutputMode(uint32_t outputNumber, uint32_t width, uint32_t height);
// Switches the input desktop (as a lock screen does): every live duplication is lost.
void switchDesktop();
// The performance-counter time of the output's latest image; 0 for an unknown output. On an X
// screen: when a duplication last took in the screen's damage.
int64_t latestPresentTime(uint32_t outputNumber);

// The synthetic animation's image `frameIndex` at 0xAARRGGBB pixel (x, y), so that tests can check
// captured pixels: a vertical bar moving right on a dark background, with the frame index in a
// row of black and white cells at the top left.
uint32_t syntheticPixel(uint64_t frameIndex, uint32_t width, uint32_t height, uint32_t x, uint32_t y);
// The frame index that the cells of a captured image show (its low 32 bits).
uint32_t frameIndexInCells(const uint32_t* pixels, uint32_t width);

}  // namespace platform::control
