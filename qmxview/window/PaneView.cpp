#include "PaneView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace qmxview {
namespace {

/// Movement, in screen pixels, below which a drag is a click.
constexpr int clickTolerance = 3;

ImVec2 Corner(const SPoint& point) {
    return {static_cast<float>(std::round(point.x)), static_cast<float>(std::round(point.y))};
}

SRect Inset(const SRect& rect, double unit) {
    const int margin = static_cast<int>(8 * unit);
    return {rect.x + margin, rect.y, std::max(0, rect.width - 2 * margin), rect.height};
}

int TextWidth(const std::string& text) {
    const ImFont* const font = ImGui::GetIO().Fonts->Fonts.front();
    return static_cast<int>(
        std::ceil(font->CalcTextSizeA(font->FontSize, FLT_MAX, 0, text.c_str()).x));
}

void PushClip(ImDrawList& list, const SRect& rect) {
    list.PushClipRect(
        ImVec2(static_cast<float>(rect.x), static_cast<float>(rect.y)),
        ImVec2(static_cast<float>(rect.x + rect.width), static_cast<float>(rect.y + rect.height)),
        true);
}

void Fill(SDL_Renderer* renderer, const SRect& rect, ImU32 colour) {
    const ImVec4 parts = ImGui::ColorConvertU32ToFloat4(colour);
    const auto byte = [](float part) { return static_cast<Uint8>(std::lround(part * 255)); };
    SDL_SetRenderDrawColor(renderer, byte(parts.x), byte(parts.y), byte(parts.z), 255);
    const SDL_Rect area{rect.x, rect.y, rect.width, rect.height};
    SDL_RenderFillRect(renderer, &area);
}

/// Draws lines in the middle of a dark border, so that they are visible on any picture.
void DrawCross(ImDrawList& list, ImVec2 at, float size, ImU32 colour) {
    for (const auto& [tint, width] : {std::pair(IM_COL32(0, 0, 0, 255), 3.0F), {colour, 1.0F}}) {
        list.AddLine(ImVec2(at.x - size, at.y), ImVec2(at.x + size + 1, at.y), tint, width);
        list.AddLine(ImVec2(at.x, at.y - size), ImVec2(at.x, at.y + size + 1), tint, width);
    }
}

/// Space to the left and to the right of a label's text.
constexpr int labelMargin = 3;

/// Writes a text on a dark ground.
void DrawLabel(ImDrawList& list, const SRect& place, const std::string& text) {
    if (place.empty()) return;
    const ImFont* const font = ImGui::GetIO().Fonts->Fonts.front();
    const ImVec2 corner(static_cast<float>(place.x), static_cast<float>(place.y));
    list.AddRectFilled(corner,
                       ImVec2(corner.x + static_cast<float>(place.width),
                              corner.y + static_cast<float>(place.height)),
                       IM_COL32(0, 0, 0, 200));
    list.AddText(font, font->FontSize, ImVec2(corner.x + labelMargin, corner.y), textColour,
                 text.c_str());
}

}  // namespace

void CPaneView::SetLayout(const SPaneLayout& place) {
    where = place;
    pane.model.viewport.SetArea(place.picture);
}

void CPaneView::Paint(SDL_Renderer* renderer, frames::Clock::time_point now) {
    painted = pane.model.hasPicture() ? pane.model.viewport.Visible() : SRect{};
    if (painted.empty()) return canvas.Release();
    canvas.Resize(renderer, painted.width, painted.height);
    const CCanvas::SRows rows = canvas.BeginWriting();
    if (rows.pixels == nullptr) return;
    pane.model.Paint(rows.pixels, rows.pitch, pane.stale(now));
    canvas.EndWriting();
}

void CPaneView::Draw(SDL_Renderer* renderer, COverlay& overlay, double unit, bool selected,
                     frames::Clock::time_point now) const {
    Fill(renderer, where.header, panelColour);
    Fill(renderer, where.footer, panelColour);
    canvas.Draw(renderer, painted.x, painted.y);
    DrawMarks(overlay, unit);
    DrawTexts(overlay, unit, selected, now);
}

void CPaneView::DrawMarks(COverlay& overlay, double unit) const {
    const CPaneModel& model = pane.model;
    if (painted.empty()) return;
    ImDrawList& list = overlay.list();
    PushClip(list, painted);
    if (const auto& region = model.region()) {
        const ImVec2 a = Corner(model.viewport.ToScreen(
            {static_cast<double>(region->left), static_cast<double>(region->top)}));
        const ImVec2 b = Corner(model.viewport.ToScreen(
            {static_cast<double>(region->right), static_cast<double>(region->bottom)}));
        const ImVec2 low(std::min(a.x, b.x), std::min(a.y, b.y));
        const ImVec2 high(std::max(a.x, b.x), std::max(a.y, b.y));
        list.AddRect(low, high, IM_COL32(0, 0, 0, 255), 0, 0, 3);
        list.AddRect(low, high, IM_COL32(255, 255, 255, 255));
    }
    if (const auto& spots = model.spots()) {
        const auto size = static_cast<float>(std::round(7 * unit));
        std::array<SLabel, 2> labels;
        std::array<std::string, 2> texts;
        const int height = static_cast<int>(std::ceil(ImGui::GetIO().Fonts->Fonts[0]->FontSize));
        for (std::size_t i = 0; i < labels.size(); ++i) {
            const auto& spot = i == 0 ? spots->hottest : spots->coldest;
            const SPoint at = model.viewport.ToScreen({spot.x + 0.5, spot.y + 0.5});
            DrawCross(list, Corner(at), size, i == 0 ? recordColour : accentColour);
            texts[i] = model.ValueText(spot.value);
            labels[i] = {at, TextWidth(texts[i]) + 2 * labelMargin, height};
        }
        const auto places = PlaceLabels(labels, static_cast<int>(1.4F * size), painted);
        for (std::size_t i = 0; i < places.size(); ++i) DrawLabel(list, places[i], texts[i]);
    }
    list.PopClipRect();
}

void CPaneView::DrawTexts(COverlay& overlay, double unit, bool selected,
                          frames::Clock::time_point now) const {
    const SRect header = Inset(where.header, unit);
    const SRect footer = Inset(where.footer, unit);
    const int line = footer.height / 2;
    const SRect upper{footer.x, footer.y + static_cast<int>(2 * unit), footer.width, line};
    const SRect lower{footer.x, footer.y + line, footer.width, line};
    // What is unusual has priority over names, and the value under the cursor over messages.
    const std::string state = pane.StateText(now);
    const int stateWidth = TextWidth(state);
    overlay.Text(header, warningColour, state, true);
    const int titleWidth =
        header.width - stateWidth - static_cast<int>(stateWidth == 0 ? 0 : 12 * unit);
    overlay.Text({header.x, header.y, titleWidth, header.height},
                 selected ? accentColour : textColour, pane.HeaderText());
    const std::string cursor = pane.model.CursorText();
    const int cursorWidth = TextWidth(cursor);
    overlay.Text(upper, textColour, cursor);
    overlay.Text({upper.x + cursorWidth + static_cast<int>(12 * unit), upper.y,
                  upper.width - cursorWidth - static_cast<int>(12 * unit), upper.height},
                 pane.recording() ? recordColour : faintColour, pane.MessageText(), true);
    overlay.Text(lower, faintColour, pane.RateText());
    DrawError(overlay, unit);
}

/// Explains a failure in full sentences, on the lower part of the picture.
void CPaneView::DrawError(COverlay& overlay, double unit) const {
    const std::string error = pane.ErrorText();
    const SRect room = Inset(where.picture, 2 * unit);
    if (error.empty() || room.empty()) return;
    const ImFont* const font = ImGui::GetIO().Fonts->Fonts.front();
    const auto width = static_cast<float>(room.width);
    const ImVec2 size = font->CalcTextSizeA(font->FontSize, FLT_MAX, width, error.c_str());
    const auto x = static_cast<float>(room.x);
    const auto margin = static_cast<float>(8 * unit);
    const float y = static_cast<float>(room.y) +
                    std::max(0.0F, static_cast<float>(room.height) - size.y - 2 * margin);
    ImDrawList& list = overlay.list();
    PushClip(list, where.picture);
    list.AddRectFilled(ImVec2(x - margin, y - margin),
                       ImVec2(x + size.x + margin, y + size.y + margin), IM_COL32(0, 0, 0, 220));
    list.AddText(font, font->FontSize, ImVec2(x, y), warningColour, error.c_str(), nullptr, width);
    list.PopClipRect();
}

std::optional<frames::SRegion> CPaneView::DraggedRegion() const {
    const SRect visible = pane.model.viewport.Visible();
    if (visible.empty()) return std::nullopt;
    const auto inside = [&](int x, int y) {
        return pane.model.viewport.PixelAt(
            std::clamp(x, visible.x, visible.x + visible.width - 1),
            std::clamp(y, visible.y, visible.y + visible.height - 1));
    };
    const auto from = inside(drag->startX, drag->startY);
    const auto to = inside(drag->lastX, drag->lastY);
    if (!from || !to) return std::nullopt;
    return frames::SRegion{std::min(from->x, to->x), std::min(from->y, to->y),
                           std::max(from->x, to->x) + 1, std::max(from->y, to->y) + 1};
}

void CPaneView::MousePressed(int button, int x, int y) {
    if (!drag && where.picture.Contains(x, y)) drag = SDrag{button, x, y, x, y};
}

void CPaneView::MouseMoved(int x, int y) {
    pane.model.SetCursor(pane.model.viewport.PixelAt(x, y));
    if (!drag) return;
    if (drag->button != SDL_BUTTON_LEFT) {
        pane.model.viewport.Pan(x - drag->lastX, y - drag->lastY);
    }
    drag->lastX = x;
    drag->lastY = y;
    if (drag->button != SDL_BUTTON_LEFT) return;
    const bool moved =
        std::abs(x - drag->startX) > clickTolerance || std::abs(y - drag->startY) > clickTolerance;
    if (moved) pane.model.SetRegion(DraggedRegion());
}

void CPaneView::MouseReleased(int button) {
    if (!drag || drag->button != button) return;
    const bool clicked = std::abs(drag->lastX - drag->startX) <= clickTolerance &&
                         std::abs(drag->lastY - drag->startY) <= clickTolerance;
    if (button == SDL_BUTTON_LEFT && clicked) pane.model.SetRegion(std::nullopt);
    drag.reset();
}

void CPaneView::Wheel(int steps, int x, int y) {
    pane.model.viewport.Zoom(steps, {x + 0.5, y + 0.5});
    pane.model.SetCursor(pane.model.viewport.PixelAt(x, y));
}

}  // namespace qmxview
