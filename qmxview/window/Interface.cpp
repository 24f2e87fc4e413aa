#include "Interface.h"

#include <imgui_impl_sdl.h>
#include <imgui_impl_sdlrenderer.h>

#include <algorithm>

#include "EmbeddedFont.h"

namespace qmxview {
namespace {

constexpr float fontPixels = 15;

void SetStyle(double unit) {
    ImGui::StyleColorsDark();
    ImGuiStyle& style = ImGui::GetStyle();
    // Square and opaque: transparent pixels would be blended twice.
    style.WindowRounding = style.ChildRounding = style.PopupRounding = 0;
    style.FrameRounding = style.GrabRounding = style.ScrollbarRounding = 0;
    style.WindowBorderSize = 0;
    style.FramePadding = ImVec2(6, 3);
    style.ItemSpacing = ImVec2(6, 5);
    style.WindowPadding = ImVec2(12, 10);
    style.AntiAliasedLinesUseTex = false;
    style.ScaleAllSizes(static_cast<float>(unit));
    const auto colour = [&](ImGuiCol which, ImU32 value) {
        style.Colors[which] = ImGui::ColorConvertU32ToFloat4(value);
    };
    colour(ImGuiCol_WindowBg, panelColour);
    colour(ImGuiCol_PopupBg, panelColour);
    colour(ImGuiCol_Text, textColour);
    colour(ImGuiCol_TextDisabled, faintColour);
    colour(ImGuiCol_FrameBg, IM_COL32(44, 48, 54, 255));
    colour(ImGuiCol_FrameBgHovered, IM_COL32(56, 61, 68, 255));
    colour(ImGuiCol_FrameBgActive, IM_COL32(66, 72, 80, 255));
    colour(ImGuiCol_Button, IM_COL32(52, 58, 64, 255));
    colour(ImGuiCol_ButtonHovered, IM_COL32(73, 80, 87, 255));
    colour(ImGuiCol_ButtonActive, IM_COL32(92, 100, 109, 255));
    colour(ImGuiCol_CheckMark, accentColour);
    colour(ImGuiCol_SliderGrab, accentColour);
    colour(ImGuiCol_SliderGrabActive, accentColour);
    colour(ImGuiCol_Separator, IM_COL32(52, 58, 64, 255));
    colour(ImGuiCol_PlotLines, accentColour);
}

void AddFont(double unit) {
    ImGuiIO& io = ImGui::GetIO();
    ImFontConfig config;
    config.FontDataOwnedByAtlas = false;
    // Latin, Greek and Cyrillic, for the names of cameras; punctuation and arrows of our own texts.
    static constexpr ImWchar ranges[] = {0x20,   0x17F,  0x370,  0x52F, 0x2013,
                                         0x2026, 0x2190, 0x2193, 0};
    io.Fonts->AddFontFromMemoryTTF(const_cast<unsigned char*>(embeddedFont),
                                   static_cast<int>(embeddedFontSize),
                                   fontPixels * static_cast<float>(unit), &config, ranges);
}

}  // namespace

CInterface::CInterface(const CScreen& targetScreen) : screen(targetScreen) {
    IMGUI_CHECKVERSION();
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;  // leave no file behind
    AddFont(screen.unit());
    SetStyle(screen.unit());
    ImGui_ImplSDL2_InitForSDLRenderer(screen.window());
    ImGui_ImplSDLRenderer_Init(screen.renderer());
    // Builds the font, which the overlay needs before the first window.
    ImGui_ImplSDLRenderer_NewFrame();
    ImGui_ImplSDL2_NewFrame();
    ImGui::NewFrame();
    ImGui::EndFrame();
}

CInterface::~CInterface() {
    kept.reset();
    ImGui_ImplSDLRenderer_Shutdown();
    ImGui_ImplSDL2_Shutdown();
    ImGui::DestroyContext();
}

void CInterface::HandleEvent(const SDL_Event& event) {
    ImGui_ImplSDL2_ProcessEvent(&event);
    // The contents of such textures are lost.
    if (event.type == SDL_RENDER_TARGETS_RESET || event.type == SDL_RENDER_DEVICE_RESET) {
        keptSize = {};
    }
}

void CInterface::Begin() {
    ImGui_ImplSDLRenderer_NewFrame();
    ImGui_ImplSDL2_NewFrame();
    ImGui::NewFrame();
}

void CInterface::End() {
    ImGui::Render();
    const SRect size = screen.area();
    if (size != keptSize) {
        kept.reset(SDL_CreateTexture(screen.renderer(), SDL_PIXELFORMAT_ARGB8888,
                                     SDL_TEXTUREACCESS_TARGET, size.width, size.height));
        keptSize = size;
    }
    if (kept == nullptr) return;
    SDL_SetRenderTarget(screen.renderer(), kept.get());
    SDL_SetRenderDrawColor(screen.renderer(), 0, 0, 0, 0);
    SDL_RenderClear(screen.renderer());
    ImGui_ImplSDLRenderer_RenderDrawData(ImGui::GetDrawData());
    SDL_SetRenderTarget(screen.renderer(), nullptr);
}

void CInterface::Draw(const SRect& opaque, bool elsewhere) const {
    if (kept == nullptr) return;
    if (elsewhere) {
        SDL_SetTextureBlendMode(kept.get(), SDL_BLENDMODE_BLEND);
        SDL_RenderCopy(screen.renderer(), kept.get(), nullptr, nullptr);
    }
    if (opaque.empty()) return;
    SDL_SetTextureBlendMode(kept.get(), SDL_BLENDMODE_NONE);
    const SDL_Rect part{opaque.x, opaque.y, opaque.width, opaque.height};
    SDL_RenderCopy(screen.renderer(), kept.get(), &part, &part);
}

bool CInterface::WantsMouse() { return ImGui::GetIO().WantCaptureMouse; }

bool CInterface::WantsKeys() { return ImGui::GetIO().WantTextInput; }

COverlay::COverlay(const CScreen& targetScreen)
    : screen(targetScreen), drawing(ImGui::GetDrawListSharedData()) {}

void COverlay::Begin() {
    const SRect size = screen.area();
    drawing._ResetForNewFrame();
    drawing.PushTextureID(ImGui::GetIO().Fonts->TexID);
    drawing.PushClipRect(ImVec2(0, 0),
                         ImVec2(static_cast<float>(size.width), static_cast<float>(size.height)));
}

void COverlay::End() {
    const SRect size = screen.area();
    ImDrawList* lists[] = {&drawing};
    ImDrawData data;
    data.Valid = true;
    data.CmdLists = lists;
    data.CmdListsCount = 1;
    data.TotalIdxCount = drawing.IdxBuffer.Size;
    data.TotalVtxCount = drawing.VtxBuffer.Size;
    data.DisplaySize = ImVec2(static_cast<float>(size.width), static_cast<float>(size.height));
    data.FramebufferScale = ImVec2(1, 1);
    ImGui_ImplSDLRenderer_RenderDrawData(&data);
}

void COverlay::Text(const SRect& within, ImU32 colour, const std::string& text, bool right) {
    if (text.empty() || within.empty()) return;
    const ImFont* const font = ImGui::GetIO().Fonts->Fonts.front();
    const char* const end = text.data() + text.size();
    const ImVec2 size = font->CalcTextSizeA(font->FontSize, FLT_MAX, 0, text.data(), end);
    const float left = static_cast<float>(within.x);
    const float width = static_cast<float>(within.width);
    const float x = right ? std::max(left, left + width - size.x) : left;
    const float y = static_cast<float>(within.y) +
                    std::max(0.0F, std::floor((static_cast<float>(within.height) - size.y) / 2));
    const ImVec4 clip(left, static_cast<float>(within.y), left + width,
                      static_cast<float>(within.y + within.height));
    drawing.AddText(font, font->FontSize, ImVec2(std::floor(x), y), colour, text.data(), end, 0,
                    &clip);
}

}  // namespace qmxview
