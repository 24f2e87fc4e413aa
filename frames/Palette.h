/// False colours for infrared pictures.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace frames {

struct SColour {
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;
};

/// 256 colours from cold to hot.
using Palette = std::array<SColour, 256>;

[[nodiscard]] std::vector<std::string> PaletteNames();
[[nodiscard]] std::optional<Palette> FindPalette(std::string_view name);

}  // namespace frames
