/// One infrared camera as the host drives it.
#pragma once

#include <cstdint>
#include <optional>

#include "FormatSearch.h"
#include "PixelTypes.h"
#include "RtpReceiver.h"
#include "RtspClient.h"
#include "qmxcam.h"

namespace qmx::cam {

namespace priv {
struct SStartFailure;
}

/// Owns the RTSP client, the RTP receiver and the node tree connection of one camera, its format
/// catalogue and the host's frame callback, and decides how they change together. It opens no
/// socket, starts no thread and is not on the path of a frame: the receiver calls the host.
///
/// Created by `CKORURTSPInterface::CreateDevice`, owned by the host's shared pointer, called from
/// one host thread at a time. Every operation blocks for the network; none takes a lock. Operations
/// that stop a stream wait for the receiver's threads, so the frame callback must not call them.
///
/// The state is not stored in one member; several members define it together. The connections:
///
/// | state     | connected | opened |
/// | Closed    | no        | no     |
/// | Connected | yes       | no     | node tree only
/// | Open      | either    | yes    |
///
/// The stream (`IsSetUp` and `IsPlaying` are the client's, `IsRunning` is the receiver's). A new
/// device is Closed and Idle.
///
/// | state       | IsSetUp | IsPlaying | IsRunning | frameCallback | suspendedCallback |
/// | Idle        | no      | no        | no        | null          | null              |
/// | Streaming   | yes     | yes       | yes       | set           | null (1)          |
/// | Paused      | yes     | no        | yes       | set           | null (1)          |
/// | Suspended   | no      | no        | no        | null          | set               |
/// | Refused (2) | yes     | no        | no        | null          | null              |
/// | Lost (3)    | yes     | either    | no        | null          | null (4)          |
/// | Left (5)    | no (6)  | no        | yes       | set           | null (1)          |
/// | Ended (7)   | no (6)  | no        | no        | set           | null (1)          |
///
/// 1. Set after a `Suspend` while Paused, which returns false but keeps the pair, and after a
///    `StartContinuous` while Suspended.
/// 2. The camera granted a session and refused PLAY, or the camera's name no longer resolved. Every
///    start fails until a `Close` has ended that session.
/// 3. PAUSE or TEARDOWN of a stop failed. Every start fails until a TEARDOWN succeeds, on
///    this connection or on a later one: `Close`, `Open` and once more `Close`. A camera that has
///    forgotten the session refuses for good; the host then needs a new device object.
/// 4. Set when it was `Suspend` that stopped.
/// 5. `Close` while Paused: `StopContinuous` acts only on a playing stream, so the receiver runs
///    on, and may deliver what the camera still sends. The next start fails and ends the receiver,
///    and so does the destructor.
/// 6. Yes when the camera refused TEARDOWN.
/// 7. After that failed start. The next one streams.
///
/// | from       | operation                          | to |
/// | Idle       | `StartContinuous`                  | Streaming; Idle, Refused or Lost on failure
/// | Streaming  | `StopContinuous`                   | Idle, or Lost
/// | Streaming  | `Suspend`                          | Suspended, or Lost
/// | Streaming  | "/Paused" true                     | Paused
/// | Streaming  | `SetFormat`, "/FrameRate" (8)      | Streaming; as a failed start otherwise
/// | Paused     | "/Paused" false                    | Streaming
/// | Paused     | `StopContinuous`, `StartContinuous`| Paused: false, and nothing done
/// | Suspended  | `Resume`                           | Streaming; as a failed start otherwise
/// | Suspended  | `StartContinuous`                  | Streaming, with the suspended pair kept
/// | Left       | "/Paused" false (6)                | Streaming
/// | Refused    | "/Paused" false                    | Lost, when the camera plays after all
/// | Left       | `StartContinuous`                  | Ended
/// | Ended      | `StartContinuous`                  | Streaming; Ended on failure
/// | Streaming  | `Close`                            | Idle, or Lost
/// | Paused     | `Close`                            | Left
/// | the others | `Close`                            | the same; Refused and Lost become Idle when
/// |            |                                    | TEARDOWN succeeds. Suspended keeps its pair
///
/// 8. A new format, and a new rate of a compressed camera.
class CKORURTSPDevice final : public IDevice {
   public:
    CKORURTSPDevice();
    ~CKORURTSPDevice() override;

    /// Flag 1 resolves the address by the camera's name, if the entry "Name" is flagged, and
    /// connects the node tree. Flag 2 connects RTSP and makes the catalogue of formats. With
    /// neither flag it returns true and opens nothing. Does not check the state: a node tree
    /// connection is replaced, and formats are appended to the earlier catalogue.
    bool Open(SDeviceInfo info, std::uint32_t flags) override;
    bool IsOpen() override { return opened; }
    bool IsConnected() override { return connected; }
    /// Stops a playing stream, ends both connections and clears the address. Formats, settings and
    /// a suspended callback stay. Does not end the receiver of a paused stream: see the states.
    void Close() override;
    /// Returns the node tree connection, or 0.
    std::uint64_t GetConnection() override { return connection; }

    /// Replaces the contents of the array by the catalogue. Returns false when that is empty.
    bool GetFormats(TArray<SFormat>& list) override;
    /// Stores the format, without checking it, and restarts a running stream. Returns true even
    /// when the restart fails; the log then says why.
    bool SetFormat(std::uint16_t newWidth, std::uint16_t newHeight, SGuid newPixelType) override;
    /// Returns the format that was set, which the stream may not match exactly. `value` is always
    /// 0.
    bool GetFormat(std::uint16_t& formatWidth, std::uint16_t& formatHeight, SGuid& formatPixelType,
                   std::uint32_t& value) override;
    void GetFrameCallback(FrameCallback& callback, void*& context) override;
    bool IsStreaming() override { return frameCallback != nullptr; }
    bool IsSuspended() override { return suspendedCallback != nullptr; }

    /// Starts the stream of the format that was set. Returns false, with a line in the log, when a
    /// step fails; a stream that exists, playing or paused, and a null callback are refused with a
    /// line and nothing changed. Throws `std::system_error` when a thread cannot be created, and
    /// `std::bad_alloc`; neither a thread nor, where the camera responds, a session remains then.
    bool StartContinuous(FrameCallback callback, void* context) override;
    /// Stops a playing stream and returns true; no callback runs afterwards. Returns false, and
    /// does nothing, when the session is not playing, which includes a paused one.
    bool StopContinuous() override;
    bool Suspend() override;
    bool Resume() override;

   private:
    /// TCP port of the cameras' RTSP servers.
    static constexpr std::uint16_t rtspPort = 554;

    bool ConnectNodeTree(SDeviceInfo& info);
    void ResolveAddressByName(const CString& name);
    bool ConnectStreams();
    bool DescribeStreams();
    bool ChooseStream(priv::SStreamPaths& paths, const char*& streamName);
    std::optional<double> ResolveSetupRate();
    [[nodiscard]] bool StreamExists() const;
    const priv::SStartFailure* TryStart(FrameCallback callback, void* context);
    void Undo(const priv::SStartFailure& failure);
    void ThrowIfInFrameCallback() const;

    void RegisterProperties();
    bool GetFrameRate(CVariant& value);
    bool SetFrameRate(const CVariant& value);
    bool SetRawFrameRate(double rate);
    bool SetCompressedFrameRate(double rate);
    bool GetPaused(CVariant& value);
    bool SetPaused(const CVariant& value);
    bool GetInitialFrameRate(CVariant& value);
    bool SetInitialFrameRate(const CVariant& value);
    bool GetUseInitialFrameRate(CVariant& value);
    bool SetUseInitialFrameRate(const CVariant& value);

    CRtspClient rtsp;
    CRtpReceiver receiver;
    std::uint64_t connection = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    SGuid pixelType = priv::pixelFamilyRadiometric;
    CString address;
    TArray<SFormat> formats;
    FrameCallback suspendedCallback = nullptr;
    void* suspendedContext = nullptr;
    FrameCallback frameCallback = nullptr;  // not null while streaming; never called here
    void* callbackContext = nullptr;
    SRtspStream rawStream;
    SRtspStream mjlsStream;
    SRtspStream jpegStream;
    bool compressedOnly = false;
    bool useInitialFrameRate = false;
    double initialFrameRate = 9.0;    // frames per second
    std::optional<double> frameRate;  // requested of a compressed stream
    bool connected = false;
    bool opened = false;
    bool receiverIsLeftOver = false;  // a `Close` could not stop it, and nothing played since
};

}  // namespace qmx::cam
