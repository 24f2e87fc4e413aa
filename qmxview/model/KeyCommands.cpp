#include "KeyCommands.h"

#include <algorithm>

namespace qmxview {
namespace {

enum class EShift { Without, With, Either };

struct SKey {
    std::string_view name;
    EShift shift;
    ECommand command;
};

constexpr SKey keys[] = {
    {"Space", EShift::Either, ECommand::Freeze},
    {"S", EShift::Either, ECommand::Snapshot},
    {"R", EShift::Either, ECommand::Record},
    {"P", EShift::Without, ECommand::NextPalette},
    {"P", EShift::With, ECommand::PreviousPalette},
    {"A", EShift::Either, ECommand::AutomaticLevels},
    {"L", EShift::Either, ECommand::LinkLevels},
    {"+", EShift::Either, ECommand::ZoomIn},
    {"=", EShift::Either, ECommand::ZoomIn},  // the key of + on many keyboards
    {"Keypad +", EShift::Either, ECommand::ZoomIn},
    {"-", EShift::Either, ECommand::ZoomOut},
    {"Keypad -", EShift::Either, ECommand::ZoomOut},
    {"F", EShift::Either, ECommand::Fit},
    {"1", EShift::Either, ECommand::OneToOne},
    {"Left", EShift::Either, ECommand::PanLeft},
    {"Right", EShift::Either, ECommand::PanRight},
    {"Up", EShift::Either, ECommand::PanUp},
    {"Down", EShift::Either, ECommand::PanDown},
    {"T", EShift::Either, ECommand::Rotate},
    {"M", EShift::Either, ECommand::Mirror},
    {"X", EShift::Either, ECommand::Spots},
    {"B", EShift::Either, ECommand::Saturation},
    {"I", EShift::Either, ECommand::Isotherm},
    {"D", EShift::Either, ECommand::Reference},
    {"K", EShift::Either, ECommand::PauseCamera},
    {"C", EShift::Either, ECommand::Reconnect},
    {"Tab", EShift::Either, ECommand::NextPane},
    {"H", EShift::Either, ECommand::Help},
    {"Q", EShift::Either, ECommand::Quit},
    {"Escape", EShift::Either, ECommand::Quit},
};

constexpr SKeyHelp help[] = {
    {"Space", "freeze the picture, or resume"},
    {"S", "save a snapshot: exact values, and the window as seen"},
    {"R", "start or stop a recording"},
    {"P, Shift+P", "next or previous palette"},
    {"A", "automatic levels, or keep the present ones"},
    {"L", "same levels in all panes"},
    {"+, -, wheel", "zoom"},
    {"F, 1", "fit the picture, or show it pixel by pixel"},
    {"arrows, right drag", "move the picture"},
    {"T, M", "turn the picture by 90 degrees, or mirror it"},
    {"left drag", "measure a region; a click removes it"},
    {"X", "mark the hottest and the coldest pixel"},
    {"B, I", "mark saturated pixels, or the isotherm"},
    {"D", "subtract this picture from now on, or stop that"},
    {"K", "pause the camera, or resume"},
    {"C", "connect the camera again"},
    {"Tab", "next pane"},
    {"H", "show or hide these keys"},
    {"Q, Esc", "quit"},
};

}  // namespace

std::optional<ECommand> CommandOfKey(std::string_view name, std::string_view position, bool shift) {
    const bool ascii =
        std::ranges::all_of(name, [](unsigned char letter) { return letter < 0x80; });
    if (!ascii) name = position;
    const auto* const key = std::ranges::find_if(keys, [&](const SKey& each) {
        const bool fits = each.shift == EShift::Either || shift == (each.shift == EShift::With);
        return fits && each.name == name;
    });
    if (key == std::end(keys)) return std::nullopt;
    return key->command;
}

std::span<const SKeyHelp> KeyHelp() { return help; }

}  // namespace qmxview
