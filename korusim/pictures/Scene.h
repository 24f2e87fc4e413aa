/// The scene of a virtual camera: a street at night in the far infrared, with a house, a car that
/// has just been parked, two people walking by and an aeroplane. Grey values are 14-bit counts, 25
/// per kelvin.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "CameraSettings.h"
#include "PictureSource.h"

namespace korusim {

class CScene : public CPictureSource {
   public:
    CScene(SPictureSize size, std::uint64_t seed);

    /// `frame` only varies the noise.
    void Render(double seconds, std::uint64_t frame,
                std::span<std::uint16_t> picture) const override;
    /// Returns the counts at -31 and 37 degrees Celsius.
    [[nodiscard]] SGreyRange range() const noexcept override { return {6225, 7930}; }
    [[nodiscard]] bool slow() const noexcept override { return false; }

   private:
    void AddNoise(double seconds, std::uint64_t frame, std::span<std::uint16_t> picture) const;

    SPictureSize pictureSize;
    std::vector<std::uint16_t> background;    // everything that does not move
    std::vector<std::int16_t> columnOffsets;  // fixed pattern of the sensor
    std::vector<std::int16_t> noise;          // each row of each frame uses a part of it
};

}  // namespace korusim
