/// The streams that a camera offers: which path leads to which format, and the session description
/// (SDP, RFC 4566) of each path.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

enum class EEncoding { Raw, Mjls, Jpeg };

/// One RTP payload format.
struct SVideoFormat {
    EEncoding encoding = EEncoding::Raw;
    std::uint8_t payloadType = 0;
    SPictureSize size;
};

/// Returns the formats that DESCRIBE lists at a path; none if the camera has no stream there.
[[nodiscard]] std::vector<SVideoFormat> FormatsAt(const SCameraSettings& settings,
                                                  std::string_view path);

/// Returns the format that SETUP of a path, without its query, selects.
[[nodiscard]] std::optional<SVideoFormat> FormatToSetUp(const SCameraSettings& settings,
                                                        std::string_view path);

/// Returns the description of a list of formats.
[[nodiscard]] std::string DescribeFormats(const SCameraSettings& settings,
                                          const std::vector<SVideoFormat>& formats);

}  // namespace korusim
