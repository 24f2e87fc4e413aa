/// Between the formats that a camera describes and those that the host knows: the three kinds of
/// stream, the catalogue, the search for a wanted size, and the paths that follow. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "RtspStream.h"
#include "qmxcam.h"

namespace qmx::cam::priv {

/// One kind of stream, under all the names it has.
struct SStreamKind {
    SGuid pixelType;           ///< towards the host
    const char* describePath;  ///< URL path of its description
    const char* encodingName;  ///< how an rtpmap of its formats begins
    const char* receiverName;  ///< towards the receiver
};

extern const SStreamKind rawKind;
extern const SStreamKind jpegLsKind;
extern const SStreamKind jpegKind;

/// Appends an entry for every format of the stream that has the kind's encoding, in the camera's
/// order. Sizes keep their low 16 bits; repeated formats and those without a size stay.
void AddCatalogueEntries(const SRtspStream& stream, const SStreamKind& kind,
                         TArray<IDevice::SFormat>& catalogue);

/// The format that is taken for a wanted size, in pixels; null when there is none. A format
/// replaces the best so far, which begins at 0 by 0, only when it is closer in both dimensions: the
/// first of equals stays, and nothing is taken for a wanted width or height of 0.
[[nodiscard]] const SRtspFormat* FindFormat(const SRtspStream& stream, const SStreamKind& kind,
                                            std::uint16_t width, std::uint16_t height);

/// What SETUP and the later requests name.
struct SStreamPaths {
    std::string setup;
    std::string control;
};

/// Paths of a raw stream: the format decides.
[[nodiscard]] SStreamPaths RawPaths(const SRtspFormat& format);
/// Paths of a compressed stream: the same for each of its sizes, with the rate, if one is asked
/// for, in whole frames per second.
[[nodiscard]] SStreamPaths CompressedPaths(const SStreamKind& kind, std::optional<double> rate);

}  // namespace qmx::cam::priv
