#include "Shell.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#include "Arguments.h"
#include "OutputFile.h"
#include "PixelTypeNames.h"
#include "Properties.h"
#include "ShellFrames.h"

namespace qmxhost {
namespace {

using qmx::cam::IDevice;
using qmx::cam::SDeviceInfo;
using Clock = std::chrono::steady_clock;

/// Longest time that a command may be given, so that a typing error doesn't hang a script for ever.
constexpr std::uint64_t mostMilliseconds = 3'600'000;
constexpr std::uint64_t mostFlags = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t mostPixels = std::numeric_limits<std::uint16_t>::max();
constexpr std::string_view blanks = " \t\r";

/// A command that can't be carried out as it was typed.
class CWrongCommand : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the commands work on. The frames outlive the device, whose thread calls into them.
struct SSession {
    CPluginHost& host;
    CShellFrames frames;
    qmx::TSharedPtr<IDevice> device;
};

/// The words behind the command.
using SArguments = std::vector<std::string>;

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

Json Enumerate(SSession& session, const SArguments&) {
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

Json Interface(SSession& session, const SArguments&) {
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

/// The old device goes first: two at once would fight over the camera.
Json New(SSession& session, const SArguments&) {
    session.device.Reset();
    session.device = session.host.NewDevice();
    return Ok(static_cast<bool>(session.device));
}

Json Delete(SSession& session, const SArguments&) {
    session.device.Reset();
    return Ok(true);
}

Json PixelTypes(SSession&, const SArguments&) {
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

Json Open(SSession& session, const SArguments& arguments) {
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

Json Close(SSession& session, const SArguments&) {
    session.device->Close();
    return Ok(true);
}

Json State(SSession& session, const SArguments&) {
    IDevice& device = *session.device;
    return {{"ok", true},
            {"open", device.IsOpen()},
            {"connected", device.IsConnected()},
            {"streaming", device.IsStreaming()},
            {"suspended", device.IsSuspended()}};
}

Json Formats(SSession& session, const SArguments&) {
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

Json SetFormat(SSession& session, const SArguments& arguments) {
    const auto width = static_cast<std::uint16_t>(Whole(arguments[0], mostPixels));
    const auto height = static_cast<std::uint16_t>(Whole(arguments[1], mostPixels));
    const auto type = frames::ParseType(arguments[2]);
    if (!type) throw CWrongCommand("'" + arguments[2] + "' is not raw, jls, jpeg or a GUID");
    return Ok(session.device->SetFormat(width, height, *type));
}

/// A device without a chosen format answers its own placeholder, shown as it is.
Json GetFormat(SSession& session, const SArguments&) {
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

Json Callback(SSession& session, const SArguments&) {
    qmx::cam::FrameCallback callback = nullptr;
    void* context = nullptr;
    session.device->GetFrameCallback(callback, context);
    return {{"ok", true}, {"callback", callback != nullptr}, {"context", context != nullptr}};
}

/// Cleared before the start, since frames come before it returns.
Json Start(SSession& session, const SArguments&) {
    session.frames.Clear();
    return Ok(session.device->StartContinuous(CShellFrames::OnFrame, &session.frames));
}

Json Stop(SSession& session, const SArguments&) { return Ok(session.device->StopContinuous()); }
Json Suspend(SSession& session, const SArguments&) { return Ok(session.device->Suspend()); }
Json Resume(SSession& session, const SArguments&) { return Ok(session.device->Resume()); }

/// A name that the device doesn't know is the typist's mistake, not a failed operation.
SProperty Property(const SSession& session, const std::string& name) {
    const auto& properties = session.device->properties;
    if (auto property = FindProperty(properties, name)) return *std::move(property);
    throw CWrongCommand("no property '" + name + "'; there are " + PropertyNames(properties));
}

Json Get(SSession& session, const SArguments& arguments) {
    qmx::CVariant value;
    const SProperty property = Property(session, arguments[0]);
    const bool done = session.device->properties.get(property.name, value);
    return {{"ok", done}, {"value", ValueAsJson(value)}};
}

/// Answers the value as it was understood; reading it back would be another operation.
Json Set(SSession& session, const SArguments& arguments) {
    const SProperty property = Property(session, arguments[0]);
    const auto value = ParseValue(arguments[1], property.type);
    if (!value) throw CWrongCommand("'" + arguments[1] + "' is no value of " + arguments[0]);
    const bool done = session.device->properties.set(property.name, *value);
    return {{"ok", done}, {"value", ValueAsJson(*value)}};
}

// --- The frames --------------------------------------------------------------------------------

Json Frames(SSession& session, const SArguments&) {
    Json list = Json::array();
    const SFrameList frames = session.frames.Frames();
    for (const SFrameRecord& record : frames.last) {
        char checksum[9];
        std::snprintf(checksum, sizeof(checksum), "%08x", static_cast<unsigned>(record.checksum));
        list.push_back({{"length", record.length}, {"crc32", checksum}});
    }
    return {{"ok", true}, {"count", frames.count}, {"frames", list}};
}

Json Wait(SSession& session, const SArguments& arguments) {
    const std::uint64_t number = Whole(arguments[0], std::numeric_limits<std::uint64_t>::max());
    const bool came = session.frames.WaitFor(number, Time(arguments[1]));
    return {{"ok", came}, {"count", session.frames.count()}};
}

Json Clear(SSession& session, const SArguments&) {
    session.frames.Clear();
    return Ok(true);
}

Json Block(SSession& session, const SArguments& arguments) {
    session.frames.Block(Time(arguments[0]));
    return Ok(true);
}

Json Save(SSession& session, const SArguments& arguments) {
    const std::vector<std::uint8_t> frame = session.frames.LastFrame();
    if (frame.empty()) throw CWrongCommand("no frame to save");
    if (!frames::WriteFile(arguments[0], frame)) throw CWrongCommand("can't write " + arguments[0]);
    return {{"ok", true}, {"length", frame.size()}};
}

Json Sleep(SSession&, const SArguments& arguments) {
    std::this_thread::sleep_for(Time(arguments[0]));
    return Ok(true);
}

// --- The command table -------------------------------------------------------------------------

struct SCommand {
    std::string_view name;
    std::string_view arguments;  ///< for the help and the error
    std::size_t least;           ///< number of arguments
    std::size_t most;
    bool device;  ///< needs one
    bool timed;   ///< its answer says how long it took
    bool rest;    ///< the last of `most` arguments is the rest of the line, blanks and all
    Json (*run)(SSession& session, const SArguments& arguments);
};

constexpr SCommand commands[] = {
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

const SCommand* FindCommand(std::string_view name) {
    for (const SCommand& command : commands) {
        if (command.name == name) return &command;
    }
    return nullptr;
}

std::string Usage(const SCommand& command) {
    std::string text(command.name);
    if (!command.arguments.empty()) text.append(" ").append(command.arguments);
    return text;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// The line without its comment. A comment needs a blank or the line's end behind its # unless it
/// is the whole line: "Roof #2" is how a second camera of one name is announced.
std::string_view WithoutComment(std::string_view line) {
    line = Trimmed(line);
    if (line.starts_with('#')) return {};
    for (std::size_t at = line.find('#'); at != std::string_view::npos;
         at = line.find('#', at + 1)) {
        const bool blankBefore = blanks.find(line[at - 1]) != std::string_view::npos;
        const bool blankBehind =
            at + 1 == line.size() || blanks.find(line[at + 1]) != std::string_view::npos;
        if (blankBefore && blankBehind) return Trimmed(line.substr(0, at));
    }
    return line;
}

/// Takes the first word off a line that has no blanks at its ends.
std::string_view TakeWord(std::string_view& line) {
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line = Trimmed(line.substr(word.size()));
    return word;
}

SArguments SplitArguments(const SCommand& command, std::string_view line) {
    SArguments arguments;
    while (!line.empty()) {
        const bool rest = command.rest && arguments.size() + 1 == command.most;
        arguments.emplace_back(rest ? std::exchange(line, {}) : TakeWord(line));
    }
    if (arguments.size() < command.least || arguments.size() > command.most) {
        throw CWrongCommand("wrong number of arguments; it is: " + Usage(command));
    }
    return arguments;
}

/// To the microsecond; more decimals would only make the lines longer.
double MillisecondsSince(Clock::time_point begun) {
    const std::chrono::duration<double, std::micro> passed = Clock::now() - begun;
    return std::round(passed.count()) / 1000;
}

Json RunCommand(SSession& session, const SCommand& command, std::string_view line) {
    const Clock::time_point begun = Clock::now();
    Json answer;
    try {
        const SArguments arguments = SplitArguments(command, line);
        if (command.device && !session.device) throw CWrongCommand("no device");
        answer = command.run(session, arguments);
    } catch (const std::exception& failure) {
        // Also what an operation let out: a thread that can't be made, memory that isn't there.
        answer = {{"ok", false}, {"error", failure.what()}};
    }
    if (command.timed) answer["ms"] = MillisecondsSince(begun);
    return answer;
}

Json Answer(SSession& session, std::string_view line) {
    const std::string_view name = TakeWord(line);
    if (const SCommand* const command = FindCommand(name)) {
        return RunCommand(session, *command, line);
    }
    return {{"ok", false}, {"error", "unknown command '" + std::string(name) + "'"}};
}

}  // namespace

EExit RunShell(CPluginHost& host, std::istream& input) {
    SSession session{host, {}, host.NewDevice()};
    std::string text;
    while (std::getline(input, text)) {
        const std::string_view line = WithoutComment(text);
        if (!line.empty()) PrintJson(Answer(session, line));
    }
    return EExit::Done;
}

std::string ShellHelp() {
    std::string text;
    for (const SCommand& command : commands) text += "  " + Usage(command) + "\n";
    return text;
}

}  // namespace qmxhost
