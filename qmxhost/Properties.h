/// A device's named values between the texts that people type, the host's variants and JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Output.h"
#include "qmxcam.h"

namespace qmxhost {

struct SProperty {
    qmx::CString name;
    qmx::EType type;
};

/// The property of a name, typed with or without its leading slash.
[[nodiscard]] std::optional<SProperty> FindProperty(const qmx::cam::CProperties& properties,
                                                    std::string_view name);
/// "/FrameRate, /Paused".
[[nodiscard]] std::string PropertyNames(const qmx::cam::CProperties& properties);
/// Reads a text as a value of a type; none when it isn't one. The variant's own conversion would
/// quietly make 0 of a typing error.
[[nodiscard]] std::optional<qmx::CVariant> ParseValue(std::string_view text, qmx::EType type);
/// Null for an empty variant.
[[nodiscard]] Json ValueAsJson(const qmx::CVariant& value);

}  // namespace qmxhost
