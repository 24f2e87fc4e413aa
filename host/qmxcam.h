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

/// Who may edit a parameter. The plug-in passes 2, whose meaning is the host's.
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

    /// Registers a property; the two bytes are the host's.
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

/// Receives frames: the context given at the start, the frame's first byte, its length in bytes.
///
/// What the bytes are depends on the pixel type of the format that was set:
///
/// | pixel type | frame |
/// | raw        | 16-bit little-endian pixels, line after line, no header and no padding: the
/// stride is |            | 2 * width bytes. The length is where the last received line ends; it is
/// shorter than |            | 2 * width * height when the camera sent less | JPEG-LS    | 4 bytes
/// of the camera's own, then a JPEG-LS image that begins with FF D8 FF F7 | JPEG       | a complete
/// JPEG image with headers made by the receiver
///
/// Called on a thread of the camera's receiver, one call at a time, in order of arrival, with no
/// lock held. The frame is valid only during the call; the next one overwrites it. Nothing is
/// received while the call runs, so copy the frame and return. No call is made after
/// `StopContinuous` has returned true. Do not call anything here that stops the stream: it would
/// wait for this call and throws instead. Do not let an exception out; it is discarded.
using FrameCallback = void (*)(void* context, const std::uint8_t* frame, std::uint32_t length);

/// Node access of cameras that support it; those of this plug-in do not.
class IGenICam {
   public:
    virtual ~IGenICam() = default;
};

/// One camera, as the host uses it. The host calls it from one thread at a time.
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
    virtual bool Open(SDeviceInfo info, std::uint32_t flags) = 0;
    virtual bool IsOpen() = 0;
    virtual bool IsConnected() = 0;
    virtual void Close() = 0;
    virtual int GetCommID();
    virtual std::uint64_t GetConnection() = 0;
    virtual TSharedPtr<IGenICam> GetGenICam(bool flag);
    virtual bool GetFormats(TArray<SFormat>& formats) = 0;
    virtual bool SetFormat(std::uint16_t width, std::uint16_t height, SGuid pixelType) = 0;
    virtual bool GetFrameSize(std::uint32_t& bytes);
    virtual bool GetFormat(std::uint16_t& width, std::uint16_t& height, SGuid& pixelType,
                           std::uint32_t& value) = 0;
    virtual void GetFrameCallback(FrameCallback& callback, void*& context) = 0;
    virtual bool IsStreaming() = 0;
    virtual bool IsSuspended() = 0;
    virtual bool StartContinuous(FrameCallback callback, void* context) = 0;
    virtual bool StopContinuous() = 0;
    virtual bool Suspend() = 0;
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
