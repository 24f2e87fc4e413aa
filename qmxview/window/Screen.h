/// The window, by SDL.
#pragma once

#include <SDL.h>

#include <memory>

#include "ColourTable.h"
#include "Picture.h"
#include "Viewport.h"

namespace qmxview {

enum class ERenderer {
    Automatic,  ///< SDL's choice
    Software,   ///< without a graphics processor
};

/// Owns SDL, a window and its renderer. All members are for one thread.
class CScreen {
   public:
    /// Opens a window, of `width` times `height` on a screen of ordinary resolution. `scale` is the
    /// number of pixels for each of those, or 0 for that of the screen. Throws a `CFailure` if
    /// there is no display.
    CScreen(ERenderer kind, const char* title, int width, int height, double scale);
    ~CScreen();
    CScreen(const CScreen&) = delete;
    CScreen& operator=(const CScreen&) = delete;

    [[nodiscard]] SDL_Window* window() const noexcept { return windowHandle; }
    [[nodiscard]] SDL_Renderer* renderer() const noexcept { return rendererHandle; }
    /// Returns the size of the window in pixels.
    [[nodiscard]] SRect area() const;
    /// Returns the number of pixels for each pixel of a screen of ordinary resolution.
    [[nodiscard]] double unit() const noexcept { return pixelsPerUnit; }
    void Hide() noexcept { SDL_HideWindow(windowHandle); }
    /// Returns what has been drawn and not yet presented; empty on failure.
    [[nodiscard]] frames::SColourPicture Read() const;

   private:
    SDL_Window* windowHandle = nullptr;
    SDL_Renderer* rendererHandle = nullptr;
    double pixelsPerUnit = 1;
};

/// Pixels that the program draws itself.
class CCanvas {
   public:
    /// The rows of the canvas while it is written.
    struct SRows {
        frames::Argb* pixels = nullptr;  ///< null if the canvas cannot be written
        std::size_t pitch = 0;           ///< pixels from one row to the next
    };

    /// Gives the canvas a size. The pixels are then undefined.
    void Resize(SDL_Renderer* renderer, int width, int height);
    /// Makes the canvas writable until `EndWriting`. All pixels must be written.
    [[nodiscard]] SRows BeginWriting();
    void EndWriting();
    /// Draws the canvas with its upper left corner at a point.
    void Draw(SDL_Renderer* renderer, int x, int y) const;
    void Release() noexcept { texture.reset(); }

   private:
    struct SDestroy {
        void operator()(SDL_Texture* each) const noexcept { SDL_DestroyTexture(each); }
    };
    std::unique_ptr<SDL_Texture, SDestroy> texture;
    int canvasWidth = 0;
    int canvasHeight = 0;
};

}  // namespace qmxview
