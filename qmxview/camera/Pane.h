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
#include "LossAdvice.h"
#include "PaneModel.h"
#include "Recorder.h"

namespace qmxview {

/// Rates of a pane, measured over about a second.
struct SPaneRates {
    double framesPerSecond = 0;
    double megabitsPerSecond = 0;
    double shownPerSecond = 0;
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
    /// Takes in what the system counts for all panes, about once a second.
    void WatchLoss(hostkit::SLoss system);
    /// Carries out a command of this pane. Returns false for those of the whole window.
    bool Do(ECommand command);
    void StartRecording();
    void StopRecording();
    /// Makes the camera stop. The destructor waits for it; this does not.
    void BeginStop() { session->Stop(); }
    [[nodiscard]] bool stopped() const { return session->ended(); }
    /// Waits until the camera has stopped, and closes the recording. Returns how the recording has
    /// ended; empty if there was none.
    [[nodiscard]] std::string EndStop();
    /// Returns true if a recording has failed.
    [[nodiscard]] bool recordingFailed() const noexcept { return hasRecordingFailed; }

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
    /// Returns how the recording goes, or the last message.
    [[nodiscard]] std::string MessageText() const;
    /// Returns why the camera, or the last thing that was asked for, has failed; empty if it has
    /// not.
    [[nodiscard]] std::string ErrorText() const;
    /// Returns why frames are missing and what to do; empty if none is missing.
    [[nodiscard]] std::string LossText() const;
    /// Returns where frames were lost, in few words; empty if none is missing.
    [[nodiscard]] std::string LossPlace() const;
    [[nodiscard]] SPaneRates rates() const noexcept { return measured; }
    [[nodiscard]] double MedianAgeMs() const;
    /// Returns the longest time between two frames, or since the last one if that is longer.
    [[nodiscard]] frames::Clock::duration LongestGap(frames::Clock::time_point now) const;
    /// Returns the time since the last picture was shown, or since the beginning.
    [[nodiscard]] frames::Clock::duration SinceShown(frames::Clock::time_point now) const {
        return now - lastShown.value_or(begun);
    }
    [[nodiscard]] SFeedCounts counts() const { return feed.Counts(); }
    [[nodiscard]] const SCameraState& state() const noexcept { return cameraState; }
    [[nodiscard]] const std::string& camera() const noexcept { return name; }
    /// Returns a file name for something of this pane, with camera and time, in the current folder.
    [[nodiscard]] std::string FileStem() const;

    void Request(const SessionCommand& command) { session->Request(command); }
    /// Shows a message until the next one, such as the result of a snapshot.
    void SetMessage(std::string text) { message = std::move(text); }
    /// Shows an error until the next command.
    void SetError(std::string text) { error = std::move(text); }

    CPaneModel model;

   private:
    void FinishRecording();
    void UpdateRates(frames::Clock::time_point now);
    void ExplainSilence(frames::Clock::time_point now);
    [[nodiscard]] frames::Clock::time_point LastFrame() const;

    const std::string name;
    std::unique_ptr<CRecorder> recorder;  // before the session, whose frames go to it
    CFrameFeed feed;
    std::unique_ptr<CCameraSession> session;
    SCameraState cameraState;
    bool controlLost = false;  // the camera has closed its control connection
    hostkit::CLossWatch lossWatch;
    hostkit::SSilence silence;
    std::string silenceText;  // why frames no longer come; empty while they do
    std::optional<std::uint64_t> readBeforeSilence;  // datagrams, of all programs
    std::uint64_t framesBeforeSilence = 0;
    bool hasRecordingFailed = false;
    std::string message;
    std::string error;
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
