#include "Snapshot.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <utility>

#include "OutputFile.h"
#include "PictureWriter.h"
#include "Recording.h"
#include "Streaming.h"

namespace qmxview {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::string CannotWrite(const std::string& file) {
    return "cannot write " + file + "; does the folder exist, and is there room on the disk?";
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

Json PaneAsJson(const CPane& pane, const std::string& valuesFile) {
    const CPaneModel& model = pane.model;
    const SRect place = model.viewport.Visible();
    Json json{{"camera", pane.camera()},
              {"address", pane.state().address},
              {"format", hostkit::FormatText(pane.state().format)},
              {"state", pane.StateText(frames::Clock::now())},
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
    json["values"] = fs::path(valuesFile).filename().string();
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

bool SaveValues(const std::string& file, const SViewFrame& frame) {
    if (frame.colours.empty()) return frames::WritePng(file, frame.values, nullptr);
    return frames::WritePng(
        file, frames::SColourPicture{frame.values.width, frame.values.height, frame.colours});
}

}  // namespace

std::string SaveSnapshot(const std::string& seen, frames::SColourPicture window,
                         const std::vector<const CPane*>& panes) {
    if (!frames::WritePng(seen, std::move(window))) return CannotWrite(seen);
    const fs::path path(seen);
    Json json;
    for (std::size_t i = 0; i < panes.size(); ++i) {
        const std::string number = panes.size() == 1 ? "" : "-" + std::to_string(i + 1);
        fs::path values = path;
        values.replace_filename(path.stem().string() + "-values" + number + ".png");
        json["panes"].push_back(PaneAsJson(*panes[i], values.string()));
        if (!panes[i]->model.hasPicture()) continue;
        if (!SaveValues(values.string(), *panes[i]->model.current())) {
            return CannotWrite(values.string());
        }
    }
    fs::path description = path;
    description.replace_extension(".json");
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    const auto bytes = std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    return frames::WriteFile(description.string(), bytes) ? "" : CannotWrite(description.string());
}

}  // namespace qmxview
