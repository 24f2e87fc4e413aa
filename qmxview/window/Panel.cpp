#include "Panel.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "Diagnosis.h"
#include "HistogramPlot.h"
#include "PixelTypeNames.h"
#include "Streaming.h"

namespace qmxview {
namespace {

void Row(const char* name, const std::string& value) {
    ImGui::TextDisabled("%s", name);
    ImGui::SameLine(ImGui::GetFontSize() * 7.5F);
    ImGui::TextUnformatted(value.c_str());
}

void Heading(const char* text) {
    ImGui::Spacing();
    ImGui::Separator();
    ImGui::TextDisabled("%s", text);
}

/// Returns how a width is shared by several buttons in a row.
float ButtonWidth(int count) {
    const float gaps = ImGui::GetStyle().ItemSpacing.x * static_cast<float>(count - 1);
    return std::floor((ImGui::GetContentRegionAvail().x - gaps) / static_cast<float>(count));
}

/// Shown where there is no value.
constexpr const char* none = "\u2013";

int Inside(double value) { return static_cast<int>(std::clamp(value, 0.0, 65535.0)); }

}  // namespace

SPanelResult CPanel::Show(CPane& pane, const SRect& place, double unit, bool several, bool& linked,
                          const hostkit::SLoss& system) {
    result = {};
    unitPixels = static_cast<float>(unit);
    if (shownPane != &pane) {
        shownPane = &pane;
        histogramRange = {};
        typingRate = false;
    }
    ImGui::SetNextWindowPos(ImVec2(static_cast<float>(place.x), static_cast<float>(place.y)));
    ImGui::SetNextWindowSize(
        ImVec2(static_cast<float>(place.width), static_cast<float>(place.height)));
    ImGui::Begin("panel", nullptr,
                 ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                     ImGuiWindowFlags_NoCollapse | ImGuiWindowFlags_NoBringToFrontOnFocus |
                     ImGuiWindowFlags_NoNav);
    ShowCamera(pane);
    ShowPicture(pane);
    ShowLevels(pane, several, linked);
    ShowMarks(pane);
    ShowMeasurements(pane);
    ShowReception(pane, system);
    ImGui::End();
    return result;
}

void CPanel::Button(const char* text, ECommand command, float width) {
    if (ImGui::Button(text, ImVec2(width, 0))) result.command = command;
}

void CPanel::ShowCamera(CPane& pane) {
    const SCameraState& state = pane.state();
    const char* const hint = "H: keys";
    const float hintAt = ImGui::GetWindowContentRegionMax().x - ImGui::CalcTextSize(hint).x;
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    const float end = ImGui::GetWindowPos().x + hintAt - ImGui::GetStyle().ItemSpacing.x;
    ImGui::PushClipRect(corner, ImVec2(end, corner.y + ImGui::GetTextLineHeight()), true);
    ImGui::PushStyleColor(ImGuiCol_Text, accentColour);
    ImGui::TextUnformatted(pane.camera().c_str());
    ImGui::PopStyleColor();
    ImGui::SameLine();
    ImGui::TextDisabled("%s", state.busy ? "working" : state.address.c_str());
    ImGui::PopClipRect();
    ImGui::SameLine(hintAt);
    ImGui::TextDisabled("%s", hint);

    ImGui::SetNextItemWidth(-1);
    const std::string present =
        state.format.width == 0 ? "no format" : hostkit::FormatText(state.format);
    if (ImGui::BeginCombo("##format", present.c_str())) {
        for (std::size_t i = 0; i < state.formats.size(); ++i) {
            const std::string text = hostkit::FormatText(state.formats[i]);
            ImGui::PushID(static_cast<int>(i));
            if (ImGui::Selectable(text.c_str(), text == present)) pane.Request(SSetFormat{i});
            ImGui::PopID();
        }
        ImGui::EndCombo();
    }
    ShowRate(pane);
    const float width = ButtonWidth(2);
    Button(state.phase == EPhase::Paused ? "Resume camera" : "Pause camera", ECommand::PauseCamera,
           width);
    ImGui::SameLine();
    Button("Connect again", ECommand::Reconnect, width);
    Button(pane.frozen() ? "Resume" : "Freeze", ECommand::Freeze, width);
    ImGui::SameLine();
    Button("Snapshot", ECommand::Snapshot, width);
    if (pane.recording()) ImGui::PushStyleColor(ImGuiCol_Button, recordColour);
    const bool wasRecording = pane.recording();
    Button(wasRecording ? "Stop recording" : "Record", ECommand::Record, -1);
    if (wasRecording) ImGui::PopStyleColor();
}

/// Shows the frame rate that the camera is set to. A compressed camera does not report its rate:
/// the plug-in knows only which rate it will request.
void CPanel::ShowRate(CPane& pane) {
    const SCameraState& state = pane.state();
    if (!typingRate) rate = state.rate.value_or(0);
    ImGui::SetNextItemWidth(ImGui::GetFontSize() * 5);
    const bool raw = state.format.pixelType == frames::rawType;
    ImGui::InputDouble(!state.rate ? "frames/s, unknown"
                       : raw       ? "frames/s"
                                   : "frames/s, on request",
                       &rate, 0, 0, state.rate || typingRate ? "%.2f" : "");
    typingRate = ImGui::IsItemActive();
    if (!ImGui::IsItemDeactivatedAfterEdit()) return;
    if (rate > 0) {
        pane.Request(SSetRate{rate});
    } else {
        pane.SetError("a frame rate must be above 0");
    }
}

void CPanel::ShowPicture(CPane& pane) {
    Heading("PICTURE");
    ImGui::SetNextItemWidth(ImGui::GetFontSize() * 8);
    std::string& palette = pane.model.settings.palette;
    if (ImGui::BeginCombo("palette", palette.c_str())) {
        for (const std::string& name : frames::PaletteNames()) {
            if (ImGui::Selectable(name.c_str(), name == palette)) palette = name;
        }
        ImGui::EndCombo();
    }
    const float width = ButtonWidth(6);
    Button("-", ECommand::ZoomOut, width);
    ImGui::SameLine();
    Button("+", ECommand::ZoomIn, width);
    ImGui::SameLine();
    Button("Fit", ECommand::Fit, width);
    ImGui::SameLine();
    Button("1:1", ECommand::OneToOne, width);
    ImGui::SameLine();
    Button("Turn", ECommand::Rotate, width);
    ImGui::SameLine();
    Button("Flip", ECommand::Mirror, width);
}

void CPanel::ShowLevels(CPane& pane, bool several, bool& linked) {
    CPaneModel& model = pane.model;
    Heading("LEVELS");
    if (model.coloured() && !model.hasReference()) {
        ImGui::TextDisabled("JPEG frames have their own colours.");
        return;
    }
    bool automatic = model.settings.automaticLevels;
    if (ImGui::Checkbox("automatic", &automatic)) result.command = ECommand::AutomaticLevels;
    if (several) {
        ImGui::SameLine();
        ImGui::Checkbox("same in all panes", &linked);
    }
    ImGui::SetNextItemWidth(ImGui::GetFontSize() * 8);
    auto percentile = static_cast<float>(model.settings.percentile);
    if (ImGui::SliderFloat("ignored pixels", &percentile, 0, 10, "%.1f %%",
                           ImGuiSliderFlags_AlwaysClamp)) {
        model.settings.percentile = static_cast<double>(percentile);
        model.SettingsChanged();
    }
    ShowHistogram(pane);
    const frames::SLevels levels = model.levels();
    ImGui::TextUnformatted(model.ValueText(levels.low).c_str());
    const std::string high = model.ValueText(levels.high);
    const float width = ImGui::CalcTextSize(high.c_str()).x;
    ImGui::SameLine(ImGui::GetWindowContentRegionMax().x - width);
    ImGui::TextUnformatted(high.c_str());
}

/// Draws the histogram with both levels as handles.
void CPanel::ShowHistogram(CPane& pane) {
    CPaneModel& model = pane.model;
    const frames::SLevels levels = model.levels();
    if (draggedLevel == 0) histogramRange = PlotRange(model.histogram(), levels, histogramRange);
    const frames::SLevels& range = histogramRange;
    const ImVec2 size(ImGui::GetContentRegionAvail().x, 62 * unitPixels);
    const ImVec2 corner = ImGui::GetCursorScreenPos();
    ImGui::InvisibleButton("histogram", size);
    ImDrawList& list = *ImGui::GetWindowDrawList();
    list.AddRectFilled(corner, ImVec2(corner.x + size.x, corner.y + size.y), backgroundColour);
    float x = corner.x;
    for (const float height :
         PlotColumns(model.histogram(), range, static_cast<std::size_t>(size.x))) {
        const float top = corner.y + size.y - height * (size.y - 4);
        list.AddRectFilled(ImVec2(x, top), ImVec2(x + 1, corner.y + size.y), faintColour);
        ++x;
    }
    const double width = range.high - range.low + 1;
    for (const double level : {levels.low, levels.high}) {
        const float at = corner.x + static_cast<float>((level - range.low) / width) * size.x;
        const float left = std::clamp(at, corner.x, corner.x + size.x - 2);
        list.AddRectFilled(ImVec2(left, corner.y), ImVec2(left + 2 * unitPixels, corner.y + size.y),
                           accentColour);
    }
    if (!ImGui::IsItemActive()) {
        draggedLevel = 0;
        return;
    }
    const double share = static_cast<double>((ImGui::GetMousePos().x - corner.x) / size.x);
    model.LockLevels(DragLevel(levels, range.low + share * width, draggedLevel));
}

void CPanel::ShowMarks(CPane& pane) {
    SPaneSettings& settings = pane.model.settings;
    Heading("MARKS");
    if (ImGui::Checkbox("hottest and coldest pixel", &settings.markSpots))
        pane.model.SettingsChanged();
    // Marks select values of the camera; with a reference the picture shows differences.
    ImGui::BeginDisabled(pane.model.hasReference());
    ImGui::Checkbox("saturated from", &settings.markSaturation);
    ImGui::SameLine();
    ImGui::SetNextItemWidth(-1);
    if (ImGui::InputInt("##saturation", &settings.saturation, 0)) {
        settings.saturation = Inside(settings.saturation);
    }
    bool isotherm = settings.markIsotherm;
    if (ImGui::Checkbox("isotherm", &isotherm)) result.command = ECommand::Isotherm;
    ImGui::SameLine();
    ImGui::SetNextItemWidth(-1);
    int range[2] = {settings.isotherm.low, settings.isotherm.high};
    if (ImGui::InputInt2("##isotherm", range)) {
        settings.isotherm = {static_cast<std::uint16_t>(Inside(range[0])),
                             static_cast<std::uint16_t>(Inside(range[1]))};
    }
    ImGui::EndDisabled();
}

void CPanel::ShowMeasurements(CPane& pane) {
    CPaneModel& model = pane.model;
    const auto& statistics = model.regionStatistics();
    Heading("MEASURE");
    ImGui::SameLine();
    const std::string about =
        statistics ? std::to_string(statistics->pixels) + " pixels" : "drag over the picture";
    ImGui::TextDisabled("%s", about.c_str());
    // The rows are always there, so that nothing moves when a region comes or goes.
    const auto value = [&](double number) { return model.ValueText(number); };
    Row("minimum", statistics ? value(statistics->coldest.value) : none);
    Row("maximum", statistics ? value(statistics->hottest.value) : none);
    Row("mean", statistics ? value(statistics->mean) : none);
    Row("deviation", statistics ? model.DistanceText(statistics->deviation) : none);
    const std::vector<float>& series = model.series().all();
    const auto [low, high] =
        series.empty() ? std::ranges::minmax_result<float>{0, 0} : std::ranges::minmax(series);
    const float margin = std::max((high - low) / 8, 0.5F);
    ImGui::PlotLines("##series", series.data(), static_cast<int>(series.size()), 0, nullptr,
                     low - margin, high + margin,
                     ImVec2(ImGui::GetContentRegionAvail().x, 32 * unitPixels));
    const auto decimal = [](float number) { return Plain(static_cast<double>(number)); };
    const std::string text = series.empty() ? "value over time: cursor or region"
                                            : std::string(statistics ? "region mean " : "cursor ") +
                                                  decimal(low) + ".." + decimal(high) + ", " +
                                                  std::to_string(series.size()) + " frames";
    ImGui::TextDisabled("%s", text.c_str());
    bool subtract = model.hasReference();
    if (ImGui::Checkbox("subtract reference", &subtract)) result.command = ECommand::Reference;
}

void CPanel::ShowReception(CPane& pane, const hostkit::SLoss& system) {
    const SPaneRates rates = pane.rates();
    Heading("RECEPTION");
    Row("shown",
        Fixed(rates.shownPerSecond, 1) + "/s, " + Fixed(pane.MedianAgeMs(), 1) + " ms old");
    const auto gap = pane.LongestGap(frames::Clock::now());
    Row("longest gap", Fixed(frames::Milliseconds(gap), 0) + " ms");
    const auto& dropped = system.droppedDatagrams;
    Row("dropped here", dropped ? std::to_string(*dropped) + " datagrams" : "not counted");
    const std::string place = pane.LossPlace();
    Row("frames lost", place.empty() ? none : place);
    ImGui::TextDisabled("buffer, %s", hostkit::ReceiveBufferText(system.buffers).c_str());
}

void CPanel::ShowHelp(const SRect& area, double unit) {
    const float lineHeight = ImGui::GetTextLineHeightWithSpacing();
    const auto lines = static_cast<float>(KeyHelp().size());
    const ImVec2 size(std::min(static_cast<float>(area.width), static_cast<float>(520 * unit)),
                      std::min(static_cast<float>(area.height),
                               lineHeight * lines + static_cast<float>(16 * unit)));
    ImGui::SetNextWindowPos(ImVec2(
        std::floor(static_cast<float>(area.x) + (static_cast<float>(area.width) - size.x) / 2),
        std::floor(static_cast<float>(area.y) + (static_cast<float>(area.height) - size.y) / 2)));
    ImGui::SetNextWindowSize(size);
    ImGui::Begin("keys", nullptr,
                 ImGuiWindowFlags_NoTitleBar | ImGuiWindowFlags_NoResize | ImGuiWindowFlags_NoMove |
                     ImGuiWindowFlags_NoSavedSettings);
    for (const SKeyHelp& line : KeyHelp()) {
        ImGui::PushStyleColor(ImGuiCol_Text, accentColour);
        ImGui::TextUnformatted(line.keys.data(), line.keys.data() + line.keys.size());
        ImGui::PopStyleColor();
        ImGui::SameLine(ImGui::GetFontSize() * 10);
        ImGui::TextUnformatted(line.meaning.data(), line.meaning.data() + line.meaning.size());
    }
    ImGui::End();
}

}  // namespace qmxview
