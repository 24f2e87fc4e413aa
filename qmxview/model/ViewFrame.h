/// A frame on its way to the screen.
#pragma once

#include <cstdint>
#include <vector>

#include "FrameQueue.h"
#include "FrameStatistics.h"
#include "Picture.h"

namespace qmxview {

/// A decoded frame. Its memory is reused for later frames.
struct SViewFrame {
    /// The camera's values; of a JPEG frame, its luminance from 0 to 255.
    frames::SGreyPicture values;
    /// Red, green, blue of each pixel of a JPEG frame; otherwise empty.
    std::vector<std::uint8_t> colours;
    frames::SArrival arrival;
    frames::Clock::time_point received;  ///< beginning of the frame callback
};

}  // namespace qmxview
