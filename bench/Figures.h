/// Figures of several repetitions, as a table for a person and as JSON for everything else.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

namespace bench {

using Json = nlohmann::ordered_json;

struct SSpread {
    double median = 0;
    double least = 0;
    double most = 0;
};

/// Of at least one value.
[[nodiscard]] SSpread SpreadOf(std::vector<double> values);
/// Value by value.
[[nodiscard]] std::vector<double> Ratios(const std::vector<double>& values,
                                         const std::vector<double>& to);
void to_json(Json& json, const SSpread& spread);

/// Writes a document to a file, or throws.
void Save(const Json& document, const std::string& file);

}  // namespace bench
