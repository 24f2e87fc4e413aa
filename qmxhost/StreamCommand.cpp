#include "StreamCommand.h"

#include <algorithm>
#include <chrono>

#include "FrameChecker.h"
#include "FrameIntake.h"
#include "NetworkState.h"
#include "PixelTypeNames.h"
#include "Process.h"
#include "StreamReport.h"

namespace qmxhost {
namespace {

using namespace std::chrono_literals;
using SFormat = qmx::cam::IDevice::SFormat;

/// The plug-in gives no sign of a stream's end: frames simply stop.
constexpr std::chrono::seconds longestSilence = 10s;
/// A camera whose control connection is gone has probably ended the stream as well.
constexpr std::chrono::seconds longestSilenceWithoutControl = 1s;
constexpr std::uint16_t rtspPort = 554;
/// A slow camera is silent for longer; this many of its frame times are waited for.
constexpr double silentFrameTimes = 3;
/// A frame rate below this one is taken for it when the silence is reckoned.
constexpr double slowestRate = 0.001;
constexpr auto statusPeriod = 1s;
constexpr auto stopPoll = 50ms;

/// Refuses options that the format does not allow, before the mistake costs a session on the
/// camera.
void RefuseUnsuitable(const SStreamOptions& options, const SFormat& format) {
    const std::string name = frames::TypeName(format.pixelType);
    // A type that can't be checked is one that nobody here can decode.
    if ((options.save.asPng || options.check) &&
        !frames::CFrameChecker::CanCheck(format.pixelType)) {
        throw CFailure(EExit::Usage, "frames of type " + name +
                                         " can't be decoded, as --as png and --check would need; "
                                         "--as native saves them as they come");
    }
    if (!options.save.palette.empty() && format.pixelType == frames::jpegType) {
        throw CFailure(EExit::Usage, "--palette colours raw and jls frames; " + name +
                                         " frames have colours of their own");
    }
}

std::string Frames(std::uint64_t number) {
    return std::to_string(number) + (number == 1 ? " frame" : " frames");
}

/// One run of the command, from the open camera to the summary.
class CStream {
   public:
    CStream(COpenCamera& openCamera, CFrameIntake& frameIntake,
            const SStreamOptions& streamOptions);

    EExit Run();

   private:
    enum class EEnd { Complete, TimeUp, Stopped, Silent, Failed };

    void Start();
    [[nodiscard]] EEnd Watch();
    void HandleOneFrame(std::chrono::milliseconds limit);
    void LookAtControl();
    [[nodiscard]] frames::Clock::duration LongestSilence(const frames::SFrameTotals& totals) const;
    void Stop();
    [[nodiscard]] EExit Conclude(EEnd end);
    void ReportLosses(const SStreamSummary& summary) const;
    /// Runs a step of which a failure must not keep the stream from its orderly end.
    template <class Step>
    void Attempt(Step step);
    [[nodiscard]] std::string Reason(EEnd end, std::uint64_t frames) const;
    [[nodiscard]] std::string FormatText() const;
    [[nodiscard]] std::optional<std::uint64_t> DroppedMeanwhile() const;

    COpenCamera& camera;
    CFrameIntake& intake;
    const SStreamOptions& options;
    const SFormat format;
    std::optional<CFrameSaver> saver;
    frames::CFrameChecker checker;
    CStreamReport report;
    std::optional<std::uint64_t> droppedBefore;  // datagrams, by the whole system
    bool controlWatched = false;                 // the control connection was seen, and is there
    bool controlLost = false;
    std::optional<CFailure> failure;  // the first one since the start
};

CStream::CStream(COpenCamera& openCamera, CFrameIntake& frameIntake,
                 const SStreamOptions& streamOptions)
    : camera(openCamera),
      intake(frameIntake),
      options(streamOptions),
      format(ChooseFormat(camera.Formats(), options.format, camera.address())),
      checker(format.pixelType),
      report(options.json, options.save.target == standardOutput) {
    RefuseUnsuitable(options, format);
    if (!options.save.target.empty()) saver.emplace(options.save, format);
}

std::string CStream::FormatText() const {
    return std::to_string(format.width) + "x" + std::to_string(format.height) + " " +
           frames::TypeName(format.pixelType);
}

void CStream::Start() {
    droppedBefore = platform::DroppedDatagrams();
    // Coded frames are shorter than raw ones of their size.
    intake.Reserve(std::size_t{format.width} * format.height * 2);
    (void)camera->SetFormat(format.width, format.height, format.pixelType);  // always true
    if (options.rate) {
        qmx::CVariant rate;
        rate = *options.rate;
        if (!camera->properties.set("/FrameRate", rate)) {
            throw CFailure(EExit::Failed, "can't set the frame rate of camera " + camera.address() +
                                              "; a raw camera takes it through its node tree (TCP "
                                              "port 4554), which must be open and allow it");
        }
    }
    if (!camera->StartContinuous(CFrameIntake::OnFrame, &intake)) {
        throw CFailure(EExit::Failed, "can't start " + FormatText() + " on camera " +
                                          camera.address() +
                                          ": the line above says at which step; a camera serves "
                                          "one stream at a time: is another program using it?");
    }
}

/// Checks and saves the next frame, if one comes within the limit.
void CStream::HandleOneFrame(std::chrono::milliseconds limit) {
    const frames::SFrame* const frame = intake.queue().Front(limit);
    if (frame == nullptr) return;
    if (options.check) checker.Check(frame->bytes, frame->arrival);
    if (saver) saver->Save(*frame);
    intake.queue().Pop();
}

template <class Step>
void CStream::Attempt(Step step) {
    try {
        step();
    } catch (const CFailure& caught) {
        if (!failure) failure.emplace(caught);
    } catch (const std::exception& caught) {
        if (!failure) {
            failure.emplace(EExit::Failed, std::string("unexpected failure: ") + caught.what());
        }
    }
}

/// Reports once that the camera has closed the control connection. The plug-in does not read that
/// connection while it streams, and frames may still come.
void CStream::LookAtControl() {
    if (!controlWatched || platform::IsConnectedTo(camera.address(), rtspPort) != false) return;
    controlWatched = false;
    controlLost = true;
    report.EndStatusLine();
    PrintError("camera " + camera.address() +
               " has closed its control connection (TCP port 554): it has restarted, or has ended "
               "the session");
}

frames::Clock::duration CStream::LongestSilence(const frames::SFrameTotals& totals) const {
    if (controlLost && totals.frames > 1) {
        return std::max<frames::Clock::duration>(longestSilenceWithoutControl,
                                                 2 * totals.longestGap);
    }
    const double slowest = std::max(options.rate.value_or(1), slowestRate);
    const std::chrono::duration<double> frameTimes(silentFrameTimes / slowest);
    return std::max<frames::Clock::duration>(
        longestSilence, std::chrono::duration_cast<frames::Clock::duration>(frameTimes));
}

/// Runs on the main thread until something ends the stream, at most one poll late.
CStream::EEnd CStream::Watch() {
    const frames::Clock::time_point started = frames::Clock::now();
    report.Begin(started);
    controlWatched = platform::IsConnectedTo(camera.address(), rtspPort) == true;
    frames::Clock::time_point nextStatus = started + statusPeriod;
    for (;;) {
        HandleOneFrame(stopPoll);
        if (platform::StopRequested()) return EEnd::Stopped;
        const frames::SFrameTotals totals = intake.Totals();
        const frames::Clock::time_point now = frames::Clock::now();
        if (now >= nextStatus) {
            report.Status(totals, now);
            LookAtControl();
            while (nextStatus <= now) nextStatus += statusPeriod;
        }
        if (options.count != 0 && totals.frames >= options.count) return EEnd::Complete;
        if (options.duration > 0 && frames::Seconds(now - started) >= options.duration)
            return EEnd::TimeUp;
        if (now - std::max(started, totals.last) >= LongestSilence(totals)) return EEnd::Silent;
    }
}

void CStream::Stop() {
    report.EndStatusLine();
    LookAtControl();
    if (!camera->StopContinuous()) {
        PrintError("camera " + camera.address() +
                   " was no longer streaming at the stop; the connection is closed");
    }
    // Nothing is added any more; what the queue still holds belongs to the result.
    Attempt([this] {
        for (std::size_t i = 0; i < frames::CFrameQueue::slots && !failure; ++i)
            HandleOneFrame(0ms);
    });
}

std::optional<std::uint64_t> CStream::DroppedMeanwhile() const {
    const auto dropped = platform::DroppedDatagrams();
    if (!dropped || !droppedBefore) return std::nullopt;
    return *dropped - *droppedBefore;
}

/// Reports how it went. A failure counts more than damage, and damage more than a number of frames
/// that wasn't reached.
EExit CStream::Conclude(EEnd end) {
    const frames::SFrameTotals totals = intake.Totals();
    SStreamSummary summary{camera.address(),    FormatText(),      totals, {}, {},
                           options.save.target, DroppedMeanwhile()};
    if (options.check) summary.check = checker.totals();
    if (saver) summary.saved = saver->totals();
    Attempt([&] { report.Summary(summary); });
    ReportLosses(summary);
    if (failure) {
        PrintError(failure->what());
        return failure->status;
    }
    if (options.check && checker.totals().damaged != 0) return EExit::Damage;
    const bool tooFew = options.count != 0 && totals.frames < options.count;
    const bool none = totals.frames == 0 && end != EEnd::Stopped;
    if (tooFew || none || end == EEnd::Silent) {
        PrintError("the stream of camera " + camera.address() + " ended after " +
                   std::to_string(totals.frames) +
                   (options.count != 0 ? " of " + std::to_string(options.count) : "") +
                   " frames: " + Reason(end, totals.frames + totals.skipped));
        return EExit::TooFewFrames;
    }
    // Somebody who wanted pictures has none.
    const bool noPicture = summary.saved && totals.frames != 0 && summary.saved->saved == 0 &&
                           summary.saved->undecodable + summary.saved->empty != 0;
    return noPicture ? EExit::Failed : EExit::Done;
}

/// Names the frames that are missing from the result, and what to do about it.
void CStream::ReportLosses(const SStreamSummary& summary) const {
    const std::string from = " of camera " + camera.address() + " ";
    if (summary.droppedDatagrams.value_or(0) != 0) {
        PrintError("this system dropped datagrams while camera " + camera.address() +
                   " streamed, of any program's, because the receiver's buffer was full: " +
                   platform::ReceiveBufferAdvice());
    }
    if (const std::uint64_t notKept = summary.totals.notKept; notKept != 0) {
        PrintError(Frames(notKept) + from +
                   "came faster than they could be checked or saved; --rate asks for fewer");
    }
    if (summary.saved && summary.saved->undecodable != 0) {
        PrintError(
            Frames(summary.saved->undecodable) + from +
            "could not be decoded and saved as a picture; --as native saves frames as they came");
    }
    if (summary.saved && summary.saved->empty != 0) {
        PrintError(Frames(summary.saved->empty) + from +
                   "came without a single byte, so that there was no picture to save; another size "
                   "may do better: 'qmxhost formats " +
                   camera.address() + "'");
    }
    if (summary.check && summary.check->damaged != 0) {
        PrintError(
            "--check found " + std::to_string(summary.check->damaged) +
            " damaged frames from camera " + camera.address() +
            "; does it come from korusim? Other cameras put no checksum into their pictures, nor "
            "does korusim into JPEG pictures too small for it (160x64 has room)");
    }
}

/// Returns why a stream ended early. Frames that never came at all point elsewhere than lost ones.
std::string CStream::Reason(EEnd end, std::uint64_t frames) const {
    if (end == EEnd::Stopped) return "it was interrupted";
    if (controlLost) return "the camera closed its control connection; start the stream again";
    if (end == EEnd::TimeUp && frames != 0) return "the time was up; --rate asks for more a second";
    return std::string(frames == 0 ? "no frame came" : "no frame came any more") +
           "; does a firewall stop UDP from the camera, is packet loss high? Incomplete frames are "
           "not delivered";
}

EExit CStream::Run() {
    Start();
    EEnd end = EEnd::Failed;
    Attempt([&] { end = Watch(); });
    Stop();
    return Conclude(end);
}

}  // namespace

EExit RunStream(CPluginHost& host, const SStreamOptions& options) {
    platform::WatchStopSignals();
    platform::PrepareByteOutput();
    // Made first and ended last: until the device is gone its thread may still call into it.
    CFrameIntake intake(options.skip, options.count, options.check || !options.save.target.empty());
    COpenCamera camera(host, options.camera.nameOrAddress, OpenFlags(options.camera));
    return CStream(camera, intake, options).Run();
}

}  // namespace qmxhost
