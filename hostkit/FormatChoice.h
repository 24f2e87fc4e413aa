/// Chooses one of a camera's formats by the options of the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "qmxcam.h"

namespace hostkit {

/// The requested format. With nothing set, it is the first one of the catalogue.
struct SFormatChoice {
    std::optional<std::uint64_t> index;  ///< in the catalogue; size and type are then ignored
    std::optional<SSize> size;
    std::string type;  ///< "raw", "jls" or "jpeg"; empty for any
};

/// Returns the first format that matches exactly. Throws a `CFailure` that names the camera if
/// there is none, because the plug-in itself would silently use the nearest size.
[[nodiscard]] qmx::cam::IDevice::SFormat ChooseFormat(
    const std::vector<qmx::cam::IDevice::SFormat>& formats, const SFormatChoice& choice,
    const std::string& camera);

}  // namespace hostkit
