#include "ValueScale.h"

#include <cmath>
#include <cstdio>

#include "Arguments.h"

namespace qmxview {

std::optional<SValueScale> ParseScale(std::string_view text) {
    const std::size_t first = text.find(',');
    if (first == std::string_view::npos) return std::nullopt;
    const std::size_t second = text.find(',', first + 1);
    if (second == std::string_view::npos) return std::nullopt;
    const auto gain = hostkit::ParseReal(text.substr(0, first));
    const auto offset = hostkit::ParseReal(text.substr(first + 1, second - first - 1));
    if (!gain || !offset || *gain == 0) return std::nullopt;
    return SValueScale{*gain, *offset, std::string(text.substr(second + 1))};
}

std::string Fixed(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

std::string Plain(double value, int mostDecimals) {
    return Fixed(value, value == std::round(value) ? 0 : mostDecimals);
}

std::string CValueTexts::Scaled(double quantity) const {
    return " = " + std::string(difference && quantity > 0 ? "+" : "") + Fixed(quantity, 2) +
           (scale->unit.empty() ? "" : " " + scale->unit);
}

std::string CValueTexts::Value(double value) const {
    const std::string text = (difference && value > 0 ? "+" : "") + Plain(value);
    if (!scale || !scaled) return text;
    return text + Scaled(value * scale->gain + (difference ? 0 : scale->offset));
}

std::string CValueTexts::Distance(double distance) const {
    const std::string text = Plain(distance);
    if (!scale || !scaled) return text;
    return text + " = " + Fixed(distance * std::abs(scale->gain), 2) +
           (scale->unit.empty() ? "" : " " + scale->unit);
}

}  // namespace qmxview
