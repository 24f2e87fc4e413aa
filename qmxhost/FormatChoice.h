/// Chooses one of a camera's formats as a person asked for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Arguments.h"
#include "qmxcam.h"

namespace qmxhost {

/// What a person asked for. With nothing set, the first format of the catalogue is chosen.
struct SFormatChoice {
    std::optional<std::uint64_t> index;  ///< in the catalogue; size and type are then ignored
    std::optional<SSize> size;
    std::string type;  ///< "raw", "jls" or "jpeg"; empty for any
};

/// Returns the first format that fits exactly. The plug-in itself would take the nearest size
/// without a word, so a choice that nothing fits is a `CFailure` that names the camera.
[[nodiscard]] qmx::cam::IDevice::SFormat ChooseFormat(
    const std::vector<qmx::cam::IDevice::SFormat>& formats, const SFormatChoice& choice,
    const std::string& camera);

}  // namespace qmxhost
