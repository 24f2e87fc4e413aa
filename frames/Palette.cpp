#include "Palette.h"

#include <span>

namespace frames {
namespace {

/// Colours at equal distances along a palette, interpolated linearly.
constexpr SColour iron[] = {{0, 0, 10},     {45, 0, 125},   {135, 10, 155}, {205, 45, 95},
                            {240, 110, 15}, {255, 190, 35}, {255, 255, 245}};
constexpr SColour rainbow[] = {{0, 0, 90},     {0, 60, 240},   {0, 200, 230}, {40, 210, 60},
                               {245, 235, 30}, {245, 120, 10}, {200, 0, 20}};
constexpr SColour whiteHot[] = {{0, 0, 0}, {255, 255, 255}};
constexpr SColour blackHot[] = {{255, 255, 255}, {0, 0, 0}};

struct SNamedPalette {
    std::string_view name;
    std::span<const SColour> stops;
};
constexpr SNamedPalette namedPalettes[] = {
    {"iron", iron}, {"rainbow", rainbow}, {"white-hot", whiteHot}, {"black-hot", blackHot}};

std::uint8_t Between(std::uint8_t from, std::uint8_t to, std::size_t part, std::size_t whole) {
    return static_cast<std::uint8_t>((from * (whole - part) + to * part + whole / 2) / whole);
}

/// Uses integers and rounds halves upwards, so that the colours are the same on every machine.
Palette Interpolate(std::span<const SColour> stops) {
    Palette palette;
    constexpr std::size_t whole = std::tuple_size_v<Palette> - 1;
    for (std::size_t i = 0; i <= whole; ++i) {
        const std::size_t along = i * (stops.size() - 1);
        const SColour& from = stops[along / whole];
        const SColour& to = i == whole ? stops.back() : stops[along / whole + 1];
        const std::size_t part = along % whole;
        palette[i] = {Between(from.red, to.red, part, whole),
                      Between(from.green, to.green, part, whole),
                      Between(from.blue, to.blue, part, whole)};
    }
    return palette;
}

}  // namespace

std::vector<std::string> PaletteNames() {
    std::vector<std::string> names;
    for (const SNamedPalette& named : namedPalettes) names.emplace_back(named.name);
    return names;
}

std::optional<Palette> FindPalette(std::string_view name) {
    for (const SNamedPalette& named : namedPalettes) {
        if (named.name == name) return Interpolate(named.stops);
    }
    return std::nullopt;
}

}  // namespace frames
