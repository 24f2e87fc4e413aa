#include "Pane.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <thread>
#include <utility>

#include "NetworkState.h"
#include "Path.h"
#include "StreamMeter.h"
#include "Streaming.h"

namespace qmxview {
namespace {

using namespace std::chrono_literals;
using frames::Clock;

/// Silence after which the picture counts as one of the past, at least.
constexpr auto longestSilence = 3s;
/// A slow camera is silent for longer: this many of its frame times.
constexpr double silentFrameTimes = 3;
constexpr auto ratePeriod = 1s;
constexpr std::uint16_t rtspPort = 554;
/// Number of pictures whose ages count for the median.
constexpr std::size_t ageCount = 300;
/// Screen pixels by which an arrow key moves the picture.
constexpr double panStep = 40;

/// Returns the name with all characters replaced that some system does not allow in a file name.
std::string FileNamePart(std::string text) {
    std::ranges::replace_if(
        text, [](unsigned char letter) { return letter < 0x80 && std::isalnum(letter) == 0; }, '-');
    return text;
}

}  // namespace

CPane::CPane(hostkit::CPluginHost& host, SCameraRequest request, SPaneSettings settings,
             const std::optional<SValueScale>& scale, CSignal& screen)
    : model(std::move(settings), scale),
      name(request.camera),
      feed(screen),
      session(std::make_unique<CCameraSession>(host, std::move(request), feed)),
      begun(Clock::now()),
      ratesAt(begun) {}

bool CPane::Refresh(Clock::time_point now) {
    const EPhase before = cameraState.phase;
    cameraState = session->State();
    if (before != EPhase::Streaming && cameraState.phase == EPhase::Streaming) {
        begun = now;
        controlLost = false;  // a new connection
    }
    UpdateRates(now);
    if (recorder != nullptr && !feed.Records()) StopRecording();  // the format has changed
    if (recorder != nullptr && recorder->State().finished) FinishRecording();
    if (isFrozen) return false;
    const SViewFrame* const newest = feed.Fetch();
    if (newest == nullptr) return false;
    const double seconds = lastShown ? frames::Seconds(now - *lastShown) : 0;
    lastShown = now;
    toPresent = newest->received;
    model.Show(*newest, seconds);
    return true;
}

void CPane::Presented(Clock::time_point now) {
    if (!toPresent) return;
    const double age = frames::Milliseconds(now - *toPresent);
    toPresent.reset();
    if (ages.size() < ageCount) {
        ages.push_back(age);
    } else {
        ages[nextAge++ % ageCount] = age;
    }
}

void CPane::UpdateRates(Clock::time_point now) {
    if (now - ratesAt < ratePeriod) return;
    const SFeedCounts counts = feed.Counts();
    const auto rates = frames::RatesBetween(ratesFrom.received, counts.received, now - ratesAt);
    const auto shown = static_cast<double>(counts.shown - ratesFrom.shown);
    measured = {rates.framesPerSecond, rates.megabitsPerSecond,
                shown / frames::Seconds(now - ratesAt)};
    const bool connected =
        cameraState.phase == EPhase::Streaming || cameraState.phase == EPhase::Paused;
    controlLost = connected && !cameraState.busy &&
                  platform::IsConnectedTo(cameraState.address, rtspPort) == false;
    ratesFrom = counts;
    ratesAt = now;
    ExplainSilence(now);
}

void CPane::ExplainSilence(Clock::time_point now) {
    const std::uint64_t frames = ratesFrom.received.frames;
    const auto read = platform::UdpCounters().received;
    const bool silent = cameraState.phase == EPhase::Streaming && stale(now);
    if (!silent || frames != framesBeforeSilence) {
        framesBeforeSilence = frames;
        readBeforeSilence = read;
        silenceText.clear();
        return;
    }
    if (silenceText.empty()) silence.unread = hostkit::DatagramsStayUnread();
    silence.controlLost = controlLost;
    silence.anyFrame = frames != 0;
    if (read && readBeforeSilence) silence.datagrams = *read - *readBeforeSilence;
    silenceText = "no frames: " + hostkit::SilenceReason(silence, name);
}

void CPane::WatchLoss(hostkit::SLoss system) {
    system.missing = feed.Counts().received.missing;
    lossWatch.Add(system);
}

std::string CPane::LossText() const {
    const hostkit::SLoss& loss = lossWatch.latest();
    return loss.missing == 0 ? "" : hostkit::LossReason(loss, name);
}

std::string CPane::LossPlace() const {
    const hostkit::SLoss& loss = lossWatch.latest();
    return loss.missing == 0 ? "" : hostkit::LossPlace(loss);
}

double CPane::MedianAgeMs() const {
    if (ages.empty()) return 0;
    std::vector<double> sorted = ages;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::ranges::nth_element(sorted, middle);
    return *middle;
}

Clock::duration CPane::LongestGap(Clock::time_point now) const {
    const frames::SFrameTotals totals = feed.Counts().received;
    const bool waits = totals.frames != 0 && cameraState.phase == EPhase::Streaming;
    return waits ? std::max(totals.longestGap, now - LastFrame()) : totals.longestGap;
}

Clock::time_point CPane::LastFrame() const {
    const frames::SFrameTotals totals = feed.Counts().received;
    return totals.frames == 0 ? begun : std::max(begun, totals.last);
}

bool CPane::stale(Clock::time_point now) const {
    if (cameraState.phase == EPhase::Opening || cameraState.phase == EPhase::Failed) return true;
    if (cameraState.phase == EPhase::Paused) return controlLost;
    const double slowest = std::max(cameraState.rate.value_or(1), 0.001);
    const auto frameTimes = std::chrono::duration<double>(silentFrameTimes / slowest);
    return now - LastFrame() >= std::max<std::chrono::duration<double>>(longestSilence, frameTimes);
}

bool CPane::Do(ECommand command) {
    CViewport& view = model.viewport;
    const SRect visible = view.Visible();
    const SPoint middle{visible.x + visible.width / 2.0, visible.y + visible.height / 2.0};
    error.clear();
    switch (command) {
        case ECommand::Freeze:
            isFrozen = !isFrozen;
            break;
        case ECommand::Record:
            recording() ? StopRecording() : StartRecording();
            break;
        case ECommand::AutomaticLevels:
            if (model.settings.automaticLevels) {
                model.LockLevels(model.levels());
            } else {
                model.settings.automaticLevels = true;
                model.SettingsChanged();
            }
            break;
        case ECommand::ZoomIn:
            view.Zoom(1, middle);
            break;
        case ECommand::ZoomOut:
            view.Zoom(-1, middle);
            break;
        case ECommand::Fit:
            view.Fit();
            break;
        case ECommand::OneToOne:
            view.SetScale(1);
            break;
        case ECommand::PanLeft:
            view.Pan(panStep, 0);
            break;
        case ECommand::PanRight:
            view.Pan(-panStep, 0);
            break;
        case ECommand::PanUp:
            view.Pan(0, panStep);
            break;
        case ECommand::PanDown:
            view.Pan(0, -panStep);
            break;
        case ECommand::Rotate:
            view.Rotate();
            break;
        case ECommand::Mirror:
            view.Mirror();
            break;
        case ECommand::Spots:
            model.settings.markSpots = !model.settings.markSpots;
            model.SettingsChanged();
            break;
        case ECommand::Saturation:
            model.settings.markSaturation = !model.settings.markSaturation;
            break;
        case ECommand::Isotherm:
            model.ToggleIsotherm();
            break;
        case ECommand::Reference:
            model.hasReference() ? model.ClearReference() : model.SetReference();
            break;
        case ECommand::PauseCamera:
            Request(SSetPaused{cameraState.phase != EPhase::Paused});
            break;
        case ECommand::Reconnect:
            Request(SReconnect{});
            break;
        default:
            return false;
    }
    return true;
}

void CPane::StartRecording() {
    if (recording() || cameraState.format.width == 0) return;
    const auto& format = cameraState.format;
    try {
        recorder =
            std::make_unique<CRecorder>(platform::PathFromUtf8(FileStem() + ".tif"),
                                        frames::SRecordedStream{cameraState.address, format.width,
                                                                format.height, format.pixelType});
    } catch (const std::exception& failure) {
        return SetError(std::string("cannot record: ") + failure.what());
    }
    feed.RecordTo(recorder.get());
}

void CPane::StopRecording() {
    if (!recording()) return;
    feed.RecordTo(nullptr);
    recorder->Finish();  // `Refresh` comes back when the last frame is written
}

/// Reports the end of a recording whose frames are all written.
void CPane::FinishRecording() {
    feed.RecordTo(nullptr);
    const SRecorderState end = recorder->State();
    message = std::to_string(end.recorded) + (end.recorded == 1 ? " frame" : " frames") +
              " recorded to " + platform::Utf8Text(recorder->file());
    if (end.notKept != 0) message += ", " + std::to_string(end.notKept) + " not kept";
    if (!end.error.empty()) {
        hasRecordingFailed = true;
        message.clear();
        SetError(end.error);
    }
    recorder.reset();
}

std::string CPane::EndStop() {
    session.reset();
    feed.RecordTo(nullptr);
    feed.Drain();
    if (recorder == nullptr) return {};
    recorder->Finish();
    while (!recorder->State().finished) std::this_thread::sleep_for(10ms);
    FinishRecording();
    return error.empty() ? message : error;
}

std::string CPane::HeaderText() const {
    std::string text = camera();
    if (!cameraState.address.empty() && cameraState.address != text) {
        text += "  " + cameraState.address;
    }
    if (cameraState.format.width != 0) text += "  " + hostkit::FormatText(cameraState.format);
    if (model.hasReference()) text += "  minus reference";
    return text;
}

std::string CPane::StateText(Clock::time_point now) const {
    switch (cameraState.phase) {
        case EPhase::Opening:
            return "connecting";
        case EPhase::Failed:
            return "failed; C connects again";
        case EPhase::Paused:
            if (controlLost) break;
            return "the camera is paused; K resumes";
        case EPhase::Streaming:
            break;
    }
    if (cameraState.phase == EPhase::Streaming && stale(now)) {
        const auto seconds = static_cast<long>(frames::Seconds(now - LastFrame()));
        return "no frames for " + std::to_string(seconds) + " s; C connects again";
    }
    if (controlLost) return "the camera has closed the connection; C connects again";
    if (isFrozen) return "frozen; Space resumes";
    if (!cameraState.notice.empty()) return cameraState.notice;
    const SFeedCounts counts = feed.Counts();
    if (counts.received.frames != 0 && counts.undecodable == counts.received.frames) {
        return "the frames contain no picture";
    }
    const std::string uniform = model.UniformText();
    return uniform.empty() && lossWatch.goesOn() ? "frames lost " + LossPlace() : uniform;
}

std::string CPane::RateText() const {
    const SFeedCounts counts = feed.Counts();
    return "received " + std::to_string(counts.received.frames) + "  missing " +
           std::to_string(counts.received.missing) + "  not shown " +
           std::to_string(counts.notShown) + "  " + Fixed(measured.framesPerSecond, 1) +
           " frames/s  " + Fixed(measured.megabitsPerSecond, 1) + " Mbit/s";
}

std::string CPane::MessageText() const {
    if (!recording()) return message;
    const SRecorderState state = recorder->State();
    std::string text = "recording " + std::to_string(state.recorded);
    if (state.notKept != 0) text += ", " + std::to_string(state.notKept) + " not kept";
    return text;
}

std::string CPane::ErrorText() const {
    if (cameraState.phase == EPhase::Failed && cameraState.failure) {
        return cameraState.failure->what();
    }
    return error.empty() ? silenceText : error;
}

std::string CPane::FileStem() const {
    std::string time = frames::UtcText(std::chrono::system_clock::now());
    // 2026-11-24T09:30:00.123456Z -> 20261124-093000-123
    std::erase_if(time, [](char letter) { return letter == '-' || letter == ':'; });
    return FileNamePart(camera()) + "-" + time.substr(0, 8) + "-" + time.substr(9, 6) + "-" +
           time.substr(16, 3);
}

}  // namespace qmxview
