/// The panel beside the pictures: everything that can be changed or read about one pane.
#pragma once

#include <optional>

#include "Interface.h"
#include "Pane.h"

namespace qmxview {

/// What a person did in the panel that concerns the whole window.
struct SPanelResult {
    std::optional<ECommand> command;
};

class CPanel {
   public:
    /// Draws the panel of a pane and carries out what is done there. `several` offers to link the
    /// levels of all panes, which `linked` stores. Call it between `CInterface::Begin` and `End`.
    [[nodiscard]] SPanelResult Show(CPane& pane, const SRect& place, double unit, bool several,
                                    bool& linked, const hostkit::SLoss& system);
    /// Shows the list of keys in the middle of an area.
    static void ShowHelp(const SRect& area, double unit);

   private:
    void ShowCamera(CPane& pane);
    void ShowRate(CPane& pane);
    void ShowPicture(CPane& pane);
    void ShowLevels(CPane& pane, bool several, bool& linked);
    void ShowHistogram(CPane& pane);
    void ShowMarks(CPane& pane);
    void ShowMeasurements(CPane& pane);
    static void ShowReception(CPane& pane, const hostkit::SLoss& system);
    void Button(const char* text, ECommand command, float width);

    SPanelResult result;
    float unitPixels = 1;
    const CPane* shownPane = nullptr;
    double rate = 0;  // as typed
    bool typingRate = false;
    frames::SLevels histogramRange;  // shown; changes only when the picture leaves it
    int draggedLevel = 0;            // -1: low, 1: high
};

}  // namespace qmxview
