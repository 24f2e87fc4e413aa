/// The font of the window, part of the program.
#pragma once

#include <cstddef>

namespace qmxview {

/// A TrueType font: DejaVu Sans. The build generates the definition from the installed file.
extern const unsigned char embeddedFont[];
extern const std::size_t embeddedFontSize;

}  // namespace qmxview
