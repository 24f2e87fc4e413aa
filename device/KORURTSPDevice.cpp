#include "KORURTSPDevice.h"

#include <new>
#include <utility>

#include "Arbor.h"
#include "CameraDiscovery.h"

namespace qmx::cam {
namespace {

constexpr std::uint32_t openNodeTree = 1;
constexpr std::uint32_t openStreams = 2;

}  // namespace

/// One way in which a start fails: the line that it leaves in the log, which is written before
/// anything is undone, and what is undone.
struct priv::SStartFailure {
    enum class EUndo { Nothing, ResetReceiver, StopReceiver, ResetReceiverAndTeardown };

    const char* line;
    EUndo undo;
};

namespace {

using priv::SStartFailure;
using enum SStartFailure::EUndo;

constexpr SStartFailure noFormat = {
    "CKORURTSPDevice::StartContinuous: Failed to find a suitable format.", Nothing};
constexpr SStartFailure noSockets = {"CKORURTSPDevice::StartContinuous: Local RTP setup failed.",
                                     Nothing};
constexpr SStartFailure noSession = {"CKORURTSPDevice::StartContinuous: RTSP session setup failed.",
                                     ResetReceiver};
// From here on there is a session. It stays after these two failures, until a `Close` ends it.
constexpr SStartFailure noServerAddress = {
    "CKORURTSPDevice::StartContinuous: Server RTP setup failed.", ResetReceiver};
constexpr SStartFailure notPlayed = {
    "CKORURTSPDevice::StartContinuous: Failed to play RTSP session.", StopReceiver};
constexpr SStartFailure notStarted = {
    "CKORURTSPDevice::StartContinuous: Failed to start RTP reciever.", ResetReceiverAndTeardown};

}  // namespace

CKORURTSPDevice::CKORURTSPDevice() {
    deviceName = "KORURTSP";
    deviceAlias = deviceName;
    RegisterProperties();
    priv::RegisterPixelTypes();
}

CKORURTSPDevice::~CKORURTSPDevice() {
    try {
        CKORURTSPDevice::Close();
    } catch (...) {
        // The host has released the device within the callback, or there is no memory for a
        // request. The destructors of receiver and client do the rest.
        if (connection != 0) arbDestroy(connection);
    }
}

void CKORURTSPDevice::Close() {
    StopContinuous();
    rtsp.Close();
    receiverIsLeftOver = receiver.IsRunning();
    if (connection != 0) arbDestroy(connection);
    connection = 0;
    address.clear();
    connected = false;
    opened = false;
}

// --- Opening -------------------------------------------------------------------------------------

bool CKORURTSPDevice::Open(SDeviceInfo info, std::uint32_t flags) {
    if (address.empty()) address = info.parameters["IP"].value().ToString();
    if ((flags & openNodeTree) != 0 && !ConnectNodeTree(info)) return false;
    if ((flags & openStreams) != 0) return ConnectStreams();
    return true;
}

bool CKORURTSPDevice::ConnectNodeTree(SDeviceInfo& info) {
    const CEntry& name = info.parameters["Name"];
    if (name.entryFlag != 0) ResolveAddressByName(name.value().ToString());
    ArbHandle made = 0;
    if (arbConnect(&made, address.c_str(), 0) != 0) {
        logger().WriteLine("CKORURTSPDevice::Open: arbConnect(%s) failed.", address.c_str());
        return false;
    }
    // A second opening must not leak the connection of the first.
    if (connection != 0) arbDestroy(connection);
    connection = made;
    connected = true;
    return true;
}

/// Uses the last of several cameras of that name; without one the address stays.
void CKORURTSPDevice::ResolveAddressByName(const CString& name) {
    TArray<priv::SCaptureDevice> found;
    if (!priv::FindCaptureDevices(found, false)) return;
    for (const priv::SCaptureDevice& camera : found) {
        if (camera.name.compare(name) == 0) address = priv::AddressText(camera.address);
    }
}

bool CKORURTSPDevice::ConnectStreams() {
    if (!rtsp.Connect(address.c_str(), rtspPort)) {
        logger().WriteLine("CKORURTSPDevice::Open: Failed to connect to RTSP server on %s.",
                           address.c_str());
        Close();
        return false;
    }
    if (!DescribeStreams()) {
        logger().WriteLine("CKORURTSPDevice::Open: Failed to get RTSP/SDP formats.");
        Close();
        return false;
    }
    opened = true;
    return true;
}

/// A camera has either a raw stream, or a JPEG-LS stream with or without a JPEG stream.
bool CKORURTSPDevice::DescribeStreams() {
    rawStream = rtsp.Describe(priv::rawKind.describePath);
    if (rawStream.IsValid()) {
        compressedOnly = false;
        priv::AddCatalogueEntries(rawStream, priv::rawKind, formats);
        return true;
    }
    mjlsStream = rtsp.Describe(priv::jpegLsKind.describePath);
    if (!mjlsStream.IsValid()) return false;
    compressedOnly = true;
    priv::AddCatalogueEntries(mjlsStream, priv::jpegLsKind, formats);
    jpegStream = rtsp.Describe(priv::jpegKind.describePath);
    if (jpegStream.IsValid()) priv::AddCatalogueEntries(jpegStream, priv::jpegKind, formats);
    return true;
}

// --- Formats -------------------------------------------------------------------------------------

bool CKORURTSPDevice::GetFormats(TArray<SFormat>& list) {
    list.clear();
    list.reserve(formats.count());
    for (const SFormat& format : formats) list.append(format);
    return !list.empty();
}

bool CKORURTSPDevice::SetFormat(std::uint16_t newWidth, std::uint16_t newHeight,
                                SGuid newPixelType) {
    if (newWidth == width && newHeight == height && newPixelType == pixelType) return true;
    ThrowIfInFrameCallback();
    width = newWidth;
    height = newHeight;
    pixelType = newPixelType;
    if (!receiver.IsRunning()) return true;
    Suspend();
    Resume();
    return true;
}

bool CKORURTSPDevice::GetFormat(std::uint16_t& formatWidth, std::uint16_t& formatHeight,
                                SGuid& formatPixelType, std::uint32_t& value) {
    formatWidth = width;
    formatHeight = height;
    formatPixelType = pixelType;
    value = 0;
    return true;
}

void CKORURTSPDevice::GetFrameCallback(FrameCallback& callback, void*& context) {
    const bool streaming = frameCallback != nullptr;
    callback = streaming ? frameCallback : suspendedCallback;
    context = streaming ? callbackContext : suspendedContext;
}

// --- Streaming -----------------------------------------------------------------------------------

/// Finds the paths and the stream name for the format that was set. Returns false when the camera
/// has no such stream.
bool CKORURTSPDevice::ChooseStream(priv::SStreamPaths& paths, const char*& streamName) {
    const std::pair<const priv::SStreamKind&, const SRtspStream&> choices[] = {
        {priv::rawKind, rawStream}, {priv::jpegLsKind, mjlsStream}, {priv::jpegKind, jpegStream}};
    for (const auto& [kind, stream] : choices) {
        if (pixelType != kind.pixelType) continue;
        const SRtspFormat* const format = priv::FindFormat(stream, kind, width, height);
        if (format == nullptr) return false;
        const bool raw = &kind == &priv::rawKind;
        paths = raw ? priv::RawPaths(*format) : priv::CompressedPaths(kind, ResolveSetupRate());
        streamName = kind.streamName;
        return true;
    }
    return false;
}

/// Once requested, the initial rate stays in force even if the start fails.
std::optional<double> CKORURTSPDevice::ResolveSetupRate() {
    if (!frameRate && useInitialFrameRate) frameRate = initialFrameRate;
    return frameRate;
}

/// Returns true while a session plays or is paused. The receiver that a `Close` has left running is
/// no stream, until its session plays again: a camera that refused TEARDOWN may have kept it.
bool CKORURTSPDevice::StreamExists() const { return receiver.IsRunning() && !receiverIsLeftOver; }

bool CKORURTSPDevice::StartContinuous(FrameCallback callback, void* context) {
    // Without a callback the receiver would not count as running.
    if (StreamExists() || callback == nullptr) {
        logger().WriteLine("%s", notStarted.line);
        return false;
    }
    // A start from within the callback of a left-over receiver fails before anything has changed.
    if (receiver.IsRunning()) receiver.ThrowIfOnRtpThread();
    try {
        if (const SStartFailure* const failure = TryStart(callback, context)) {
            logger().WriteLine("%s", failure->line);
            Undo(*failure);
            return false;
        }
    } catch (...) {
        // A thread could not be created, or there was no memory. Neither a thread nor a session may
        // outlive this start.
        Undo(notStarted);
        throw;
    }
    frameCallback = callback;
    callbackContext = context;
    receiverIsLeftOver = false;
    return true;
}

/// Runs the steps of a start up to the first that fails, and returns its failure; null when all
/// have succeeded.
const SStartFailure* CKORURTSPDevice::TryStart(FrameCallback callback, void* context) {
    priv::SStreamPaths paths;
    const char* streamName = nullptr;
    if (!ChooseStream(paths, streamName)) return &noFormat;
    // A left-over receiver still uses its sockets and its address; its `Start` fails below, which
    // ends it, so that the next start finds none.
    const bool leftOver = receiver.IsRunning();
    if (!leftOver && !receiver.CreateSockets()) return &noSockets;
    if (!rtsp.Setup(paths.setup.c_str(), paths.control.c_str(), receiver.GetRtpPort(),
                    receiver.GetRtcpPort())) {
        return &noSession;
    }
    if (!leftOver && !receiver.SetServerAddress(address.c_str(), rtsp.GetServerRtcpPort())) {
        return &noServerAddress;
    }
    if (!receiver.Start(streamName, callback, context)) return &notStarted;
    if (!rtsp.Play()) return &notPlayed;
    return nullptr;
}

void CKORURTSPDevice::Undo(const SStartFailure& failure) {
    if (failure.undo == StopReceiver) receiver.Stop();
    if (failure.undo == ResetReceiver || failure.undo == ResetReceiverAndTeardown) receiver.Reset();
    if (failure.undo != ResetReceiverAndTeardown) return;
    try {
        rtsp.Teardown();
    } catch (const std::bad_alloc&) {
        // The session stays. The failure itself is what the caller has to know.
    }
}

/// Makes a stop from within the callback throw before anything has changed.
void CKORURTSPDevice::ThrowIfInFrameCallback() const {
    if (rtsp.IsPlaying()) receiver.ThrowIfOnRtpThread();
}

bool CKORURTSPDevice::StopContinuous() {
    if (!rtsp.IsPlaying()) return false;
    ThrowIfInFrameCallback();
    rtsp.Pause();
    receiver.Stop();
    receiver.Reset();
    rtsp.Teardown();
    frameCallback = nullptr;
    callbackContext = nullptr;
    return true;
}

bool CKORURTSPDevice::Suspend() {
    if (!receiver.IsRunning()) return false;
    ThrowIfInFrameCallback();
    suspendedCallback = frameCallback;
    suspendedContext = callbackContext;
    return StopContinuous();
}

bool CKORURTSPDevice::Resume() {
    if (receiver.IsRunning() || suspendedCallback == nullptr) return false;
    const bool started = StartContinuous(suspendedCallback, suspendedContext);
    suspendedCallback = nullptr;
    suspendedContext = nullptr;
    return started;
}

}  // namespace qmx::cam
