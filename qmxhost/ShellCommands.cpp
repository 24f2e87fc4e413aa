#include "ShellCommands.h"

#include <chrono>
#include <cstdio>
#include <limits>
#include <thread>

#include "Arguments.h"
#include "OutputFile.h"
#include "Path.h"
#include "PixelTypeNames.h"
#include "Properties.h"

namespace qmxhost {
namespace {

using qmx::cam::IDevice;
using qmx::cam::SDeviceInfo;

/// Longest time that a command accepts, so that a typing error does not block a script for days.
constexpr std::uint64_t mostMilliseconds = 3'600'000;
constexpr std::uint64_t mostFlags = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t mostPixels = std::numeric_limits<std::uint16_t>::max();

std::uint64_t Whole(const std::string& text, std::uint64_t most) {
    if (const auto value = ParseWhole(text, most)) return *value;
    throw CWrongCommand("'" + text + "' is not a whole number up to " + std::to_string(most));
}

std::chrono::milliseconds Time(const std::string& text) {
    return std::chrono::milliseconds(Whole(text, mostMilliseconds));
}

Json Ok(bool ok) { return {{"ok", ok}}; }

// --- The interface object ----------------------------------------------------------------------

void AppendDevice(void* list, SDeviceInfo info) {
    static_cast<Json*>(list)->push_back({{"deviceId", Text(info.deviceId)},
                                         {"typeId", Text(info.typeId)},
                                         {"interfaceId", Text(info.interfaceId)},
                                         {"interfaceKind", Text(info.interfaceKind)},
                                         {"IP", ParameterText(info, "IP")},
                                         {"Name", ParameterText(info, "Name")}});
}

Json Enumerate(SShellSession& session, const SArguments&) {
    Json devices = Json::array();
    const bool done = session.host.interfaceObject().EnumerateDevices(
        qmx::cam::IInterface::DeviceSink(AppendDevice, &devices));
    return {{"ok", done}, {"devices", devices}};
}

Json ParametersAsJson(const SDeviceInfo& info) {
    Json list = Json::array();
    for (const qmx::cam::CEntry& entry : info.parameters.entries()) {
        list.push_back({{"key", Text(entry.key())},
                        {"label", Text(entry.label())},
                        {"description", Text(entry.description())},
                        {"editLevel", static_cast<std::int32_t>(entry.editLevel())},
                        {"defaultValue", ValueAsJson(entry.defaultValue())}});
    }
    return list;
}

Json Interface(SShellSession& session, const SArguments&) {
    const qmx::cam::IInterface& object = session.host.interfaceObject();
    const SDeviceInfo& device = object.defaultDevice;
    return {{"ok", true},
            {"interfaceKind", Text(object.interfaceKind)},
            {"typeId", Text(object.typeId)},
            {"displayName", Text(object.displayName)},
            {"description", Text(object.description)},
            {"interfaceId", Text(object.interfaceId)},
            {"integerAttribute", object.integerAttribute},
            {"firstFlag", object.firstFlag},
            {"secondFlag", object.secondFlag},
            {"defaultDevice",
             {{"typeId", Text(device.typeId)},
              {"deviceId", Text(device.deviceId)},
              {"interfaceId", Text(device.interfaceId)},
              {"interfaceKind", Text(device.interfaceKind)}}},
            {"parameters", ParametersAsJson(device)}};
}

/// The old device is destroyed first: a camera serves only one at a time.
Json New(SShellSession& session, const SArguments&) {
    session.device.Reset();
    session.device = session.host.NewDevice();
    return Ok(static_cast<bool>(session.device));
}

Json Delete(SShellSession& session, const SArguments&) {
    session.device.Reset();
    return Ok(true);
}

Json PixelTypes(SShellSession&, const SArguments&) {
    Json list = Json::array();
    for (const qmx::SPixelType& type : qmx::RegisteredPixelTypes()) {
        list.push_back({{"name", Text(type.name)},
                        {"guid", frames::GuidText(type.pixelType)},
                        {"byte", type.byte},
                        {"dataType", static_cast<std::int32_t>(type.dataType)},
                        {"second", frames::GuidText(type.second)}});
    }
    return {{"ok", true}, {"pixeltypes", list}};
}

// --- The device --------------------------------------------------------------------------------

Json Open(SShellSession& session, const SArguments& arguments) {
    SDeviceInfo info = session.host.interfaceObject().defaultDevice;
    if (arguments[0] != "-") {
        info.deviceId = arguments[0].c_str();
        info.parameters["IP"].setValue(qmx::CVariant(arguments[0].c_str()));
    }
    const auto flags = static_cast<std::uint32_t>(Whole(arguments[1], mostFlags));
    if (arguments.size() > 2) {
        qmx::cam::CEntry& name = info.parameters["Name"];
        name.setValue(qmx::CVariant(arguments[2].c_str()));
        name.entryFlag = 1;
    }
    return Ok(session.device->Open(std::move(info), flags));
}

Json Close(SShellSession& session, const SArguments&) {
    session.device->Close();
    return Ok(true);
}

Json State(SShellSession& session, const SArguments&) {
    IDevice& device = *session.device;
    return {{"ok", true},
            {"open", device.IsOpen()},
            {"connected", device.IsConnected()},
            {"streaming", device.IsStreaming()},
            {"suspended", device.IsSuspended()}};
}

Json Formats(SShellSession& session, const SArguments&) {
    qmx::TArray<IDevice::SFormat> formats;
    const bool done = session.device->GetFormats(formats);
    Json list = Json::array();
    for (const IDevice::SFormat& format : formats) {
        list.push_back({{"width", format.width},
                        {"height", format.height},
                        {"pixelType", frames::GuidText(format.pixelType)}});
    }
    return {{"ok", done}, {"formats", list}};
}

Json SetFormat(SShellSession& session, const SArguments& arguments) {
    const auto width = static_cast<std::uint16_t>(Whole(arguments[0], mostPixels));
    const auto height = static_cast<std::uint16_t>(Whole(arguments[1], mostPixels));
    const auto type = frames::ParseType(arguments[2]);
    if (!type) throw CWrongCommand("'" + arguments[2] + "' is not raw, jls, jpeg or a GUID");
    return Ok(session.device->SetFormat(width, height, *type));
}

/// The initial format of a device is shown unchanged.
Json GetFormat(SShellSession& session, const SArguments&) {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    qmx::SGuid type{};
    std::uint32_t value = 0;
    const bool done = session.device->GetFormat(width, height, type, value);
    return {{"ok", done},
            {"width", width},
            {"height", height},
            {"pixelType", frames::GuidText(type)},
            {"value", value}};
}

Json Callback(SShellSession& session, const SArguments&) {
    qmx::cam::FrameCallback callback = nullptr;
    void* context = nullptr;
    session.device->GetFrameCallback(callback, context);
    return {{"ok", true}, {"callback", callback != nullptr}, {"context", context != nullptr}};
}

/// Cleared before the start, because frames arrive before it returns.
Json Start(SShellSession& session, const SArguments&) {
    session.frames.Clear();
    return Ok(session.device->StartContinuous(CShellFrames::OnFrame, &session.frames));
}

Json Stop(SShellSession& session, const SArguments&) {
    return Ok(session.device->StopContinuous());
}
Json Suspend(SShellSession& session, const SArguments&) { return Ok(session.device->Suspend()); }
Json Resume(SShellSession& session, const SArguments&) { return Ok(session.device->Resume()); }

/// An unknown name is a mistake in the command, not a failed operation.
SProperty Property(const SShellSession& session, const std::string& name) {
    const auto& properties = session.device->properties;
    if (auto property = FindProperty(properties, name)) return *std::move(property);
    throw CWrongCommand("no property '" + name + "'; there are " + PropertyNames(properties));
}

Json Get(SShellSession& session, const SArguments& arguments) {
    qmx::CVariant value;
    const SProperty property = Property(session, arguments[0]);
    const bool done = session.device->properties.get(property.name, value);
    return {{"ok", done}, {"value", ValueAsJson(value)}};
}

/// Shows the value as it was parsed; reading it back would be another operation.
Json Set(SShellSession& session, const SArguments& arguments) {
    const SProperty property = Property(session, arguments[0]);
    const auto value = ParseValue(arguments[1], property.type);
    if (!value) throw CWrongCommand("'" + arguments[1] + "' is not a value of " + arguments[0]);
    const bool done = session.device->properties.set(property.name, *value);
    return {{"ok", done}, {"value", ValueAsJson(*value)}};
}

// --- The frames --------------------------------------------------------------------------------

Json Frames(SShellSession& session, const SArguments&) {
    Json list = Json::array();
    const SFrameList frames = session.frames.Frames();
    for (const SFrameRecord& record : frames.last) {
        char checksum[9];
        std::snprintf(checksum, sizeof(checksum), "%08x", static_cast<unsigned>(record.checksum));
        list.push_back({{"length", record.length}, {"crc32", checksum}});
    }
    return {{"ok", true}, {"count", frames.count}, {"frames", list}};
}

Json Wait(SShellSession& session, const SArguments& arguments) {
    const std::uint64_t number = Whole(arguments[0], std::numeric_limits<std::uint64_t>::max());
    const bool came = session.frames.WaitFor(number, Time(arguments[1]));
    return {{"ok", came}, {"count", session.frames.count()}};
}

Json Clear(SShellSession& session, const SArguments&) {
    session.frames.Clear();
    return Ok(true);
}

Json Block(SShellSession& session, const SArguments& arguments) {
    session.frames.Block(Time(arguments[0]));
    return Ok(true);
}

Json Save(SShellSession& session, const SArguments& arguments) {
    const std::vector<std::uint8_t> frame = session.frames.LastFrame();
    if (frame.empty()) throw CWrongCommand("no frame to save");
    if (!frames::WriteFile(platform::PathFromUtf8(arguments[0]), frame))
        throw CWrongCommand("cannot write " + arguments[0]);
    return {{"ok", true}, {"length", frame.size()}};
}

Json Sleep(SShellSession&, const SArguments& arguments) {
    std::this_thread::sleep_for(Time(arguments[0]));
    return Ok(true);
}

constexpr SShellCommand commands[] = {
    {"enumerate", "", 0, 0, false, true, false, Enumerate},
    {"interface", "", 0, 0, false, true, false, Interface},
    {"new", "", 0, 0, false, true, false, New},
    {"delete", "", 0, 0, true, true, false, Delete},
    {"open", "IP FLAGS [NAME]", 2, 3, true, true, true, Open},
    {"close", "", 0, 0, true, true, false, Close},
    {"state", "", 0, 0, true, true, false, State},
    {"formats", "", 0, 0, true, true, false, Formats},
    {"setformat", "W H TYPE", 3, 3, true, true, false, SetFormat},
    {"getformat", "", 0, 0, true, true, false, GetFormat},
    {"callback", "", 0, 0, true, true, false, Callback},
    {"start", "", 0, 0, true, true, false, Start},
    {"stop", "", 0, 0, true, true, false, Stop},
    {"suspend", "", 0, 0, true, true, false, Suspend},
    {"resume", "", 0, 0, true, true, false, Resume},
    {"get", "NAME", 1, 1, true, true, false, Get},
    {"set", "NAME VALUE", 2, 2, true, true, true, Set},
    {"frames", "", 0, 0, false, true, false, Frames},
    {"wait", "N MS", 2, 2, false, false, false, Wait},
    {"clear", "", 0, 0, false, true, false, Clear},
    {"block", "MS", 1, 1, false, false, false, Block},
    {"save", "FILE", 1, 1, false, true, true, Save},
    {"sleep", "MS", 1, 1, false, false, false, Sleep},
    {"pixeltypes", "", 0, 0, false, true, false, PixelTypes},
};

}  // namespace

std::span<const SShellCommand> ShellCommands() noexcept { return commands; }

}  // namespace qmxhost
