#include "CameraSession.h"

#include <chrono>
#include <exception>
#include <utility>

#include "PixelTypeNames.h"
#include "Streaming.h"

namespace qmxview {
namespace {

using namespace std::chrono_literals;
using hostkit::CFailure;
using hostkit::EExit;
using SFormat = qmx::cam::IDevice::SFormat;

std::optional<double> ReadRate(hostkit::COpenCamera& camera) {
    qmx::CVariant value;
    if (!camera->properties.get("/FrameRate", value)) return std::nullopt;
    return value.ToFlt64();
}

bool ReadPaused(hostkit::COpenCamera& camera) {
    qmx::CVariant value;
    return camera->properties.get("/Paused", value) && value.ToBool();
}

}  // namespace

CCameraSession::CCameraSession(hostkit::CPluginHost& pluginHost, SCameraRequest cameraRequest,
                               CFrameFeed& frameFeed)
    : host(pluginHost), request(std::move(cameraRequest)), feed(frameFeed) {
    thread = std::thread([this] { Run(); });
}

CCameraSession::~CCameraSession() {
    Stop();
    thread.join();
}

void CCameraSession::Request(const SessionCommand& command) {
    Update([&](SCameraState& now) {
        if (!commands.empty() && commands.back().index() == command.index()) {
            commands.back() = command;
        } else {
            commands.push_back(command);
        }
        now.busy = true;
    });
    wake.Notify();
}

void CCameraSession::Stop() {
    stopping = true;
    wake.Notify();
}

SCameraState CCameraSession::State() const {
    const std::lock_guard guard(lock);
    return state;
}

template <class Change>
void CCameraSession::Update(Change change) {
    const std::lock_guard guard(lock);
    change(state);
}

void CCameraSession::Run() {
    Attempt([this] { Connect(); });
    while (!stopping) {
        std::optional<SessionCommand> next;
        Update([&](SCameraState& now) {
            now.busy = !commands.empty();
            if (commands.empty()) return;
            next = commands.front();
            commands.pop_front();
        });
        if (!next) {
            wake.Wait(1s);
            continue;
        }
        Update([](SCameraState& now) { now.notice.clear(); });
        Attempt([&] { std::visit([this](const auto& command) { Do(command); }, *next); });
    }
    Disconnect();
    hasEnded = true;
}

/// Runs a step. If it fails without a stream, the session has failed; otherwise the stream goes on
/// and the failure is only a notice.
template <class Step>
void CCameraSession::Attempt(Step step) {
    const auto fail = [this](const CFailure& failure) {
        const bool streams = device != nullptr && (*device)->IsStreaming();
        Update([&](SCameraState& now) {
            if (streams) {
                now.notice = failure.what();
            } else {
                now.phase = EPhase::Failed;
                now.failure.emplace(failure);
            }
        });
    };
    try {
        step();
    } catch (const CFailure& failure) {
        fail(failure);
    } catch (const std::exception& failure) {
        fail(CFailure(EExit::Failed, "camera " + request.camera + ": " + failure.what()));
    }
}

void CCameraSession::Open() {
    Update([](SCameraState& now) {
        now.phase = EPhase::Opening;
        now.failure.reset();
        ++now.attempts;
    });
    device = std::make_unique<hostkit::COpenCamera>(host, request.camera, request.openFlags);
    const std::vector<SFormat> formats = device->Formats();
    Update([&](SCameraState& now) {
        now.address = device->address();
        now.formats = formats;
    });
}

void CCameraSession::Connect() {
    Open();
    const SFormat wanted = hostkit::ChooseFormat(device->Formats(), request.format, request.camera);
    if (request.rate) SetRate(*request.rate);
    Start(wanted);
}

void CCameraSession::SetRate(double framesPerSecond) {
    hostkit::SetFrameRate(*device, framesPerSecond, (request.openFlags & hostkit::openTree) != 0);
}

/// Releases the device even if the camera does not respond: a new one is needed to stream again.
void CCameraSession::Disconnect() {
    if (device == nullptr) return;
    (void)StopStream();
    device.reset();
    feed.End();
}

void CCameraSession::Start(const SFormat& format) {
    feed.Begin(format);
    hostkit::StartStream(*device, format, CFrameFeed::OnFrame, &feed);
    const std::optional<double> rate = ReadRate(*device);
    request.format = {std::nullopt, hostkit::SSize{format.width, format.height},
                      frames::TypeName(format.pixelType)};
    Update([&](SCameraState& now) {
        now.phase = EPhase::Streaming;
        now.failure.reset();
        now.format = format;
        now.rate = rate;
    });
}

/// Returns false if the stream does not stop in order, because the camera has gone.
bool CCameraSession::StopStream() {
    // A paused stream does not stop until it plays again.
    if (ReadPaused(*device)) {
        qmx::CVariant value;
        value = false;
        (void)(*device)->properties.set("/Paused", value);
    }
    return (*device)->StopContinuous();
}

hostkit::COpenCamera& CCameraSession::Device() {
    if (device != nullptr) return *device;
    throw CFailure(EExit::Failed, "camera " + request.camera + " is not open; C connects it again");
}

void CCameraSession::Do(const SSetFormat& command) {
    const std::vector<SFormat> formats = Device().Formats();
    if (command.index >= formats.size()) return;
    if (!StopStream()) {
        Disconnect();
        Open();
    }
    Start(formats[command.index]);
}

void CCameraSession::Do(const SSetRate& command) {
    hostkit::COpenCamera& camera = Device();
    feed.ExpectPause();  // the stream of a compressed camera restarts
    SetRate(command.framesPerSecond);
    request.rate = command.framesPerSecond;
    const std::optional<double> rate = ReadRate(camera);
    const SFormat format = State().format;
    const std::string note = hostkit::RateDifference(camera, format, command.framesPerSecond);
    Update([&](SCameraState& now) {
        now.rate = rate;
        now.notice = note;
    });
}

void CCameraSession::Do(const SSetPaused& command) {
    hostkit::COpenCamera& camera = Device();
    if (!camera->IsStreaming()) {
        throw CFailure(EExit::Failed,
                       "camera " + request.camera + " does not stream; C connects it again");
    }
    feed.ExpectPause();
    qmx::CVariant value;
    value = command.paused;
    (void)camera->properties.set("/Paused", value);  // true even if the camera refuses
    const bool paused = ReadPaused(camera);
    Update([&](SCameraState& now) {
        now.phase = paused ? EPhase::Paused : EPhase::Streaming;
        if (paused == command.paused) return;
        now.notice = "camera " + request.camera + " refused to " +
                     (command.paused ? "pause" : "continue") + "; C connects it again";
    });
}

void CCameraSession::Do(const SReconnect&) {
    Disconnect();
    Connect();
}

}  // namespace qmxview
