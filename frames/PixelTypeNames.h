/// The pixel types of a camera's formats, and the names that people type for them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "qmx.h"

namespace frames {

inline constexpr qmx::SGuid rawType{
    0x44ACBC8C, 0x03B3, 0x4599, {0xB7, 0x84, 0x14, 0xDA, 0xD5, 0xC4, 0xBB, 0xF8}};
inline constexpr qmx::SGuid jlsType{
    0xADA2658E, 0x40C0, 0x4C31, {0x9C, 0x44, 0x76, 0x67, 0xB8, 0x16, 0x9F, 0xF6}};
inline constexpr qmx::SGuid jpegType{
    0xBD7EEE6E, 0x81B9, 0x4D4D, {0xA7, 0x95, 0xD4, 0x0C, 0x99, 0xD6, 0xD9, 0x1B}};

/// Returns the text {8-4-4-4-12} of a GUID, in upper case.
[[nodiscard]] std::string GuidText(const qmx::SGuid& guid);
/// Parses such a text, in either case, with or without the braces.
[[nodiscard]] std::optional<qmx::SGuid> ParseGuid(std::string_view text);

/// Returns "raw", "jls" or "jpeg", or the text of the GUID for any other type.
[[nodiscard]] std::string TypeName(const qmx::SGuid& type);
/// Returns the type of a name or of the text of a GUID.
[[nodiscard]] std::optional<qmx::SGuid> ParseType(std::string_view text);

}  // namespace frames
