/// Figures of several repetitions, as a table and as JSON.
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

/// Returns the spread of at least one value.
[[nodiscard]] SSpread SpreadOf(std::vector<double> values);
/// Divides value by value.
[[nodiscard]] std::vector<double> Ratios(const std::vector<double>& values,
                                         const std::vector<double>& to);
void to_json(Json& json, const SSpread& spread);

/// Writes a document to a file. Throws if that fails.
void Save(const Json& document, const std::string& file);

}  // namespace bench
