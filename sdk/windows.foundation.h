// Windows.Foundation at the ABI: the types and interfaces the capture classes build on.
//
// mingw-w64 10's own windows.foundation.h does not compile as C++ (it forward-declares
// the unscoped enum PropertyType), so these declarations stand in its place in both builds;
// sdk/ comes first on the include path.
#pragma once

#include <inspectable.h>

// Keeps the toolchain's broken copy out if another header asks for it.
#define __windows_foundation_h__

#include <windows.foundation.collections.h>

namespace ABI {
namespace Windows {
namespace Foundation {
// 100 ns ticks.
struct TimeSpan {
  INT64 Duration;
};

MIDL_INTERFACE("30d5a829-7fa4-4026-83bb-d75bae4ea99e")
IClosable : public IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Close() = 0;
};
}  // namespace Foundation
}  // namespace Windows
}  // namespace ABI
__CRT_UUID_DECL(ABI::Windows::Foundation::IClosable, 0x30d5a829, 0x7fa4, 0x4026, 0x83, 0xbb, 0xd7, 0x5b, 0xae, 0x4e,
                0xa9, 0x9e)
