/// Converts the values of properties between typed text, the host's variants and JSON.
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

/// Returns the property of a name, which may lack its leading slash.
[[nodiscard]] std::optional<SProperty> FindProperty(const qmx::cam::CProperties& properties,
                                                    std::string_view name);
/// Returns a list such as "/FrameRate, /Paused".
[[nodiscard]] std::string PropertyNames(const qmx::cam::CProperties& properties);
/// Parses a text as a value of a type. The conversion of the variant itself would silently turn a
/// typing error into 0.
[[nodiscard]] std::optional<qmx::CVariant> ParseValue(std::string_view text, qmx::EType type);
/// Returns a variant as JSON, which is null for an empty one.
[[nodiscard]] Json ValueAsJson(const qmx::CVariant& value);

}  // namespace qmxhost
