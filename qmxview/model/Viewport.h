/// Where a picture is on the screen: zoom, position, rotation, mirroring.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace qmxview {

/// Limits of the screen pixels for each pixel of the picture.
inline constexpr double leastZoom = 0.125;
inline constexpr double mostZoom = 64;

/// A rectangle of screen pixels.
struct SRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    [[nodiscard]] constexpr bool Contains(int px, int py) const noexcept {
        return px >= x && px < x + width && py >= y && py < y + height;
    }
    [[nodiscard]] constexpr bool empty() const noexcept { return width <= 0 || height <= 0; }
    bool operator==(const SRect&) const = default;
};

/// A point of the screen or of a picture. Pixel (x, y) covers the square from (x, y) to
/// (x + 1, y + 1).
struct SPoint {
    double x = 0;
    double y = 0;
};

/// A pixel of a picture.
struct SPixel {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    bool operator==(const SPixel&) const = default;
};

/// For each screen column and row of a picture, the part of the pixel's index that it contributes:
/// the screen pixel in column i and row j shows the picture's pixel `columns[i] + rows[j]`.
struct SIndexMap {
    std::vector<std::size_t> columns;
    std::vector<std::size_t> rows;
};

/// Maps the pixels of a picture to an area of the screen and back. Each screen pixel shows exactly
/// one pixel of the picture, without interpolation.
class CViewport {
   public:
    /// Sets the size of the picture. A new size moves its centre to the centre of the area.
    void SetPicture(std::uint32_t width, std::uint32_t height);
    /// Sets the area of the screen that the picture may use.
    void SetArea(const SRect& screenArea) noexcept;

    /// Turns what is shown by 90 degrees clockwise.
    void Rotate() noexcept;
    /// Exchanges left and right of what is shown.
    void Mirror() noexcept;
    /// Shows the whole picture as large as the area allows, also after the area changes.
    void Fit() noexcept;
    /// Shows the picture with this many screen pixels for each of its pixels, around its centre.
    void SetScale(double scale) noexcept;
    /// Zooms in (`steps` above 0) or out, and keeps the picture's point at a screen point there.
    void Zoom(int steps, SPoint anchor) noexcept;
    /// Moves the picture by screen pixels.
    void Pan(double dx, double dy) noexcept;

    /// Returns a number that changes whenever `Map` may have changed.
    [[nodiscard]] unsigned revision() const noexcept { return changes; }
    [[nodiscard]] bool fits() const noexcept { return !fixedScale; }
    /// Returns the number of screen pixels for each pixel of the picture.
    [[nodiscard]] double scale() const noexcept;
    [[nodiscard]] unsigned quarterTurns() const noexcept { return turns; }
    [[nodiscard]] bool mirrored() const noexcept { return mirror; }
    /// Returns the part of the area that the picture covers; empty without a picture.
    [[nodiscard]] SRect Visible() const noexcept;
    /// Returns the pixel that a screen pixel shows, or nothing outside the picture.
    [[nodiscard]] std::optional<SPixel> PixelAt(int screenX, int screenY) const noexcept;
    /// Returns the point of the screen that shows a point of the picture, which may be outside the
    /// visible part.
    [[nodiscard]] SPoint ToScreen(SPoint picture) const noexcept;
    /// Returns the map of the visible part.
    [[nodiscard]] SIndexMap Map() const;

   private:
    [[nodiscard]] SPoint ToShown(SPoint picture) const noexcept;
    [[nodiscard]] SPoint FromShown(SPoint shown) const noexcept;
    [[nodiscard]] double shownWidth() const noexcept { return turns % 2 == 0 ? width : height; }
    [[nodiscard]] double shownHeight() const noexcept { return turns % 2 == 0 ? height : width; }
    /// Returns the screen position of the shown picture's upper left corner, in whole pixels.
    [[nodiscard]] SPoint Origin() const noexcept;
    [[nodiscard]] SPoint Size() const noexcept;
    [[nodiscard]] std::optional<SPixel> PixelOf(SPoint screen) const noexcept;

    std::uint32_t width = 0;
    std::uint32_t height = 0;
    SRect area;
    unsigned turns = 0;  // clockwise, applied before `mirror`
    bool mirror = false;
    std::optional<double> fixedScale;  // nothing: fit
    SPoint centre;                     // the picture's point at the centre of the area
    unsigned changes = 0;
};

}  // namespace qmxview
