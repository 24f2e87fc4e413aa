#include "Screen.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>

#include "Failure.h"

namespace qmxview {
namespace {

using hostkit::CFailure;
using hostkit::EExit;

/// Dots per inch of a screen of ordinary resolution.
constexpr double ordinaryDpi = 96;

[[noreturn]] void FailWithoutWindow(const std::string& why) {
    throw CFailure(
        EExit::Failed,
        "cannot open a window: " + why +
            "; use 'qmxhost stream CAMERA --save DIR --as png' to save pictures instead");
}

/// Returns the resolution of the first screen in steps of one half, at least 1.
double ScreenUnit() {
    float dpi = 0;
    if (SDL_GetDisplayDPI(0, &dpi, nullptr, nullptr) != 0) return 1;
    return std::clamp(std::round(2 * dpi / ordinaryDpi) / 2, 1.0, 4.0);
}

/// Opens the connection to the display. Without one, SDL silently draws into memory.
void StartVideo() {
    SDL_SetMainReady();
    SDL_SetHint(SDL_HINT_WINDOWS_DPI_AWARENESS, "permonitorv2");
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
    // A click that activates the window also counts in it.
    SDL_SetHint(SDL_HINT_MOUSE_FOCUS_CLICKTHROUGH, "1");
    if (SDL_Init(SDL_INIT_VIDEO) != 0) FailWithoutWindow(SDL_GetError());
    const std::string_view driver = SDL_GetCurrentVideoDriver();
    if (driver == "offscreen" || driver == "dummy") {
        SDL_Quit();
        FailWithoutWindow("there is no display");
    }
}

}  // namespace

CScreen::CScreen(ERenderer kind, const char* title, int width, int height, double scale) {
    StartVideo();
    pixelsPerUnit = scale > 0 ? scale : ScreenUnit();
    if (kind == ERenderer::Software) {
        SDL_SetHint(SDL_HINT_RENDER_DRIVER, "software");
        // Otherwise SDL would present the software renderer's picture through OpenGL, which
        // without a graphics processor takes longer than drawing it.
        SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    }
    SDL_Rect room{};
    if (SDL_GetDisplayUsableBounds(0, &room) != 0) room = {0, 0, width, height};
    const auto pixels = [this](int units) { return static_cast<int>(units * pixelsPerUnit); };
    windowHandle = SDL_CreateWindow(title, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                    std::min(pixels(width), room.w),
                                    std::min(pixels(height), room.h), SDL_WINDOW_RESIZABLE);
    if (windowHandle != nullptr) rendererHandle = SDL_CreateRenderer(windowHandle, -1, 0);
    if (rendererHandle != nullptr) return;
    const std::string why = SDL_GetError();
    SDL_Quit();  // destroys the window as well
    FailWithoutWindow(why);
}

CScreen::~CScreen() {
    SDL_DestroyRenderer(rendererHandle);
    SDL_DestroyWindow(windowHandle);
    SDL_Quit();
}

SRect CScreen::area() const {
    SRect size;
    SDL_GetRendererOutputSize(rendererHandle, &size.width, &size.height);
    return size;
}

frames::SColourPicture CScreen::Read() const {
    const SRect size = area();
    frames::SColourPicture picture{
        static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height), {}};
    picture.samples.resize(std::size_t{3} * picture.width * picture.height);
    const int failed = SDL_RenderReadPixels(rendererHandle, nullptr, SDL_PIXELFORMAT_RGB24,
                                            picture.samples.data(), 3 * size.width);
    return failed == 0 ? picture : frames::SColourPicture();
}

void CCanvas::Resize(SDL_Renderer* renderer, int width, int height) {
    if (texture != nullptr && width == canvasWidth && height == canvasHeight) return;
    canvasWidth = width;
    canvasHeight = height;
    texture.reset(SDL_CreateTexture(renderer, SDL_PIXELFORMAT_ARGB8888, SDL_TEXTUREACCESS_STREAMING,
                                    width, height));
    if (texture != nullptr) SDL_SetTextureBlendMode(texture.get(), SDL_BLENDMODE_NONE);
}

CCanvas::SRows CCanvas::BeginWriting() {
    void* pixels = nullptr;
    int pitch = 0;
    if (texture == nullptr || SDL_LockTexture(texture.get(), nullptr, &pixels, &pitch) != 0) {
        return {};
    }
    return {static_cast<frames::Argb*>(pixels), static_cast<std::size_t>(pitch) / 4};
}

void CCanvas::EndWriting() { SDL_UnlockTexture(texture.get()); }

void CCanvas::Draw(SDL_Renderer* renderer, int x, int y) const {
    if (texture == nullptr) return;
    const SDL_Rect to{x, y, canvasWidth, canvasHeight};
    SDL_RenderCopy(renderer, texture.get(), nullptr, &to);
}

}  // namespace qmxview
