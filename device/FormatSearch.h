/// Maps the formats that a camera describes to those of the host: the kinds of stream, the
/// catalogue, the search for a requested size, and the URL paths of a format. Uses no network.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "RtspStream.h"
#include "qmxcam.h"

namespace qmx::cam::priv {

/// One kind of stream and its names.
struct SStreamKind {
    SGuid pixelType;           ///< its name for the host
    const char* describePath;  ///< URL path of its description
    const char* encodingName;  ///< beginning of the rtpmap of its formats
    const char* streamName;    ///< its name for the receiver
};

extern const SStreamKind rawKind;
extern const SStreamKind jpegLsKind;
extern const SStreamKind jpegKind;

/// Appends an entry for every format of the stream that has the kind's encoding, in the camera's
/// order. An entry has the low 16 bits of the sizes. Repeated formats and formats without a size
/// are kept.
void AddCatalogueEntries(const SRtspStream& stream, const SStreamKind& kind,
                         TArray<IDevice::SFormat>& catalogue);

/// Returns the format to stream for a requested size in pixels, or null when there is none. The
/// search begins with a best size of 0 by 0; a format replaces the best one only when it is closer
/// in both dimensions. So the first of several equal formats wins, and there is none for a
/// requested width or height of 0.
[[nodiscard]] const SRtspFormat* FindFormat(const SRtspStream& stream, const SStreamKind& kind,
                                            std::uint16_t width, std::uint16_t height);

/// The URL paths of a stream: in SETUP, and in the later requests.
struct SStreamPaths {
    std::string setup;
    std::string control;
};

/// Returns the paths of a raw stream, which depend on the format.
[[nodiscard]] SStreamPaths RawPaths(const SRtspFormat& format);
/// Returns the paths of a compressed stream, which are the same for all of its sizes. The setup
/// path contains the rate, if any, rounded to whole frames per second.
[[nodiscard]] SStreamPaths CompressedPaths(const SStreamKind& kind, std::optional<double> rate);

}  // namespace qmx::cam::priv
