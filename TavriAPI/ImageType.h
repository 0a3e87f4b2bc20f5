#pragma once

#include <cstdint>

namespace Tavri {

// Colour modes; any other value is an illegal mode.
enum class ImageType : std::int32_t { Gray = 0, Color = 1, Raw = 2 };

}  // namespace Tavri
