#include "Viewer.h"

#include <imgui_internal.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>
#include <utility>

#include "NetworkCounters.h"
#include "Path.h"
#include "Process.h"
#include "Snapshot.h"

namespace qmxview {
namespace {

using namespace std::chrono_literals;
using frames::Clock;
using hostkit::CFailure;
using hostkit::EExit;

/// Size of the window on a screen of ordinary resolution: a picture of 960 pixels beside the panel.
constexpr int windowWidth = 1280;
constexpr int windowHeight = 860;
/// Time between two pictures of the panel. Its numbers cannot be read faster.
constexpr auto interfacePeriod = 66ms;
/// Longest wait for a frame, and so the longest delay of a key.
constexpr auto eventPeriod = 10ms;
constexpr auto systemPeriod = 1s;
/// Wait for a picture after which a screenshot has failed.
constexpr auto screenshotPatience = 10s;
/// Wait for a camera to stop before it is said to be slow.
constexpr auto stopPatience = 1s;

std::string Title(const SViewOptions& options) {
    std::string title = "qmxview";
    for (const SCameraRequest& request : options.cameras) title += " " + request.camera;
    return title;
}

}  // namespace

CViewer::CViewer(hostkit::CPluginHost& host, const SViewOptions& viewOptions)
    : options(viewOptions),
      screen(options.renderer, Title(options).c_str(), windowWidth, windowHeight, options.uiScale),
      interfaceLayer(screen),
      overlay(screen),
      droppedBefore(platform::UdpCounters().dropped) {
    for (const SCameraRequest& request : options.cameras) {
        panes.push_back(
            std::make_unique<CPane>(host, request, options.settings, options.scale, signal));
        if (options.zoom) panes.back()->model.viewport.SetScale(*options.zoom);
        views.emplace_back(*panes.back());
    }
}

EExit CViewer::Run() {
    Watch();
    Stop();
    if (failure) throw CFailure(*failure);
    const bool failed =
        std::ranges::any_of(panes, [](const auto& pane) { return pane->recordingFailed(); });
    return failed ? EExit::Failed : EExit::Done;
}

void CViewer::Watch() {
    stalls.BeginWait(eventPeriod);
    while (!ended) {
        HandleEvents();
        if (platform::StopRequested()) ended = true;
        const Clock::time_point now = Clock::now();
        const bool newPicture = Refresh(now);
        const bool interfaceToo = interfaceDue || now >= nextInterface;
        if (newPicture || interfaceToo) Draw(now, interfaceToo);
        EndIfFailed();
        EndIfSilent(now);
        if (options.slowMs != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(options.slowMs));
        }
        if (!ended) signal.Wait(eventPeriod);
        stalls.EndWait();
        stalls.BeginWait(eventPeriod);
    }
}

void CViewer::HandleEvents() {
    SDL_Event event;
    while (SDL_PollEvent(&event) != 0) {
        interfaceDue = true;
        interfaceLayer.HandleEvent(event);
        HandleEvent(event);
    }
}

void CViewer::HandleEvent(const SDL_Event& event) {
    switch (event.type) {
        case SDL_QUIT:
            ended = true;
            break;
        case SDL_KEYDOWN: {
            const SDL_Keysym key = event.key.keysym;
            if (popupOpen && key.sym == SDLK_ESCAPE) {
                closePopups = true;
                break;
            }
            if (CInterface::WantsKeys() || (key.mod & (KMOD_CTRL | KMOD_ALT | KMOD_GUI)) != 0)
                break;
            const auto command =
                CommandOfKey(SDL_GetKeyName(key.sym), SDL_GetScancodeName(key.scancode),
                             (key.mod & KMOD_SHIFT) != 0);
            // A key that is held down repeats movements only.
            const bool repeats = command >= ECommand::ZoomIn && command <= ECommand::PanDown;
            if (command && (event.key.repeat == 0 || repeats)) Do(*command);
            break;
        }
        case SDL_WINDOWEVENT:
            if (event.window.event == SDL_WINDOWEVENT_LEAVE) {
                for (CPaneView& view : views) view.MouseLeft();
            }
            break;
        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEBUTTONUP:
        case SDL_MOUSEMOTION:
        case SDL_MOUSEWHEEL:
            HandleMouse(event);
            break;
        default:
            break;
    }
}

void CViewer::HandleMouse(const SDL_Event& event) {
    if (event.type == SDL_MOUSEBUTTONUP) {
        for (CPaneView& view : views) view.MouseReleased(event.button.button);
        return;
    }
    if (event.type == SDL_MOUSEMOTION) {
        for (CPaneView& view : views) view.MouseMoved(event.motion.x, event.motion.y);
        return;
    }
    // A wheel event has no position in this version of SDL.
    int x = event.button.x;
    int y = event.button.y;
    if (event.type == SDL_MOUSEWHEEL) SDL_GetMouseState(&x, &y);
    if (panelPlace.Contains(x, y) || popupOpen || showHelp) return;
    for (std::size_t i = 0; i < views.size(); ++i) {
        if (!views[i].layout().whole.Contains(x, y)) continue;
        if (event.type == SDL_MOUSEWHEEL) {
            views[i].Wheel(event.wheel.y, x, y);
        } else {
            selected = i;
            views[i].MousePressed(event.button.button, x, y);
        }
    }
}

void CViewer::Do(ECommand command) {
    switch (command) {
        case ECommand::Quit:
            ended = true;
            break;
        case ECommand::Help:
            showHelp = !showHelp;
            break;
        case ECommand::NextPane:
            selected = (selected + 1) % panes.size();
            break;
        case ECommand::Snapshot:
            snapshotWanted = true;
            break;
        case ECommand::LinkLevels:
            linked = !linked;
            break;
        case ECommand::NextPalette:
            ChangePalette(1);
            break;
        case ECommand::PreviousPalette:
            ChangePalette(-1);
            break;
        default:
            (void)selectedPane().Do(command);
    }
    interfaceDue = true;
}

void CViewer::ChangePalette(int by) {
    const std::vector<std::string> names = frames::PaletteNames();
    std::string& palette = selectedPane().model.settings.palette;
    const auto at = std::ranges::find(names, palette) - names.begin();
    const auto count = static_cast<std::ptrdiff_t>(names.size());
    palette = names[static_cast<std::size_t>((at + by + count) % count)];
}

/// Returns true if a pane has a new picture.
bool CViewer::Refresh(Clock::time_point now) {
    bool changed = false;
    for (std::size_t i = 0; i < panes.size(); ++i) {
        if (!panes[i]->Refresh(now)) continue;
        changed = true;
        interfaceDue |= !options.screenshot.empty() && ScreenshotDue();
    }
    if (now >= nextSystemCounts) CountSystem(now);
    ReportSnapshots();
    LinkLevels();
    for (std::size_t i = 0; changed && i < panes.size(); ++i) {
        views[i].Paint(screen.renderer(), now);
    }
    return changed;
}

/// Reads what the system counts for all panes, by which they explain missing frames.
void CViewer::CountSystem(Clock::time_point now) {
    nextSystemCounts = now + systemPeriod;
    const auto dropped = platform::UdpCounters().dropped;
    if (dropped && droppedBefore) system.droppedDatagrams = *dropped - *droppedBefore;
    system.buffers = platform::ReceiveBuffers();
    system.longestStall = stalls.LongestStall();
    stalls = {};
    stalls.BeginWait(eventPeriod);
    for (const auto& pane : panes) pane->WatchLoss(system);
}

/// Makes all panes with values of a camera follow the selected one: it decides whether the levels
/// are automatic, which then show the pictures of all panes, or which levels are locked.
void CViewer::LinkLevels() {
    std::vector<CPaneModel*> models;
    std::vector<frames::SLevels> levels;
    for (const auto& pane : panes) {
        CPaneModel& model = pane->model;
        model.LinkLevels(std::nullopt);
        if (!linked || !model.hasPicture() || model.coloured() || model.hasReference()) continue;
        models.push_back(&model);
        levels.push_back(model.ownLevels());
    }
    CPaneModel& leader = selectedPane().model;
    if (std::ranges::find(models, &leader) == models.end()) return;
    const frames::SLevels common =
        leader.settings.automaticLevels ? CommonLevels(levels) : leader.ownLevels();
    for (CPaneModel* const model : models) {
        if (leader.settings.automaticLevels) {
            model->settings.automaticLevels = true;
        } else {
            model->LockLevels(leader.ownLevels());
        }
        model->LinkLevels(common);
    }
}

void CViewer::Draw(Clock::time_point now, bool interfaceToo) {
    SDL_Renderer* const renderer = screen.renderer();
    const SRect area = screen.area();
    const SLayout layout = DivideWindow(area.width, area.height, panes.size(), screen.unit());
    panelPlace = layout.panel;
    for (std::size_t i = 0; i < views.size(); ++i) views[i].SetLayout(layout.panes[i]);
    if (interfaceToo) {
        DrawInterface();
        // Whatever has just been changed in it becomes visible now.
        for (CPaneView& view : views) view.Paint(renderer, now);
        interfaceDue = false;
        nextInterface = now + interfacePeriod;
    }
    const ImVec4 background = ImGui::ColorConvertU32ToFloat4(backgroundColour);
    const auto byte = [](float part) { return static_cast<Uint8>(std::lround(part * 255)); };
    SDL_SetRenderDrawColor(renderer, byte(background.x), byte(background.y), byte(background.z),
                           255);
    SDL_RenderClear(renderer);
    overlay.Begin();
    for (std::size_t i = 0; i < views.size(); ++i) {
        views[i].Draw(renderer, overlay, screen.unit(), panes.size() > 1 && i == selected, now);
    }
    overlay.End();
    interfaceLayer.Draw(panelPlace, showHelp || popupOpen);
    TakePictures();
    SDL_RenderPresent(renderer);
    const Clock::time_point presented = Clock::now();
    for (const auto& pane : panes) pane->Presented(presented);
}

void CViewer::DrawInterface() {
    interfaceLayer.Begin();
    if (std::exchange(closePopups, false)) ImGui::ClosePopupToLevel(0, true);
    SPanelResult result;
    if (!panelPlace.empty()) {
        result =
            panel.Show(selectedPane(), panelPlace, screen.unit(), panes.size() > 1, linked, system);
    }
    const SRect area = screen.area();
    if (showHelp) CPanel::ShowHelp(area, screen.unit());
    popupOpen = ImGui::IsPopupOpen("", ImGuiPopupFlags_AnyPopupId | ImGuiPopupFlags_AnyPopupLevel);
    interfaceLayer.End();
    if (result.command) Do(*result.command);
}

bool CViewer::ScreenshotDue() const {
    return !options.screenshot.empty() && std::ranges::all_of(panes, [this](const auto& pane) {
        return pane->counts().shown >= options.after;
    });
}

/// Saves what has been drawn, if that was asked for.
void CViewer::TakePictures() {
    if (std::exchange(snapshotWanted, false)) {
        CPane& pane = selectedPane();
        const std::string file = pane.FileStem() + ".png";
        writing.push_back(
            {&pane, file,
             std::async(std::launch::async, WriteSnapshot,
                        TakeSnapshot(platform::PathFromUtf8(file), screen.Read(), {&pane}))});
    }
    if (!ScreenshotDue() || ended) return;
    std::vector<const CPane*> all;
    for (const auto& pane : panes) all.push_back(pane.get());
    const std::string error = WriteSnapshot(TakeSnapshot(options.screenshot, screen.Read(), all));
    if (!error.empty()) failure.emplace(EExit::Failed, error);
    ended = true;
}

/// Shows the results of snapshots that have been written meanwhile.
void CViewer::ReportSnapshots() {
    std::erase_if(writing, [this](SWriting& each) {
        if (each.result.wait_for(0s) != std::future_status::ready) return false;
        const std::string error = each.result.get();
        error.empty() ? each.pane->SetMessage("saved " + each.file) : each.pane->SetError(error);
        interfaceDue = true;
        return true;
    });
}

/// A mistake in the command line ends the view; a camera that does not work ends it only if there
/// is no other one, or if a screenshot needs it.
void CViewer::EndIfFailed() {
    std::size_t failed = 0;
    for (const auto& pane : panes) {
        const auto& why = pane->state().failure;
        if (!why) continue;
        ++failed;
        const bool mistake = why->status == EExit::NoCamera || why->status == EExit::Usage;
        const bool fresh = pane->counts().received.frames == 0 && pane->state().attempts <= 1;
        if (fresh && (mistake || failed == panes.size() || !options.screenshot.empty())) {
            failure.emplace(*why);
            ended = true;
            return;
        }
    }
}

void CViewer::EndIfSilent(Clock::time_point now) {
    if (options.screenshot.empty() || ended) return;
    for (const auto& pane : panes) {
        const SFeedCounts counts = pane->counts();
        const double slowest = std::max(pane->state().rate.value_or(1), 0.001);
        const auto patience = screenshotPatience + std::chrono::duration<double>(2 / slowest);
        if (counts.shown >= options.after || pane->SinceShown(now) < patience) continue;
        failure.emplace(EExit::TooFewFrames, "camera " + pane->camera() + " has sent " +
                                                 std::to_string(counts.received.frames) + " of " +
                                                 std::to_string(options.after) +
                                                 " frames: no screenshot; 'qmxhost doctor " +
                                                 pane->camera() + "' looks for the reason");
        ended = true;
        return;
    }
}

/// Stops all cameras at the same time, and prints what became of their frames.
void CViewer::Stop() {
    screen.Hide();
    for (const auto& pane : panes) pane->BeginStop();
    const Clock::time_point begun = Clock::now();
    for (const auto& pane : panes) {
        while (!pane->stopped() && Clock::now() - begun < stopPatience) signal.Wait(eventPeriod);
        if (!pane->stopped()) {
            std::fprintf(stderr, "qmxview: waiting for camera %s, which does not respond\n",
                         pane->camera().c_str());
        }
        const std::string recording = pane->EndStop();
        if (!recording.empty()) std::fprintf(stderr, "qmxview: %s\n", recording.c_str());
        const SFeedCounts counts = pane->counts();
        if (const std::string reason = pane->LossText(); !reason.empty()) {
            std::fprintf(stderr, "qmxview: about %llu frames of camera %s are missing: %s\n",
                         static_cast<unsigned long long>(counts.received.missing),
                         pane->camera().c_str(), reason.c_str());
        }
        std::printf(
            "camera %s: %llu frames received, %llu shown, %llu not shown, median age %.1f ms, "
            "longest callback %.2f ms\n",
            pane->camera().c_str(), static_cast<unsigned long long>(counts.received.frames),
            static_cast<unsigned long long>(counts.shown),
            static_cast<unsigned long long>(counts.notShown), pane->MedianAgeMs(),
            frames::Milliseconds(counts.longestCallback));
    }
}

}  // namespace qmxview
