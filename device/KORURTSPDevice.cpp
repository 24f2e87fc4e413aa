#include "KORURTSPDevice.h"

#include <memory>
#include <new>
#include <utility>

#include "Arbor.h"
#include "CameraDiscovery.h"
#include "KORURTSPInterface.h"

namespace qmx::cam {
namespace {

constexpr std::uint32_t openNodeTree = 1;
constexpr std::uint32_t openStreams = 2;

/// Why a start failed. Written before anything is undone, which may take its time.
void LogFailure(const char* line) { logger().WriteLine("%s", line); }

constexpr char receiverNotStarted[] =
    "CKORURTSPDevice::StartContinuous: Failed to start RTP reciever.";

}  // namespace

TSharedPtr<IDevice> CKORURTSPInterface::CreateDevice() {
    auto device = std::make_unique<CKORURTSPDevice>();
    CReferenceCounter* const counter = CReferenceCounter::Create(device.get());
    return {device.release(), counter, TSharedPtr<IDevice>::deleteByDestructor};
}

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
        // The host has dropped its last reference within the callback, or there is no memory for a
        // request. Receiver and client then end for themselves.
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
    if (name.entryFlag != 0) SettleAddressByName(name.value().ToString());
    ArbHandle made = 0;
    if (arbConnect(&made, address.c_str(), 0) != 0) {
        logger().WriteLine("CKORURTSPDevice::Open: arbConnect(%s) failed.", address.c_str());
        return false;
    }
    // A second opening must not lose the connection of the first.
    if (connection != 0) arbDestroy(connection);
    connection = made;
    connected = true;
    return true;
}

/// The last of several cameras with the name counts. Where there is none the address stays.
void CKORURTSPDevice::SettleAddressByName(const CString& name) {
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

/// A camera has a raw stream, or JPEG-LS with or without JPEG.
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
    RequireStoppable();
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

/// Finds the stream and the paths for the format that was set; false when the camera has none.
bool CKORURTSPDevice::ChooseStream(priv::SStreamPaths& paths, const char*& receiverName) {
    const std::pair<const priv::SStreamKind&, const SRtspStream&> choices[] = {
        {priv::rawKind, rawStream}, {priv::jpegLsKind, mjlsStream}, {priv::jpegKind, jpegStream}};
    for (const auto& [kind, stream] : choices) {
        if (pixelType != kind.pixelType) continue;
        const SRtspFormat* const format = priv::FindFormat(stream, kind, width, height);
        if (format == nullptr) return false;
        const bool raw = &kind == &priv::rawKind;
        paths = raw ? priv::RawPaths(*format) : priv::CompressedPaths(kind, RateToAsk());
        receiverName = kind.receiverName;
        return true;
    }
    return false;
}

/// The initial rate, once asked for, becomes the rate, whatever comes of the start.
std::optional<double> CKORURTSPDevice::RateToAsk() {
    if (!frameRate && useInitialFrameRate) frameRate = initialFrameRate;
    return frameRate;
}

/// True while a session plays or is paused. A receiver that a `Close` has left behind is no stream
/// any more, unless its session plays again: a camera that refused TEARDOWN may have kept it.
bool CKORURTSPDevice::StreamExists() const {
    return receiver.IsRunning() && (!receiverIsLeftOver || rtsp.IsPlaying());
}

bool CKORURTSPDevice::StartContinuous(FrameCallback callback, void* context) {
    // Without a callback the receiver would not count as running.
    if (StreamExists() || callback == nullptr) {
        LogFailure(receiverNotStarted);
        return false;
    }
    // A start from within the callback of a left-over receiver fails before anything has changed.
    if (receiver.IsRunning()) receiver.RequireOtherThread();

    priv::SStreamPaths paths;
    const char* receiverName = nullptr;
    if (!ChooseStream(paths, receiverName)) {
        LogFailure("CKORURTSPDevice::StartContinuous: Failed to find a suitable format.");
        return false;
    }
    // A left-over receiver still uses its sockets and its address; its `Start` fails below, which
    // ends it, so that the next start finds none.
    const bool leftOver = receiver.IsRunning();
    if (!leftOver && !receiver.CreateSockets()) {
        LogFailure("CKORURTSPDevice::StartContinuous: Local RTP setup failed.");
        return false;
    }
    if (!rtsp.Setup(paths.setup.c_str(), paths.control.c_str(), receiver.GetRtpPort(),
                    receiver.GetRtcpPort())) {
        LogFailure("CKORURTSPDevice::StartContinuous: RTSP session setup failed.");
        receiver.Reset();
        return false;
    }
    if (!leftOver && !receiver.SetServerAddress(address.c_str(), rtsp.GetServerRtcpPort())) {
        LogFailure("CKORURTSPDevice::StartContinuous: Server RTP setup failed.");
        receiver.Reset();
        return false;
    }
    try {
        if (!receiver.Start(receiverName, callback, context)) {
            LogFailure(receiverNotStarted);
            receiver.Reset();
            rtsp.Teardown();
            return false;
        }
        if (!rtsp.Play()) {
            LogFailure("CKORURTSPDevice::StartContinuous: Failed to play RTSP session.");
            receiver.Stop();
            return false;
        }
    } catch (...) {
        // A thread could not be created, or there was no memory. Neither a thread nor a session may
        // outlive this start.
        receiver.Reset();
        EndSession();
        throw;
    }
    frameCallback = callback;
    callbackContext = context;
    return true;
}

/// `Teardown` while another exception is on its way: its own lack of memory must not replace it.
void CKORURTSPDevice::EndSession() noexcept {
    try {
        rtsp.Teardown();
    } catch (const std::bad_alloc&) {
    }
}

/// A stop from within the callback raises its error here, before anything has changed.
void CKORURTSPDevice::RequireStoppable() const {
    if (rtsp.IsPlaying()) receiver.RequireOtherThread();
}

bool CKORURTSPDevice::StopContinuous() {
    if (!rtsp.IsPlaying()) return false;
    RequireStoppable();
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
    RequireStoppable();
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
