/// The connection between Dear ImGui and the window.
#pragma once

#include <imgui.h>

#include <memory>

#include "Screen.h"

namespace qmxview {

// Colours of everything but the pictures.
inline constexpr ImU32 backgroundColour = IM_COL32(18, 20, 23, 255);
inline constexpr ImU32 panelColour = IM_COL32(28, 31, 35, 255);
inline constexpr ImU32 textColour = IM_COL32(222, 226, 230, 255);
inline constexpr ImU32 faintColour = IM_COL32(134, 142, 150, 255);
inline constexpr ImU32 accentColour = IM_COL32(77, 171, 247, 255);
inline constexpr ImU32 warningColour = IM_COL32(255, 169, 77, 255);
inline constexpr ImU32 recordColour = IM_COL32(250, 82, 82, 255);

/// Owns the state of Dear ImGui and the picture of its windows, which changes less often than the
/// cameras' pictures and is therefore kept.
class CInterface {
   public:
    explicit CInterface(const CScreen& screen);
    ~CInterface();
    CInterface(const CInterface&) = delete;
    CInterface& operator=(const CInterface&) = delete;

    void HandleEvent(const SDL_Event& event);
    /// Begins a new picture of the windows: call functions of Dear ImGui, then `End`.
    void Begin();
    void End();
    /// Draws the last picture: the part within `opaque`, and the rest if a window is elsewhere.
    void Draw(const SRect& opaque, bool elsewhere) const;

    /// Returns true if the mouse is over a window of Dear ImGui, or pressed one.
    [[nodiscard]] static bool WantsMouse();
    /// Returns true while text is typed.
    [[nodiscard]] static bool WantsKeys();

   private:
    const CScreen& screen;
    std::unique_ptr<SDL_Texture, void (*)(SDL_Texture*)> kept{nullptr, SDL_DestroyTexture};
    SRect keptSize;
};

/// Text, lines and rectangles over the pictures, drawn each time and not kept.
class COverlay {
   public:
    explicit COverlay(const CScreen& targetScreen);

    void Begin();
    /// Draws everything since `Begin`.
    void End();
    [[nodiscard]] ImDrawList& list() noexcept { return drawing; }
    /// Draws a line of text within a rectangle, cut at its right edge. `right` aligns it there.
    void Text(const SRect& within, ImU32 colour, const std::string& text, bool right = false);

   private:
    const CScreen& screen;
    ImDrawList drawing;
};

}  // namespace qmxview
