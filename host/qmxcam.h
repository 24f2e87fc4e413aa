/// Contract of the host's camera library `qmxcam`: device descriptions, properties, and the two
/// abstract classes that a camera plug-in implements. Declarations only.
///
/// The order of the virtual operations and of the fields is the host's and fixed.
#pragma once

#include <cstdint>

#include "qmx.h"

#if defined(_WIN32)
#if defined(QMXCAM_BUILD)
#define QMXCAM_API __declspec(dllexport)
#else
#define QMXCAM_API __declspec(dllimport)
#endif
#else
#define QMXCAM_API __attribute__((visibility("default")))
#endif

namespace qmx::cam {

/// Who may edit a parameter. The plug-in passes 2; only the host knows what it means.
enum class EEditLevel : std::int32_t {};

/// One parameter of a device description.
class QMXCAM_API CEntry {
   public:
    CEntry(const CString& key, const CString& label, const CString& description, EEditLevel level,
           const CVariant& defaultValue);

    const CString& key() const noexcept;
    const CString& label() const noexcept;
    const CString& description() const noexcept;
    EEditLevel editLevel() const noexcept;
    const CVariant& defaultValue() const noexcept;
    /// The current value: the default until `setValue`.
    const CVariant& value() const noexcept;
    void setValue(const CVariant& newValue);

    /// Set by the host, read directly by the plug-in. For the entry "Name" it makes `Open` resolve
    /// the address by that name.
    std::uint8_t entryFlag = 0;

   private:
    CString keyText;
    CString labelText;
    CString descriptionText;
    EEditLevel level;
    CVariant defaultVariant;
    CVariant current;
};

/// The parameters of a device description, in the order in which they were added.
class QMXCAM_API CParameters {
   public:
    /// Returns false, and adds nothing, when the key exists already.
    bool Add(const CEntry& entry);
    /// Returns the entry of a key. An unknown key gets a new entry with empty texts.
    CEntry& operator[](const CString& key);
    const TArray<CEntry>& entries() const noexcept;

   private:
    TArray<CEntry> list;
};

/// Describes one camera. Passed by value and owned by the receiving function.
struct SDeviceInfo {
    CString typeId;
    CString deviceId;
    CString interfaceId;
    CString interfaceKind;
    CParameters parameters;
};

/// The named values that a device offers to the host.
class QMXCAM_API CProperties {
   public:
    using Getter = delegate<bool(CString name, CVariant& value)>;
    using Setter = delegate<bool(CString name, CVariant value)>;

    /// Registers a property. Only the host knows what the two bytes mean.
    void add(const CString& name, std::uint8_t firstByte, std::uint8_t secondByte, EType type,
             Getter getter, Setter setter);
    /// Returns false when there is no such property or its getter fails.
    bool get(const CString& name, CVariant& value) const;
    /// Returns false when there is no such property or its setter fails.
    bool set(const CString& name, CVariant value) const;
    std::size_t count() const noexcept;
    /// Name and type of the property at an index below `count`, in the order of registration.
    const CString& nameAt(std::size_t index) const;
    EType typeAt(std::size_t index) const;

   private:
    struct SProperty {
        CString name;
        EType type;
        Getter getter;
        Setter setter;
    };
    const SProperty* Find(const CString& name) const noexcept;
    TArray<SProperty> list;
};

// clang-format off
/// Receives one frame: the context given at the start, the frame's first byte, its length in bytes.
///
/// The layout follows from the pixel type of the format that was set:
///
/// | pixel type | frame                                                                             |
/// |------------|-----------------------------------------------------------------------------------|
/// | raw        | 16-bit little-endian pixels, row by row from the top, without header or padding:  |
/// |            | the stride is 2 * width bytes. The length is where the last received row ends and |
/// |            | is smaller than 2 * width * height when the camera sent fewer rows.               |
/// | JPEG-LS    | 4 bytes of the camera's own, then a JPEG-LS image, which begins with FF D8 FF F7. |
/// | JPEG       | A complete JPEG image; the receiver generates its headers (RFC 2435).             |
///
/// Called on a thread of the camera's receiver, one call at a time, in order of arrival, with no
/// lock held. The frame is valid only during the call: the next one overwrites it. Nothing is
/// received while the call runs, so copy the frame and return. No call is made after
/// `StopContinuous` has returned true. Operations that stop the stream throw when they are called
/// here, because they would wait for this very call. Exceptions that leave the callback are
/// discarded.
// clang-format on
using FrameCallback = void (*)(void* context, const std::uint8_t* frame, std::uint32_t length);

/// Node access of cameras that support it; those of this plug-in do not.
class IGenICam {
   public:
    virtual ~IGenICam() = default;
};

/// One camera, as the host uses it. The host calls it from one thread at a time, and destroys it
/// before the interface that made it. The operations block for the network.
class QMXCAM_API IDevice {
   public:
    /// One image format.
    struct SFormat {
        std::uint16_t width;   ///< pixels
        std::uint16_t height;  ///< pixels
        SGuid pixelType;
    };

    IDevice();
    IDevice(const IDevice&) = delete;
    IDevice& operator=(const IDevice&) = delete;

    virtual ~IDevice();
    /// Connects to the camera that the description names in its entries "IP" and "Name". The bits
    /// of `flags`: 1 connects the node tree, 2 the streams. Returns true if all that was asked for
    /// is connected; without either bit that is so at once.
    virtual bool Open(SDeviceInfo info, std::uint32_t flags) = 0;
    /// Returns true while the streams are connected.
    virtual bool IsOpen() = 0;
    /// Returns true while the node tree is connected.
    virtual bool IsConnected() = 0;
    /// Stops the stream and disconnects.
    virtual void Close() = 0;
    /// Belongs to the host; this plug-in does not override it.
    virtual int GetCommID();
    /// Returns the handle of the node tree connection, or 0.
    virtual std::uint64_t GetConnection() = 0;
    /// Belongs to the host; this plug-in does not override it.
    virtual TSharedPtr<IGenICam> GetGenICam(bool flag);
    /// Replaces the contents of `formats` with the camera's formats. Returns false if it has none.
    virtual bool GetFormats(TArray<SFormat>& formats) = 0;
    /// Chooses the format of the next start. A stream that is running restarts.
    virtual bool SetFormat(std::uint16_t width, std::uint16_t height, SGuid pixelType) = 0;
    /// Belongs to the host; this plug-in does not override it. The size of a frame is the length
    /// that the callback receives.
    virtual bool GetFrameSize(std::uint32_t& bytes);
    /// Stores the chosen format, and 0 in `value`.
    virtual bool GetFormat(std::uint16_t& width, std::uint16_t& height, SGuid& pixelType,
                           std::uint32_t& value) = 0;
    /// Stores the callback of the running or suspended stream and its context, or null.
    virtual void GetFrameCallback(FrameCallback& callback, void*& context) = 0;
    /// Returns true from a successful start until the stop, also while the camera pauses.
    virtual bool IsStreaming() = 0;
    /// Returns true between `Suspend` and `Resume`.
    virtual bool IsSuspended() = 0;
    /// Starts a stream in the chosen format. The frames go to `callback` with `context`, which must
    /// stay valid until the stop. Returns false if the camera or the system refuses; the log then
    /// contains the reason.
    virtual bool StartContinuous(FrameCallback callback, void* context) = 0;
    /// Stops the stream. Returns false if nothing plays.
    virtual bool StopContinuous() = 0;
    /// Stops the stream and keeps its callback for `Resume`.
    virtual bool Suspend() = 0;
    /// Starts a suspended stream again.
    virtual bool Resume() = 0;

    CString deviceName;
    CString deviceAlias;
    CProperties properties;
};

/// One way of reaching cameras.
class QMXCAM_API IInterface {
   public:
    /// Receives a device description and owns it.
    using DeviceSink = delegate<void(SDeviceInfo info)>;

    IInterface();
    IInterface(const IInterface&) = delete;
    IInterface& operator=(const IInterface&) = delete;

    virtual ~IInterface();
    /// Returns a new device that is neither open nor bound to a camera.
    virtual TSharedPtr<IDevice> CreateDevice() = 0;
    /// Calls the sink once per camera, on the calling thread, before it returns.
    virtual bool EnumerateDevices(DeviceSink sink) = 0;

    CString interfaceKind;
    CString typeId;
    CString displayName;
    CString description;
    CString interfaceId;
    std::int32_t integerAttribute = 0;
    std::uint8_t firstFlag = 0;
    std::uint8_t secondFlag = 0;
    SDeviceInfo defaultDevice;  ///< the template of this interface's device descriptions
};

/// Where plug-ins register their interfaces and the host creates them.
class QMXCAM_API IInterfaceFactory {
   public:
    using CreateFunction = IInterface* (*)();
    using DestroyFunction = void (*)(IInterface* object);

    virtual ~IInterfaceFactory();
    /// Returns false when the id is already registered.
    virtual bool RegisterInterface(const CString& id, CreateFunction create,
                                   DestroyFunction destroy) = 0;
    /// Returns a new interface object, to be destroyed by `DestroyInterface` with the same id, or
    /// null for an unknown id.
    virtual IInterface* CreateInterface(const CString& id) = 0;
    virtual void DestroyInterface(const CString& id, IInterface* object) = 0;
};

/// The one factory of the process.
QMXCAM_API IInterfaceFactory& interfaceFactory();

}  // namespace qmx::cam
