#include "Snapshot.h"

#include <cerrno>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>
#include <utility>
#include <variant>

#include "OutputFile.h"
#include "Path.h"
#include "PictureWriter.h"
#include "Recording.h"
#include "Streaming.h"

namespace qmxview {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::string CannotWrite(const fs::path& file) {
    return "cannot write " + platform::Utf8Text(file) + ": " +
           std::generic_category().message(errno);
}

Json RegionAsJson(const CPaneModel& model) {
    const auto& region = model.region();
    const auto& statistics = model.regionStatistics();
    if (!region || !statistics) return nullptr;
    return {{"left", region->left},
            {"top", region->top},
            {"right", region->right},
            {"bottom", region->bottom},
            {"minimum", statistics->coldest.value},
            {"maximum", statistics->hottest.value},
            {"mean", statistics->mean},
            {"deviation", statistics->deviation}};
}

Json CursorAsJson(const CPaneModel& model) {
    const auto& cursor = model.cursor();
    const frames::SGreyPicture& picture = model.shown();
    if (!cursor || cursor->x >= picture.width || cursor->y >= picture.height) return nullptr;
    return {{"x", cursor->x},
            {"y", cursor->y},
            {"value", picture.pixels[std::size_t{cursor->y} * picture.width + cursor->x]}};
}

Json PaneAsJson(const CPane& pane, const fs::path& valuesFile) {
    const CPaneModel& model = pane.model;
    const SRect place = model.viewport.Visible();
    Json json{{"camera", pane.camera()},
              {"address", pane.state().address},
              {"format", hostkit::FormatText(pane.state().format)},
              {"state", pane.StateText(frames::Clock::now())},
              {"error", pane.ErrorText()},
              {"loss", pane.LossText()},
              {"picture", nullptr}};
    if (!model.hasPicture()) return json;
    const frames::SArrival& arrival = model.current()->arrival;
    json["picture"] = {{"x", place.x},
                       {"y", place.y},
                       {"width", place.width},
                       {"height", place.height},
                       {"scale", model.viewport.scale()},
                       {"quarterTurns", model.viewport.quarterTurns()},
                       {"mirrored", model.viewport.mirrored()}};
    json["values"] = platform::Utf8Text(valuesFile.filename());
    json["frame"] = arrival.number;
    json["utc"] = frames::UtcText(arrival.utc);
    json["palette"] = model.settings.palette;
    json["levels"] = {{"low", model.levels().low},
                      {"high", model.levels().high},
                      {"automatic", model.settings.automaticLevels}};
    json["minusReference"] = model.hasReference();
    json["cursor"] = CursorAsJson(model);
    json["region"] = RegionAsJson(model);
    return json;
}

frames::Picture PictureOf(const SViewFrame& frame) {
    if (frame.colours.empty()) return frame.values;
    return frames::SColourPicture{frame.values.width, frame.values.height, frame.colours};
}

bool Write(const fs::path& file, frames::Picture picture) {
    if (const auto* const grey = std::get_if<frames::SGreyPicture>(&picture)) {
        return frames::WritePng(file, *grey, nullptr);
    }
    return frames::WritePng(file, std::get<frames::SColourPicture>(std::move(picture)));
}

}  // namespace

SSnapshot TakeSnapshot(const fs::path& seenFile, frames::SColourPicture window,
                       const std::vector<const CPane*>& panes) {
    SSnapshot snapshot{seenFile, std::move(window), {}, {}, {}};
    Json json;
    for (std::size_t i = 0; i < panes.size(); ++i) {
        const std::string number = panes.size() == 1 ? "" : "-" + std::to_string(i + 1);
        fs::path values = seenFile;
        values.replace_filename(seenFile.stem() += "-values" + number + ".png");
        json["panes"].push_back(PaneAsJson(*panes[i], values));
        if (panes[i]->model.hasPicture()) {
            snapshot.values.push_back({values, PictureOf(*panes[i]->model.current())});
        }
    }
    snapshot.descriptionFile = fs::path(seenFile).replace_extension(".json");
    snapshot.description = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    return snapshot;
}

std::string WriteSnapshot(SSnapshot snapshot) {
    try {
        if (!frames::WritePng(snapshot.seenFile, std::move(snapshot.window))) {
            return CannotWrite(snapshot.seenFile);
        }
        for (auto& [file, picture] : snapshot.values) {
            if (!Write(file, std::move(picture))) return CannotWrite(file);
        }
    } catch (const std::exception& failure) {
        return "cannot write " + platform::Utf8Text(snapshot.seenFile) + ": " + failure.what();
    }
    const auto bytes = std::span(reinterpret_cast<const std::uint8_t*>(snapshot.description.data()),
                                 snapshot.description.size());
    if (!frames::WriteFile(snapshot.descriptionFile, bytes)) {
        return CannotWrite(snapshot.descriptionFile);
    }
    return {};
}

}  // namespace qmxview
