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

/// Holds the RTSP client, the RTP receiver and the node tree connection of one camera, its format
/// catalogue and the host's frame callback, and decides how they move together. It opens no socket
/// and starts no thread itself, and it is not on the road of a frame: the receiver calls the host.
///
/// Made by `CKORURTSPInterface::CreateDevice`, owned by the host's shared pointer, driven from one
/// host thread at a time. Everything blocks for the network; nothing takes a lock. What stops a
/// stream waits for the receiver's threads, so none of it may be called from the frame callback.
///
/// The state is what the members say together:
///
/// | State     | connected | opened | IsSetUp | IsPlaying | IsRunning | frameCallback | suspended
/// | Closed    | no        | no     | no      | no        | no        | null          | null
/// | Connected | yes       | no     | no      | no        | no        | null          | null
/// | Open      | either    | yes    | no      | no        | no        | null          | null
/// | Streaming | either    | yes    | yes     | yes       | yes       | set           | null
/// | Paused    | either    | yes    | yes     | no        | yes       | set           | null
/// | Suspended | either    | yes    | no      | no        | no        | null          | set
/// | Refused   | either    | yes    | yes     | no        | no        | null          | either
///
/// A Paused device is not stopped by `StopContinuous`, and `Close` leaves its receiver running; the
/// destructor ends it. Refused is what a camera leaves that grants a session and then refuses PLAY:
/// every start fails until a `Close` has ended that session.
class CKORURTSPDevice final : public IDevice {
   public:
    CKORURTSPDevice();
    ~CKORURTSPDevice() override;

    /// Flag 1 settles the address by the name, where the entry "Name" is flagged, and connects the
    /// node tree; flag 2 connects RTSP and makes the catalogue. Looks at no state: what stands is
    /// replaced, and the catalogue of an earlier opening stays in front.
    bool Open(SDeviceInfo info, std::uint32_t flags) override;
    bool IsOpen() override { return opened; }
    bool IsConnected() override { return connected; }
    /// Stops, ends both connections and forgets the address. Formats and settings stay.
    void Close() override;
    /// The node tree connection; 0 is none.
    std::uint64_t GetConnection() override { return connection; }

    /// Replaces what the array holds by the catalogue; false when that is empty.
    bool GetFormats(TArray<SFormat>& list) override;
    /// Takes any format, and restarts a running stream with it. True also when the restart failed:
    /// the device is then Open, and the log says why.
    bool SetFormat(std::uint16_t newWidth, std::uint16_t newHeight, SGuid newPixelType) override;
    /// The format that was set, which a stream need not have exactly. `value` is always 0.
    bool GetFormat(std::uint16_t& formatWidth, std::uint16_t& formatHeight, SGuid& formatPixelType,
                   std::uint32_t& value) override;
    void GetFrameCallback(FrameCallback& callback, void*& context) override;
    bool IsStreaming() override { return frameCallback != nullptr; }
    bool IsSuspended() override { return suspendedCallback != nullptr; }

    /// False, with a line in the log, when a step failed, and at once while the receiver runs or
    /// for a null callback. A `std::system_error` of a thread that can't be created passes through.
    bool StartContinuous(FrameCallback callback, void* context) override;
    /// False, and nothing done, unless the stream is playing.
    bool StopContinuous() override;
    bool Suspend() override;
    bool Resume() override;

   private:
    /// TCP port of the cameras' RTSP servers.
    static constexpr std::uint16_t rtspPort = 554;

    bool ConnectNodeTree(SDeviceInfo& info);
    void SettleAddressByName(const CString& name);
    bool ConnectStreams();
    bool DescribeStreams();
    bool ChooseStream(priv::SStreamPaths& paths, const char*& receiverName);
    std::optional<double> RateToAsk();
    [[nodiscard]] bool StreamExists() const;
    void EndSession() noexcept;
    void RequireStoppable() const;

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
    FrameCallback frameCallback = nullptr;  // non-null: streaming; never called here
    void* callbackContext = nullptr;
    SRtspStream rawStream;
    SRtspStream mjlsStream;
    SRtspStream jpegStream;
    bool compressedOnly = false;
    bool useInitialFrameRate = false;
    double initialFrameRate = 9.0;    // frames per second
    std::optional<double> frameRate;  // what to ask of a compressed stream
    bool connected = false;
    bool opened = false;
    bool receiverIsLeftOver = false;  // by a `Close` that could not stop the stream
};

}  // namespace qmx::cam
