/// The part of a diagnosis that concerns one stream.
#pragma once

#include <string>
#include <vector>

#include "Diagnosis.h"

namespace hostkit {

/// Returns the findings about a stream, from its start to the timing of its frames, in the order in
/// which one fault explains the next.
[[nodiscard]] std::vector<SFinding> DiagnoseStream(const SStreamMeasurement& stream,
                                                   const SCameraMeasurement& camera);

/// Returns a number with this many decimals.
[[nodiscard]] std::string Decimal(double value, int decimals);

}  // namespace hostkit
