/// What one pane shows: picture, colours, measurements. Knows neither windows nor threads.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ColourTable.h"
#include "Region.h"
#include "TimeSeries.h"
#include "ToneMap.h"
#include "ValueScale.h"
#include "ViewFrame.h"
#include "Viewport.h"

namespace qmxview {

/// How the values of a pane become colours. The person at the screen changes all of it.
struct SPaneSettings {
    std::string palette = "iron";
    bool automaticLevels = true;
    double percentile =
        0.5;  ///< percentage of the pixels that automatic levels leave out, at either end
    frames::SLevels lockedLevels{};  ///< used unless the levels are automatic
    bool markSaturation = false;
    int saturation = 65535;  ///< values from here on count as saturated
    bool markIsotherm = false;
    frames::SValueRange isotherm{};
    bool markSpots = false;  ///< the hottest and the coldest pixel
};

/// Holds the difference to the reference around this value, because pixels have no sign.
inline constexpr std::uint16_t differenceZero = 32768;

/// The model of a pane. Used by one thread.
class CPaneModel {
   public:
    CPaneModel(SPaneSettings initial, const std::optional<SValueScale>& scale);

    /// Takes in the newest frame, which must stay valid until the next call. `seconds` is the time
    /// since the previous one.
    void Show(const SViewFrame& frame, double seconds);
    /// Uses these levels in place of the pane's automatic ones from now on, or no longer, for panes
    /// whose levels are linked.
    void LinkLevels(const std::optional<frames::SLevels>& common) noexcept { linked = common; }
    /// Paints the visible part of the picture in rows of `pitch` pixels. `greyed` shows it as a
    /// picture of the past. The size of the part is that of `viewport.Visible()`.
    void Paint(frames::Argb* to, std::size_t pitch, bool greyed);

    /// Makes the picture that is shown the reference that is subtracted from now on.
    void SetReference();
    void ClearReference();
    [[nodiscard]] bool hasReference() const noexcept { return !reference.pixels.empty(); }
    /// Sets the region to measure, in pixels of the picture; nothing removes it.
    void SetRegion(const std::optional<frames::SRegion>& pixels);
    /// Sets the pixel under the cursor; nothing when the cursor is elsewhere.
    void SetCursor(const std::optional<SPixel>& pixel);
    /// Measures again and sets the levels, after a setting has changed.
    void SettingsChanged();
    /// Marks the isotherm or not. The first one is the hottest quarter of the levels.
    void ToggleIsotherm();
    /// Moves the locked levels, and locks them.
    void LockLevels(frames::SLevels levels);

    /// Returns true once a picture has been shown.
    [[nodiscard]] bool hasPicture() const noexcept { return !shown().pixels.empty(); }
    /// Returns true if the picture has colours and therefore no levels.
    [[nodiscard]] bool coloured() const noexcept {
        return frame != nullptr && !frame->colours.empty();
    }
    /// Returns the frame that is shown, or null.
    [[nodiscard]] const SViewFrame* current() const noexcept { return frame; }
    /// Returns the values that are shown: those of the camera, or the difference to the reference
    /// plus `differenceZero`.
    [[nodiscard]] const frames::SGreyPicture& shown() const noexcept;
    /// Returns the levels of this pane alone, as of the last frame.
    [[nodiscard]] const frames::SLevels& ownLevels() const noexcept { return own; }
    /// Returns the levels in use.
    [[nodiscard]] const frames::SLevels& levels() const noexcept { return linked ? *linked : own; }
    [[nodiscard]] const frames::CHistogram& histogram() const noexcept { return counts; }
    [[nodiscard]] const std::optional<frames::SRegion>& region() const noexcept { return measured; }
    /// Returns the statistics of the region, if there is one.
    [[nodiscard]] const std::optional<frames::SRegionStatistics>& regionStatistics()
        const noexcept {
        return regionResult;
    }
    /// Returns the statistics of the whole picture, if `markSpots` is set.
    [[nodiscard]] const std::optional<frames::SRegionStatistics>& spots() const noexcept {
        return wholeResult;
    }
    [[nodiscard]] const std::optional<SPixel>& cursor() const noexcept { return cursorPixel; }
    /// Returns the mean of the region, or the value under the cursor, over time.
    [[nodiscard]] const CTimeSeries& series() const noexcept { return overTime; }

    /// Returns a value of `shown()` as a text; that of a difference has a sign.
    [[nodiscard]] std::string ValueText(double value) const;
    [[nodiscard]] std::string DistanceText(double distance) const {
        return texts.Distance(distance);
    }
    /// Returns position and value of the pixel under the cursor; empty if there is none.
    [[nodiscard]] std::string CursorText() const;
    /// Returns why the picture looks uniform, such as "all values 7188..7190"; empty if it does
    /// not.
    [[nodiscard]] std::string UniformText() const;

    SPaneSettings settings;
    CViewport viewport;

   private:
    void Subtract();
    void UpdateLevels(double seconds);
    void Measure(bool newFrame);
    void UpdateColours();
    [[nodiscard]] double Signed(double value) const noexcept;

    const SViewFrame* frame = nullptr;
    std::uint32_t frameWidth = 0;
    std::uint32_t frameHeight = 0;
    std::size_t ignored = 0;  // pixels of the simulator's stamp
    frames::SGreyPicture reference;
    frames::SGreyPicture difference;
    frames::CHistogram counts;
    frames::CAutomaticLevels automatic;
    frames::SLevels own;
    std::optional<frames::SLevels> linked;
    frames::SColouring coloursFor;  // the colouring of `colours`
    bool coloursValid = false;
    std::vector<frames::Argb> colours = std::vector<frames::Argb>(65536);
    SIndexMap map;
    std::optional<unsigned> mapRevision;  // of the viewport, when `map` was made
    std::optional<frames::SRegion> measured;
    std::optional<frames::SRegionStatistics> regionResult;
    std::optional<frames::SRegionStatistics> wholeResult;
    std::optional<SPixel> cursorPixel;
    CTimeSeries overTime;
    CValueTexts texts;
};

/// Returns the levels that show the pictures of all linked panes: from the lowest to the highest.
[[nodiscard]] frames::SLevels CommonLevels(std::span<const frames::SLevels> each);

}  // namespace qmxview
