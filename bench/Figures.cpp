#include "Figures.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace bench {

SSpread SpreadOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {values[values.size() / 2], values.front(), values.back()};
}

std::vector<double> Ratios(const std::vector<double>& values, const std::vector<double>& to) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(values.size(), to.size()); ++i) {
        ratios.push_back(values[i] / to[i]);
    }
    return ratios;
}

void to_json(Json& json, const SSpread& spread) {
    json = {{"median", spread.median}, {"min", spread.least}, {"max", spread.most}};
}

void Save(const Json& document, const std::string& file) {
    std::ofstream out(file);
    out << document.dump(1) << '\n';
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

}  // namespace bench
