/// One camera in the window: its session, its frames, what it shows, and its recording.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CameraSession.h"
#include "FrameFeed.h"
#include "KeyCommands.h"
#include "PaneModel.h"
#include "Recorder.h"

namespace qmxview {

/// Rates of a pane, measured over about a second.
struct SPaneRates {
    double framesPerSecond = 0;
    double megabitsPerSecond = 0;
    double shownPerSecond = 0;
    double medianAgeMs = 0;  ///< from the callback to the screen; 0 before the first picture
};

/// Used by the screen's thread.
class CPane {
   public:
    CPane(hostkit::CPluginHost& host, SCameraRequest request, SPaneSettings settings,
          const std::optional<SValueScale>& scale, CSignal& screen);

    /// Fetches the newest picture. Returns true if the pane has to be painted again.
    [[nodiscard]] bool Refresh(frames::Clock::time_point now);
    /// Call it when the last picture has reached the screen.
    void Presented(frames::Clock::time_point now);
    /// Carries out a command of this pane. Returns false for those of the whole window.
    bool Do(ECommand command);
    void StartRecording();
    void StopRecording();
    /// Makes the camera stop. The destructor waits for it; this does not.
    void BeginStop() { session->Stop(); }
    /// Waits until the camera has stopped, and closes the recording.
    void EndStop();

    [[nodiscard]] bool frozen() const noexcept { return isFrozen; }
    /// Returns true if the picture is one of the past: no frames, although the camera should send.
    [[nodiscard]] bool stale(frames::Clock::time_point now) const;
    [[nodiscard]] bool recording() const noexcept { return recorder != nullptr; }

    /// Returns camera and format.
    [[nodiscard]] std::string HeaderText() const;
    /// Returns what is unusual, such as "no frames for 3 s"; empty if all is well.
    [[nodiscard]] std::string StateText(frames::Clock::time_point now) const;
    /// Returns rates and counts, for the footer.
    [[nodiscard]] std::string RateText() const;
    /// Returns how the recording goes; empty if there was none.
    [[nodiscard]] std::string RecordingText() const;
    [[nodiscard]] SPaneRates rates() const noexcept { return measured; }
    [[nodiscard]] SFeedCounts counts() const { return feed.Counts(); }
    [[nodiscard]] const SCameraState& state() const noexcept { return cameraState; }
    [[nodiscard]] const std::string& camera() const noexcept { return name; }
    /// Returns a file name for something of this pane, with camera and time, in the current folder.
    [[nodiscard]] std::string FileStem() const;

    void Request(const SessionCommand& command) { session->Request(command); }
    /// Shows a message until the next one, such as the result of a snapshot.
    void SetMessage(std::string text) { message = std::move(text); }

    CPaneModel model;

   private:
    void UpdateRates(frames::Clock::time_point now);
    [[nodiscard]] frames::Clock::time_point LastFrame() const;

    const std::string name;
    CFrameFeed feed;
    std::unique_ptr<CCameraSession> session;
    SCameraState cameraState;
    std::unique_ptr<CRecorder> recorder;
    std::string recordingResult;
    std::string message;
    bool isFrozen = false;
    frames::Clock::time_point begun;  // of waiting for frames
    std::optional<frames::Clock::time_point> lastShown;
    std::optional<frames::Clock::time_point> toPresent;  // when the picture to present was received
    SPaneRates measured;
    SFeedCounts ratesFrom;
    frames::Clock::time_point ratesAt;
    std::vector<double> ages;  // ms, of the last pictures
    std::size_t nextAge = 0;
};

}  // namespace qmxview
