#include <algorithm>
#include <cmath>
#include <utility>

#include "CameraProbe.h"
#include "Commands.h"
#include "PixelTypeNames.h"
#include "Properties.h"

namespace qmxhost {
namespace {

SProperty Wanted(const COpenCamera& camera, const std::string& name) {
    if (auto property = FindProperty(camera->properties, name)) return *std::move(property);
    throw CFailure(EExit::Usage, "camera " + camera.address() + " has no property '" + name +
                                     "'; it has " + PropertyNames(camera->properties));
}

/// Fails for a wrong name, before anything is shown.
std::vector<SProperty> WantedOrAll(const COpenCamera& camera,
                                   const std::vector<std::string>& names) {
    std::vector<SProperty> wanted;
    for (const std::string& name : names) wanted.push_back(Wanted(camera, name));
    const auto& all = camera->properties;
    for (std::size_t i = 0; names.empty() && i < all.count(); ++i) {
        wanted.push_back({all.nameAt(i), all.typeAt(i)});
    }
    return wanted;
}

/// Shows the values. One that cannot be read is null and makes the command fail after all have been
/// shown.
EExit Show(const COpenCamera& camera, const std::vector<SProperty>& wanted, bool withTree,
           bool json) {
    Json values = Json::object();
    EExit result = EExit::Done;
    for (const SProperty& property : wanted) {
        qmx::CVariant value;
        const bool read = camera->properties.get(property.name, value);
        const Json shown = read ? ValueAsJson(value) : Json();
        values[Text(property.name)] = shown;
        if (!read) {
            result = EExit::Failed;
            PrintError("cannot read " + Text(property.name) + " of camera " + camera.address() +
                       ": " + RateObstacle(camera.address(), withTree));
        } else if (!json) {
            const std::string text = shown.is_string() ? shown.get<std::string>() : shown.dump();
            Print(Text(property.name) + "=" + text + "\n");
        }
    }
    if (json) PrintJson({{"camera", camera.address()}, {"properties", values}});
    return result;
}

struct SAssignment {
    std::string name;
    std::string value;
};

/// Done before the camera is opened, so that a typing error does not disturb it.
std::vector<SAssignment> Split(const std::vector<std::string>& texts) {
    std::vector<SAssignment> assignments;
    for (const std::string& text : texts) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw CFailure(EExit::Usage, "'" + text + "' is not NAME=VALUE");
        }
        assignments.push_back({text.substr(0, equals), text.substr(equals + 1)});
    }
    return assignments;
}

/// Returns the values that a property accepts, for an error message.
const char* TypeText(qmx::EType type) {
    if (type == qmx::EType::Bool) return "true or false";
    return type == qmx::EType::Float64 ? "a number" : "a text";
}

/// Returns true for equal values. A camera may store a number with fewer digits.
bool Agree(const Json& now, const Json& wanted) {
    if (!now.is_number() || !wanted.is_number()) return now == wanted;
    constexpr double precision = 1e-4;
    const double number = wanted.get<double>();
    return std::abs(now.get<double>() - number) <= precision * std::abs(number);
}

/// Reports the properties that do not have the value that was set. Returns true if there is one.
bool ReportUnheld(const COpenCamera& camera, const std::vector<SProperty>& properties,
                  const std::vector<qmx::CVariant>& values) {
    bool unheld = false;
    for (std::size_t i = 0; i < properties.size(); ++i) {
        qmx::CVariant now;
        const Json wanted = ValueAsJson(values[i]);
        if (!camera->properties.get(properties[i].name, now) || Agree(ValueAsJson(now), wanted)) {
            continue;
        }
        unheld = true;
        const std::string name = Text(properties[i].name);
        PrintError(name + " of camera " + camera.address() + " was set to " + wanted.dump() +
                   ", but is " + ValueAsJson(now).dump() +
                   (name == "/Paused" ? "; without a stream it is always true: use 'qmxhost shell'"
                                      : "; the camera does not support that value"));
    }
    return unheld;
}

/// Reports the properties whose value ends with this command, because only the device object, not
/// the camera, keeps it.
void ReportForgotten(COpenCamera& camera, const std::vector<SProperty>& properties) {
    const auto formats = camera.Formats();
    const bool raw = std::ranges::any_of(
        formats, [](const auto& each) { return each.pixelType == frames::rawType; });
    for (const SProperty& property : properties) {
        const std::string name = Text(property.name);
        const bool rate = name == "/FrameRate";
        if (name == "/Paused" || (rate && raw)) continue;
        PrintError(
            name + " of camera " + camera.address() +
            " was set for this command only, because the camera does not store it: use '" +
            (rate ? "qmxhost stream " + camera.address() + " --rate FPS'" : "qmxhost shell'"));
    }
}

}  // namespace

EExit RunGet(CPluginHost& host, const SCameraChoice& choice, const std::vector<std::string>& names,
             bool json) {
    const COpenCamera camera(host, choice.nameOrAddress, OpenFlags(choice));
    return Show(camera, WantedOrAll(camera, names), !choice.noTree, json);
}

EExit RunSet(CPluginHost& host, const SCameraChoice& choice,
             const std::vector<std::string>& assignments, bool json) {
    const std::vector<SAssignment> wanted = Split(assignments);
    COpenCamera camera(host, choice.nameOrAddress, OpenFlags(choice));
    std::vector<SProperty> properties;
    std::vector<qmx::CVariant> values;
    // All are checked before the first is set, so that a mistake in the last one changes nothing.
    for (const auto& [name, text] : wanted) {
        properties.push_back(Wanted(camera, name));
        auto value = ParseValue(text, properties.back().type);
        if (!value) {
            throw CFailure(EExit::Usage, name + " is " + TypeText(properties.back().type) +
                                             ", not '" + text + "'");
        }
        values.push_back(*std::move(value));
    }
    for (std::size_t i = 0; i < properties.size(); ++i) {
        if (camera->properties.set(properties[i].name, values[i])) continue;
        throw CFailure(EExit::Failed, "cannot set " + Text(properties[i].name) + " of camera " +
                                          camera.address() + " to " + wanted[i].value + ": " +
                                          RateObstacle(camera.address(), !choice.noTree));
    }
    const EExit shown = Show(camera, properties, !choice.noTree, json);
    if (ReportUnheld(camera, properties, values)) return EExit::Failed;
    ReportForgotten(camera, properties);
    return shown;
}

}  // namespace qmxhost
