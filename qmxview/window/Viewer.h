/// The live view: a window with a pane for each camera.
#pragma once

#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "Interface.h"
#include "KeyCommands.h"
#include "PaneView.h"
#include "Panel.h"
#include "Screen.h"
#include "StreamMeter.h"

namespace qmxview {

struct SViewOptions {
    std::vector<SCameraRequest> cameras;
    SPaneSettings settings;
    std::optional<SValueScale> scale;
    std::optional<double> zoom;  ///< screen pixels for each pixel of a picture; nothing: fit
    ERenderer renderer = ERenderer::Automatic;
    double uiScale = 0;  ///< pixels for each pixel of an ordinary screen; 0: as the screen
    std::filesystem::path screenshot;  ///< file to save before the view ends; empty: none
    std::uint64_t after = 1;           ///< frames that each camera shows before the screenshot
    std::uint64_t slowMs = 0;  ///< time that each pass waits in addition, to imitate a slow screen
};

/// Runs the live view on the calling thread. The cameras stream on others.
class CViewer {
   public:
    CViewer(hostkit::CPluginHost& host, const SViewOptions& viewOptions);

    /// Shows the cameras until the window is closed or a stop is requested, then stops them all.
    /// Throws a `CFailure` if the command line names a camera or a format that does not exist, or
    /// if no camera can be streamed from.
    [[nodiscard]] hostkit::EExit Run();

   private:
    /// A snapshot that another thread writes.
    struct SWriting {
        CPane* pane;
        std::string file;
        std::future<std::string> result;
    };

    void Watch();
    void HandleEvents();
    void HandleEvent(const SDL_Event& event);
    void HandleMouse(const SDL_Event& event);
    void Do(ECommand command);
    void ChangePalette(int by);
    [[nodiscard]] bool Refresh(frames::Clock::time_point now);
    void CountSystem(frames::Clock::time_point now);
    void LinkLevels();
    void Draw(frames::Clock::time_point now, bool interfaceToo);
    void DrawInterface();
    void TakePictures();
    void ReportSnapshots();
    void EndIfFailed();
    void EndIfSilent(frames::Clock::time_point now);
    [[nodiscard]] bool ScreenshotDue() const;
    void Stop();
    [[nodiscard]] CPane& selectedPane() { return *panes[selected]; }

    const SViewOptions& options;
    CSignal signal;
    CScreen screen;
    CInterface interfaceLayer;
    COverlay overlay;
    CPanel panel;
    std::vector<std::unique_ptr<CPane>> panes;
    std::vector<CPaneView> views;
    SRect panelPlace;
    std::size_t selected = 0;
    bool linked = false;
    bool showHelp = false;
    bool ended = false;
    bool interfaceDue = true;  // something happened that it shows
    bool popupOpen = false;
    bool closePopups = false;
    bool snapshotWanted = false;
    std::vector<SWriting> writing;
    std::optional<hostkit::CFailure> failure;
    frames::Clock::time_point nextInterface;
    std::optional<std::uint64_t> droppedBefore;  // datagrams that the system had dropped
    hostkit::SLoss system;                       // what it counts for all panes; none is missing
    hostkit::CStallWatch stalls;
    frames::Clock::time_point nextSystemCounts;
};

}  // namespace qmxview
