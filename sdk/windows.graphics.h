// Windows.Graphics at the ABI: the integer size that capture items and frame pools use.
#pragma once

#include <inspectable.h>

namespace ABI {
namespace Windows {
namespace Graphics {
struct SizeInt32 {
  INT32 Width;
  INT32 Height;
};
}  // namespace Graphics
}  // namespace Windows
}  // namespace ABI
