#include "StreamCommand.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "FrameChecker.h"
#include "FrameIntake.h"
#include "NetworkState.h"
#include "Path.h"
#include "PixelTypeNames.h"
#include "Process.h"
#include "StreamAdvice.h"
#include "StreamMeter.h"
#include "StreamReport.h"
#include "Streaming.h"

namespace qmxhost {
namespace {

using namespace std::chrono_literals;
using SFormat = qmx::cam::IDevice::SFormat;

/// Silence that ends the command: the plug-in does not report the end of a stream.
constexpr std::chrono::seconds longestSilence = 10s;
/// The same once it is known that the stream or the reception has ended.
constexpr std::chrono::seconds longestSilenceAfterTheEnd = 1s;
/// Silence that is reported, before the second frame and after it, and in frame times.
constexpr std::chrono::seconds reportedSilenceAtStart = 3s;
constexpr std::chrono::seconds reportedSilence = 1s;
constexpr int reportedFrameTimes = 5;
/// The frame rate of a camera that promises none, until frames show it.
constexpr double slowestReportedRate = 2;
/// A slow camera is silent for longer: this many of its frame times are allowed.
constexpr double silentFrameTimes = 3;
/// Lowest frame rate that the calculation of the silence uses.
constexpr double slowestRate = 0.001;
constexpr auto statusPeriod = 1s;
constexpr auto stopPoll = 50ms;

/// Refuses options that the format does not allow, before the mistake costs a session on the
/// camera.
void RefuseUnsuitable(const SStreamOptions& options, const SFormat& format) {
    const std::string name = frames::TypeName(format.pixelType);
    // A type that cannot be checked is one that cannot be decoded here.
    const bool decodes = options.save.as != ESaveAs::Native || options.check;
    if (decodes && !frames::CFrameChecker::CanCheck(format.pixelType)) {
        throw CFailure(EExit::Usage,
                       "frames of type " + name +
                           " cannot be decoded, which --as png, --as tiff and --check "
                           "need; use --as native to save them unchanged");
    }
    if (!options.save.palette.empty() && format.pixelType == frames::jpegType) {
        throw CFailure(EExit::Usage, "--palette applies to raw and jls frames; " + name +
                                         " frames are already coloured");
    }
}

/// One run of the command, from opening the camera to the summary.
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
    [[nodiscard]] frames::Clock::duration LimitOfSilence(const frames::SFrameTotals& totals) const;
    void LookAtSilence(const frames::SFrameTotals& totals, frames::Clock::duration silence);
    [[nodiscard]] frames::Clock::duration LongestSilence(const frames::SFrameTotals& totals) const;
    void Stop();
    [[nodiscard]] EExit Conclude(EEnd end);
    /// Runs a step whose failure must not prevent the stream from ending in order.
    template <class Step>
    void Attempt(Step step);
    [[nodiscard]] std::string Reason(EEnd end, std::uint64_t frames) const;
    [[nodiscard]] std::string ReasonOfSilence(std::uint64_t frames) const;
    [[nodiscard]] std::optional<std::uint64_t> DroppedMeanwhile() const;

    COpenCamera& camera;
    CFrameIntake& intake;
    const SStreamOptions& options;
    const SFormat format;
    std::optional<CFrameSaver> saver;
    frames::CFrameChecker checker;
    CStreamReport report;
    std::optional<double> promisedRate;
    platform::SUdpCounters udpBefore;                // at the start
    std::optional<std::uint64_t> readBeforeSilence;  // datagrams, when the latest frame was seen
    platform::SReceiveBuffers buffers;               // at the end of the stream
    CStallWatch stalls;
    frames::Clock::time_point begun;  // the watch
    frames::Clock::time_point ended;  // likewise
    bool controlWatched = false;      // the control connection has been seen
    bool controlLost = false;
    bool receptionEnded = false;
    bool silenceReported = false;
    std::uint64_t framesSeen = 0;
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
    if (!options.save.target.empty()) saver.emplace(options.save, format, camera.address());
}

void CStream::Start() {
    udpBefore = platform::UdpCounters();
    readBeforeSilence = udpBefore.received;
    // Coded frames are shorter than raw frames of the same size.
    intake.Reserve(std::size_t{format.width} * format.height * 2);
    (void)camera->SetFormat(format.width, format.height, format.pixelType);  // always true
    if (options.rate) SetFrameRate(camera, *options.rate, !options.camera.noTree);
    promisedRate = PromisedRate(camera, format);
    const auto note = options.rate ? RateDifference(camera, format, *options.rate) : "";
    if (!note.empty()) PrintError(note);
    StartStream(camera, format, CFrameIntake::OnFrame, &intake);
}

/// Checks and saves the next frame, if one comes within the limit.
void CStream::HandleOneFrame(std::chrono::milliseconds limit) {
    stalls.BeginWait(limit);
    const frames::SFrame* const frame = intake.queue().Front(limit);
    stalls.EndWait();
    if (frame == nullptr) return;
    if (options.check) checker.Check(frame->bytes, frame->arrival.number);
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

/// Reports once that the camera has closed the control connection. The plug-in does not read it
/// while it streams, and frames may still arrive.
void CStream::LookAtControl() {
    if (!controlWatched || platform::IsConnectedTo(camera.address(), rtspPort) != false) return;
    controlWatched = false;
    controlLost = true;
    report.EndStatusLine();
    PrintError("camera " + camera.address() +
               " has closed its control connection (TCP port 554): it has restarted, or has ended "
               "the session");
}

/// Returns the silence that is reported: some frame times, as far as they are known.
frames::Clock::duration CStream::LimitOfSilence(const frames::SFrameTotals& totals) const {
    const std::chrono::duration<double> promised(1 / promisedRate.value_or(slowestReportedRate));
    const bool fewFrames = totals.frames < 2;
    const auto frameTime =
        totals.frameTime > frames::Clock::duration::zero()
            ? totals.frameTime
            : std::max(totals.longestGap,
                       std::chrono::duration_cast<frames::Clock::duration>(promised));
    return std::max<frames::Clock::duration>(fewFrames ? reportedSilenceAtStart : reportedSilence,
                                             reportedFrameTimes * frameTime);
}

/// Reports a silence once, while it lasts.
void CStream::LookAtSilence(const frames::SFrameTotals& totals, frames::Clock::duration silence) {
    const std::uint64_t number = totals.frames + totals.skipped;
    if (framesSeen != number) {
        framesSeen = number;
        silenceReported = false;
        readBeforeSilence = platform::UdpCounters().received;
    }
    const auto limit = LimitOfSilence(totals);
    if (silenceReported || silence < limit) return;
    silenceReported = true;
    LookAtControl();
    receptionEnded = DatagramsStayUnread();
    if (controlLost) return;  // which has been reported
    report.EndStatusLine();
    PrintError(
        "no frame from camera " + camera.address() + " for " +
        std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(silence).count()) +
        " ms: " + ReasonOfSilence(number));
}

frames::Clock::duration CStream::LongestSilence(const frames::SFrameTotals& totals) const {
    if ((controlLost || receptionEnded) && totals.frames > 1) {
        return std::max<frames::Clock::duration>(longestSilenceAfterTheEnd, 2 * totals.longestGap);
    }
    const double slowest = std::max(options.rate.value_or(1), slowestRate);
    const std::chrono::duration<double> frameTimes(silentFrameTimes / slowest);
    return std::max<frames::Clock::duration>(
        longestSilence, std::chrono::duration_cast<frames::Clock::duration>(frameTimes));
}

/// Runs on the main thread until the stream ends.
CStream::EEnd CStream::Watch() {
    const frames::Clock::time_point started = frames::Clock::now();
    begun = ended = started;
    report.Begin(started);
    controlWatched = platform::IsConnectedTo(camera.address(), rtspPort) == true;
    frames::Clock::time_point nextStatus = started + statusPeriod;
    for (;;) {
        HandleOneFrame(stopPoll);
        if (platform::StopRequested()) return EEnd::Stopped;
        const frames::SFrameTotals totals = intake.Totals();
        const frames::Clock::time_point now = frames::Clock::now();
        ended = now;
        LookAtSilence(totals, now - std::max(started, totals.last));
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
    buffers = platform::ReceiveBuffers();
    if (!camera->StopContinuous()) {
        PrintError("camera " + camera.address() +
                   " was no longer streaming at the stop; the connection is closed");
    }
    // No frames are added any more; those in the queue belong to the result.
    Attempt([this] {
        for (std::size_t i = 0; i < frames::CFrameQueue::slots && !failure; ++i)
            HandleOneFrame(0ms);
    });
}

std::optional<std::uint64_t> CStream::DroppedMeanwhile() const {
    const auto dropped = platform::UdpCounters().dropped;
    if (!dropped || !udpBefore.dropped) return std::nullopt;
    return *dropped - *udpBefore.dropped;
}

/// Prints the result and returns the exit status. A failure takes precedence over damaged frames,
/// and those over a number of frames that was not reached.
EExit CStream::Conclude(EEnd end) {
    // At the end of a complete stream no further frame was waited for.
    frames::SFrameTotals totals = end == EEnd::Complete ? intake.Totals() : intake.TotalsAt(ended);
    SStreamSummary summary;
    // A silence is reported as such, not as missing frames.
    if (end != EEnd::Silent) {
        // A few frames that were asked for may come sooner than the stream takes to start.
        const double time = end == EEnd::Complete ? frames::Seconds(totals.last - totals.first) +
                                                        1 / promisedRate.value_or(1)
                                                  : frames::Seconds(ended - begun);
        const std::uint64_t missing = MissingFrames(totals, promisedRate, time);
        summary.missingByPromise = missing != std::exchange(totals.missing, missing);
    }
    summary.camera = camera.address();
    summary.format = FormatText(format);
    summary.totals = totals;
    summary.savedTo = platform::Utf8Text(options.save.target);
    summary.loss = {totals.missing, DroppedMeanwhile(), buffers, stalls.LongestStall()};
    summary.promisedRate = promisedRate;
    if (options.check) summary.check = checker.totals();
    if (saver) summary.saved = saver->totals();
    Attempt([&] { report.Summary(summary); });
    for (const std::string& message : LossMessages(summary)) PrintError(message);
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
    if (options.strict && totals.missing != 0) {
        PrintError("--strict: the stream of camera " + camera.address() + " has frames missing");
        return EExit::TooFewFrames;
    }
    // The user asked for pictures and has none.
    const bool noPicture = summary.saved && totals.frames != 0 && summary.saved->saved == 0 &&
                           summary.saved->undecodable + summary.saved->empty != 0;
    return noPicture ? EExit::Failed : EExit::Done;
}

std::string CStream::ReasonOfSilence(std::uint64_t frames) const {
    SSilence silence{controlLost, receptionEnded, frames != 0, {}};
    const auto read = platform::UdpCounters().received;
    if (read && readBeforeSilence) silence.datagrams = *read - *readBeforeSilence;
    return SilenceReason(silence, camera.address());
}

/// Returns why a stream ended early.
std::string CStream::Reason(EEnd end, std::uint64_t frames) const {
    if (end == EEnd::Stopped) return "it was interrupted";
    if (end == EEnd::TimeUp && frames != 0)
        return "the time was up; request more frames per second with --rate";
    return std::string(frames == 0 ? "no frame came: " : "no more frames came: ") +
           ReasonOfSilence(frames);
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
    // Constructed first and destroyed last, because the thread of the device may call it until the
    // device is gone.
    CFrameIntake intake(options.skip, options.count, options.check || !options.save.target.empty());
    COpenCamera camera(host, options.camera.nameOrAddress, OpenFlags(options.camera));
    return CStream(camera, intake, options).Run();
}

}  // namespace qmxhost
