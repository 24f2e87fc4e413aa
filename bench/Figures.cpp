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
    std::transform(values.begin(), values.end(), to.begin(), std::back_inserter(ratios),
                   [](double value, double base) { return value / base; });
    return ratios;
}

void to_json(Json& json, const SSpread& spread) {
    json = {{"median", spread.median}, {"min", spread.least}, {"max", spread.most}};
}

void Save(const Json& document, const std::string& file) {
    std::ofstream out(file);
    out << document.dump(1) << '\n';
    if (!out.flush()) throw std::runtime_error("can't write " + file);
}

}  // namespace bench
