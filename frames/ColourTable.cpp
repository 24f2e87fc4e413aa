#include "ColourTable.h"

#include <algorithm>
#include <array>

namespace frames {

void FillColourTable(ColourTable table, const SColouring& colouring) {
    std::array<Argb, std::tuple_size_v<Palette>> colours;
    std::ranges::transform(colouring.palette, colours.begin(), Opaque);
    ToneTable tones;
    FillToneTable(tones, colouring.levels);
    for (std::size_t value = 0; value < table.size(); ++value) table[value] = colours[tones[value]];
    if (colouring.isotherm && colouring.isotherm->low <= colouring.isotherm->high) {
        std::fill(table.begin() + colouring.isotherm->low,
                  table.begin() + colouring.isotherm->high + 1, isothermColour);
    }
    if (colouring.saturation) {
        std::fill(table.begin() + *colouring.saturation, table.end(), saturationColour);
    }
}

}  // namespace frames
