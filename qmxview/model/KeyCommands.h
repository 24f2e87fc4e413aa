/// The keys of the live view.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace qmxview {

enum class ECommand {
    Freeze,
    Snapshot,
    Record,
    NextPalette,
    PreviousPalette,
    AutomaticLevels,
    LinkLevels,
    ZoomIn,
    ZoomOut,
    Fit,
    OneToOne,
    PanLeft,
    PanRight,
    PanUp,
    PanDown,
    Rotate,
    Mirror,
    Spots,
    Saturation,
    Isotherm,
    Reference,
    PauseCamera,
    Reconnect,
    NextPane,
    Help,
    Quit,
};

/// One line of the help.
struct SKeyHelp {
    std::string_view keys;
    std::string_view meaning;
};

/// Returns the command of a key. `name` is SDL's name of it, such as "Space", "P" or "Left";
/// `position` is that of the same key on a US keyboard, which counts if the name is not ASCII, as
/// with a Cyrillic or Greek layout.
[[nodiscard]] std::optional<ECommand> CommandOfKey(std::string_view name, std::string_view position,
                                                   bool shift);
/// Returns all keys in the order of the help.
[[nodiscard]] std::span<const SKeyHelp> KeyHelp();

}  // namespace qmxview
