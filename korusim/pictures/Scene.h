/// The picture that a virtual camera sees: a street at night in the far infrared, with a house, a
/// parked car that has just arrived, two people walking by and an aeroplane. Grey values are 14-bit
/// counts, 25 to the kelvin.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CameraSettings.h"

namespace korusim {

class CScene {
   public:
    CScene(SPictureSize size, std::uint64_t seed);

    /// Draws the scene as it is `seconds` after its beginning, into width times height pixels.
    /// `frame` only varies the noise.
    void Render(double seconds, std::uint64_t frame, std::span<std::uint16_t> picture) const;

   private:
    void AddNoise(double seconds, std::uint64_t frame, std::span<std::uint16_t> picture) const;

    SPictureSize pictureSize;
    std::vector<std::uint16_t> background;    // everything that stands still
    std::vector<std::int16_t> columnOffsets;  // fixed pattern of the sensor
    std::vector<std::int16_t> noise;          // each line of each frame takes a stretch of it
};

}  // namespace korusim
