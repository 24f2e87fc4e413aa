/// Finds properties of a device by name, and converts typed text to their values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "qmxcam.h"

namespace hostkit {

struct SProperty {
    qmx::CString name;
    qmx::EType type;
};

/// Returns the property of a name, which may lack its leading slash.
[[nodiscard]] std::optional<SProperty> FindProperty(const qmx::cam::CProperties& properties,
                                                    std::string_view name);
/// Returns a list such as "/FrameRate, /Paused".
[[nodiscard]] std::string PropertyNames(const qmx::cam::CProperties& properties);
/// Parses a text as a value of a type. The conversion of the variant itself would silently turn a
/// typing error into 0.
[[nodiscard]] std::optional<qmx::CVariant> ParseValue(std::string_view text, qmx::EType type);

}  // namespace hostkit
