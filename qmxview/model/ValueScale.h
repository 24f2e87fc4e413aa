/// Texts of pixel values, in the camera's numbers and in a physical unit.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qmxview {

/// A linear relation between pixel values and a physical quantity: gain * value + offset.
struct SValueScale {
    double gain = 1;
    double offset = 0;
    std::string unit;
};

/// Parses "GAIN,OFFSET,UNIT", such as "0.04,-273.15,°C". The gain must not be 0.
[[nodiscard]] std::optional<SValueScale> ParseScale(std::string_view text);

/// Converts values to texts.
class CValueTexts {
   public:
    /// Without a scale, texts contain the value alone.
    explicit CValueTexts(std::optional<SValueScale> valueScale = {})
        : scale(std::move(valueScale)) {}

    /// Makes values differences from a reference: they get a sign, and the scale's offset does not
    /// apply.
    void SetDifference(bool on) noexcept { difference = on; }
    /// Makes texts contain the value alone, for pictures whose values are no measurements.
    void SetScaled(bool on) noexcept { scaled = on; }
    /// Returns a value such as "7188" or "7188 = 14.37 °C".
    [[nodiscard]] std::string Value(double value) const;
    /// Returns a standard deviation or another distance between values.
    [[nodiscard]] std::string Distance(double distance) const;

   private:
    [[nodiscard]] std::string Scaled(double quantity) const;

    std::optional<SValueScale> scale;
    bool difference = false;
    bool scaled = true;
};

/// Returns a number without unnecessary decimals: whole numbers have none.
[[nodiscard]] std::string Plain(double value, int mostDecimals = 2);
/// Returns a number with exactly this many decimals.
[[nodiscard]] std::string Fixed(double value, int decimals);

}  // namespace qmxview
