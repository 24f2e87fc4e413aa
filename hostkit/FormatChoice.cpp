#include "FormatChoice.h"

#include <algorithm>

#include "Failure.h"
#include "PixelTypeNames.h"

namespace hostkit {
namespace {

using SFormat = qmx::cam::IDevice::SFormat;

bool Fits(const SFormat& format, const SFormatChoice& choice) {
    if (choice.size &&
        (format.width != choice.size->width || format.height != choice.size->height)) {
        return false;
    }
    return choice.type.empty() || frames::TypeName(format.pixelType) == choice.type;
}

}  // namespace

SFormat ChooseFormat(const std::vector<SFormat>& formats, const SFormatChoice& choice,
                     const std::string& camera) {
    if (choice.index) {
        if (*choice.index < formats.size()) return formats[*choice.index];
    } else {
        const auto found = std::ranges::find_if(
            formats, [&](const SFormat& format) { return Fits(format, choice); });
        if (found != formats.end()) return *found;
    }
    throw CFailure(EExit::Usage, "camera " + camera + " has no such format; 'qmxhost formats " +
                                     camera + "' lists the formats it has");
}

}  // namespace hostkit
