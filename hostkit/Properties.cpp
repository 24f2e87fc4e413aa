#include "Properties.h"

#include "Arguments.h"

namespace hostkit {

std::optional<SProperty> FindProperty(const qmx::cam::CProperties& properties,
                                      std::string_view name) {
    const std::string withSlash = name.starts_with('/') ? "" : "/" + std::string(name);
    for (std::size_t i = 0; i < properties.count(); ++i) {
        const std::string_view known = properties.nameAt(i).c_str();
        if (known == name || known == withSlash) {
            return SProperty{properties.nameAt(i), properties.typeAt(i)};
        }
    }
    return std::nullopt;
}

std::string PropertyNames(const qmx::cam::CProperties& properties) {
    std::string names;
    for (std::size_t i = 0; i < properties.count(); ++i) {
        if (i != 0) names += ", ";
        names += properties.nameAt(i).c_str();
    }
    return names;
}

std::optional<qmx::CVariant> ParseValue(std::string_view text, qmx::EType type) {
    qmx::CVariant value;
    if (type == qmx::EType::Bool) {
        const auto truth = ParseBool(text);
        if (!truth) return std::nullopt;
        value = *truth;
    } else if (type == qmx::EType::Float64) {
        const auto number = ParseReal(text);
        if (!number) return std::nullopt;
        value = *number;
    } else {
        value = qmx::CVariant(std::string(text).c_str());
    }
    return value;
}

}  // namespace hostkit
