/// Soft-edged shapes on a picture of 16-bit counts. Positions are fractions of the picture's width
/// and height, lengths are fractions of one unit, so that a drawing keeps its proportions at every
/// size.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "CameraSettings.h"

namespace korusim {

/// A position in pixels.
struct SPoint {
    float x = 0;
    float y = 0;
};

/// A rectangle in pixels, right and bottom excluded.
struct SArea {
    float left = 0;
    float top = 0;
    float right = 0;
    float bottom = 0;
};

/// A thick line with round ends. With equal end points it is a disc.
struct SCapsule {
    SPoint from;
    SPoint to;
    float radius = 0;

    /// Returns the distance from the edge in pixels, negative inside, as in all shapes.
    [[nodiscard]] float Distance(SPoint at) const {
        const float dx = to.x - from.x;
        const float dy = to.y - from.y;
        const float length2 = dx * dx + dy * dy;
        const float along = (at.x - from.x) * dx + (at.y - from.y) * dy;
        const float part = length2 > 0 ? std::clamp(along / length2, 0.0F, 1.0F) : 0.0F;
        const float restX = at.x - from.x - part * dx;
        const float restY = at.y - from.y - part * dy;
        return std::sqrt(restX * restX + restY * restY) - radius;
    }
    [[nodiscard]] SArea Bounds() const {
        return {std::min(from.x, to.x) - radius, std::min(from.y, to.y) - radius,
                std::max(from.x, to.x) + radius, std::max(from.y, to.y) + radius};
    }
};

/// A convex shape with its corners in clockwise order, as seen on the picture.
template <std::size_t N>
struct SPolygon {
    std::array<SPoint, N> corners;

    [[nodiscard]] float Distance(SPoint at) const {
        float farthest = -1e9F;
        for (std::size_t i = 0; i < N; ++i) {
            const SPoint a = corners[i];
            const SPoint b = corners[(i + 1) % N];
            const float dx = b.x - a.x;
            const float dy = b.y - a.y;
            const float length = std::max(std::sqrt(dx * dx + dy * dy), 1e-3F);
            farthest = std::max(farthest, ((at.x - a.x) * dy - (at.y - a.y) * dx) / length);
        }
        return farthest;
    }
    [[nodiscard]] SArea Bounds() const {
        SArea area{corners[0].x, corners[0].y, corners[0].x, corners[0].y};
        for (const SPoint& corner : corners) {
            area = {std::min(area.left, corner.x), std::min(area.top, corner.y),
                    std::max(area.right, corner.x), std::max(area.bottom, corner.y)};
        }
        return area;
    }
};

class CCanvas {
   public:
    CCanvas(SPictureSize size, std::span<std::uint16_t> picture)
        : pixels(picture),
          columns(size.width),
          rows(size.height),
          unitPixels(
              std::min(static_cast<float>(size.height), static_cast<float>(size.width) / 1.25F)) {}

    [[nodiscard]] float width() const { return static_cast<float>(columns); }
    [[nodiscard]] float height() const { return static_cast<float>(rows); }
    /// The unit of length in pixels: the height, unless the picture is narrow.
    [[nodiscard]] float unit() const { return unitPixels; }
    [[nodiscard]] SPoint Place(float x, float y) const { return {x * width(), y * height()}; }

    /// Fills a shape with a grey value. With `opacity` 1 the background does not show.
    template <class Shape>
    void Fill(const Shape& shape, float counts, float opacity = 1) {
        Visit(shape.Bounds(), [&](SPoint at, std::uint16_t& pixel) {
            const float cover = std::clamp(0.5F - shape.Distance(at), 0.0F, 1.0F) * opacity;
            const float old = pixel;
            pixel = static_cast<std::uint16_t>(old + (counts - old) * cover);
        });
    }

    /// Adds a round warm spot that fades out towards `radius`.
    void Glow(SPoint centre, float radius, float counts) {
        const SArea area{centre.x - radius, centre.y - radius, centre.x + radius,
                         centre.y + radius};
        Visit(area, [&](SPoint at, std::uint16_t& pixel) {
            const float dx = (at.x - centre.x) / radius;
            const float dy = (at.y - centre.y) / radius;
            const float rest = std::max(1 - dx * dx - dy * dy, 0.0F);
            pixel = static_cast<std::uint16_t>(pixel + counts * rest * rest);
        });
    }

    /// Sets each pixel to the value that a function returns for it.
    template <class Function>
    void Paint(Function counts) {
        Visit({0, 0, width(), height()}, [&](SPoint at, std::uint16_t& pixel) {
            pixel = static_cast<std::uint16_t>(counts(at));
        });
    }

   private:
    /// Calls a function for each existing pixel whose centre is in an area or next to it.
    template <class Visitor>
    void Visit(const SArea& area, Visitor visitor) {
        const auto clip = [](float value, std::size_t most) {
            return static_cast<std::size_t>(std::clamp(value, 0.0F, static_cast<float>(most)));
        };
        const std::size_t left = clip(area.left - 1, columns);
        const std::size_t right = clip(area.right + 2, columns);
        const std::size_t bottom = clip(area.bottom + 2, rows);
        for (std::size_t y = clip(area.top - 1, rows); y < bottom; ++y) {
            for (std::size_t x = left; x < right; ++x) {
                const SPoint at{static_cast<float>(x) + 0.5F, static_cast<float>(y) + 0.5F};
                visitor(at, pixels[y * columns + x]);
            }
        }
    }

    std::span<std::uint16_t> pixels;
    std::size_t columns;
    std::size_t rows;
    float unitPixels;
};

}  // namespace korusim
