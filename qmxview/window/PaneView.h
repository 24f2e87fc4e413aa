/// Draws a pane and handles the mouse in it.
#pragma once

#include <optional>

#include "Interface.h"
#include "Layout.h"
#include "Pane.h"
#include "Screen.h"

namespace qmxview {

class CPaneView {
   public:
    explicit CPaneView(CPane& shownPane) : pane(shownPane) {}

    void SetLayout(const SPaneLayout& place);
    [[nodiscard]] const SPaneLayout& layout() const noexcept { return where; }
    /// Paints the picture into the canvas, in its present colours and place.
    void Paint(SDL_Renderer* renderer, frames::Clock::time_point now);
    /// Draws the canvas and everything around it.
    void Draw(SDL_Renderer* renderer, COverlay& overlay, double unit, bool selected,
              frames::Clock::time_point now) const;

    // The left button measures a region, the right or the middle one moves the picture.
    void MousePressed(int button, int x, int y);
    void MouseMoved(int x, int y);
    void MouseReleased(int button);
    void MouseLeft() { pane.model.SetCursor(std::nullopt); }
    void Wheel(int steps, int x, int y);

   private:
    struct SDrag {
        int button = 0;
        int startX = 0;
        int startY = 0;
        int lastX = 0;
        int lastY = 0;
    };

    void DrawMarks(COverlay& overlay, double unit) const;
    void DrawTexts(COverlay& overlay, double unit, bool selected,
                   frames::Clock::time_point now) const;
    void DrawError(COverlay& overlay, double unit) const;
    [[nodiscard]] std::optional<frames::SRegion> DraggedRegion() const;

    CPane& pane;
    SPaneLayout where;
    CCanvas canvas;
    SRect painted;  // the canvas's place
    std::optional<SDrag> drag;
};

}  // namespace qmxview
