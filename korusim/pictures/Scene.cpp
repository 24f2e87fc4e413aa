#include "Scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "Canvas.h"

namespace korusim {
namespace {

constexpr float countsAtZero = 7000;  // at 0 degrees Celsius
constexpr float countsPerKelvin = 25;
constexpr float noiseCounts = 3;          // standard deviation in time
constexpr float columnPatternCounts = 2;  // standard deviation of the fixed pattern
constexpr float driftCounts = 10;         // the sensor slowly warms and cools
constexpr double driftSeconds = 97;
constexpr std::size_t noiseLength = 65536;

constexpr float horizon = 0.52F;   // fraction of the height
constexpr float pavement = 0.66F;  // upper edge of the walk along the road
constexpr float road = 0.76F;

constexpr float Counts(float celsius) { return countsAtZero + countsPerKelvin * celsius; }

/// Returns a number from 0 to 1 that depends only on the grid point.
float GridNoise(std::int32_t x, std::int32_t y) {
    auto bits =
        static_cast<std::uint32_t>(x) * 0x9E3779B1U ^ static_cast<std::uint32_t>(y) * 0x85EBCA77U;
    bits = (bits ^ bits >> 15) * 0x2C1B3C6DU;
    bits = (bits ^ bits >> 12) * 0x297A2D39U;
    return static_cast<float>((bits ^ bits >> 15) >> 8) / 16777216.0F;
}

/// Returns smooth noise from 0 to 1 with features one unit wide.
float SmoothNoise(float x, float y) {
    const float left = std::floor(x);
    const float top = std::floor(y);
    const auto column = static_cast<std::int32_t>(left);
    const auto row = static_cast<std::int32_t>(top);
    const auto ease = [](float t) { return t * t * (3 - 2 * t); };
    const float u = ease(x - left);
    const float upper = std::lerp(GridNoise(column, row), GridNoise(column + 1, row), u);
    const float lower = std::lerp(GridNoise(column, row + 1), GridNoise(column + 1, row + 1), u);
    return std::lerp(upper, lower, ease(y - top));
}

/// Returns the sum of three octaves of it, from -0.5 to 0.5.
float Texture(float x, float y) {
    return (SmoothNoise(x, y) * 4 + SmoothNoise(x * 2.1F, y * 2.1F) * 2 +
            SmoothNoise(x * 4.3F, y * 4.3F)) /
               7 -
           0.5F;
}

/// Returns the temperature of sky, hills and ground at a position in fractions of the picture.
float LandscapeCelsius(float x, float y) {
    const float hills =
        horizon - 0.035F - 0.05F * SmoothNoise(x * 6, 1) - 0.015F * SmoothNoise(x * 40, 2);
    if (y < hills) {
        const float depth = y / horizon;
        const float cloud = std::max(Texture(x * 4, y * 11) + 0.1F, 0.0F) * 22;
        return -27 + 15 * depth * depth + cloud;
    }
    if (y < horizon) return 1.5F + 2 * Texture(x * 60, y * 60);
    const float depth = (y - horizon) / (1 - horizon);
    const float grain = Texture(x * 25 / (0.2F + depth), y * 90);
    if (y > road) return 13.5F + depth + 0.8F * grain;
    if (y > pavement) return 10.5F + 1.2F * grain;
    return 3 + 4 * depth + 4 * grain;
}

SCapsule Disc(SPoint centre, float radius) { return {centre, centre, radius}; }

SPolygon<4> Box(SPoint topLeft, float boxWidth, float boxHeight) {
    const float right = topLeft.x + boxWidth;
    const float bottom = topLeft.y + boxHeight;
    return {{{topLeft, {right, topLeft.y}, {right, bottom}, {topLeft.x, bottom}}}};
}

void DrawWindow(CCanvas& canvas, SPoint corner, float size, float celsius) {
    const float frame = size * 0.1F;
    canvas.Fill(Box(corner, size, size * 1.25F), Counts(9));
    for (int pane = 0; pane < 4; ++pane) {
        const SPoint at{corner.x + frame + static_cast<float>(pane % 2) * size * 0.45F,
                        corner.y + frame + static_cast<float>(pane / 2) * size * 0.57F};
        canvas.Fill(Box(at, size * 0.36F, size * 0.48F), Counts(celsius));
    }
}

/// Top of the chimney, whose smoke is drawn in each frame.
SPoint ChimneyTop(const CCanvas& canvas) {
    const SPoint corner = canvas.Place(0.06F, pavement);
    return {corner.x + 0.115F * canvas.unit(), corner.y - 0.485F * canvas.unit()};
}

void DrawHouse(CCanvas& canvas) {
    const float u = canvas.unit();
    const SPoint ground = canvas.Place(0.06F, pavement);
    const auto at = [&](float right, float up) {
        return SPoint{ground.x + right * u, ground.y - up * u};
    };
    const SPoint chimney = ChimneyTop(canvas);
    canvas.Fill(Box({chimney.x - 0.02F * u, chimney.y}, 0.04F * u, 0.15F * u), Counts(16));
    canvas.Fill(Box({chimney.x - 0.024F * u, chimney.y}, 0.048F * u, 0.02F * u), Counts(31));
    canvas.Fill(Box(at(0, 0.28F), 0.44F * u, 0.28F * u), Counts(7.5F));
    // The wall is warm in front of the radiators; the roof reflects the cold sky.
    canvas.Glow(at(0.12F, 0.03F), 0.12F * u, 2.2F * countsPerKelvin);
    canvas.Glow(at(0.36F, 0.03F), 0.1F * u, 1.8F * countsPerKelvin);
    const SPolygon<4> roof{
        {{at(0.1F, 0.43F), at(0.34F, 0.43F), at(0.47F, 0.27F), at(-0.03F, 0.27F)}}};
    canvas.Fill(roof, Counts(-4));
    DrawWindow(canvas, at(0.04F, 0.22F), 0.085F * u, 17);
    DrawWindow(canvas, at(0.32F, 0.22F), 0.085F * u, 18.5F);
    canvas.Fill(Box(at(0.18F, 0.18F), 0.075F * u, 0.18F * u), Counts(11.5F));
    canvas.Glow(at(0.217F, 0.002F), 0.05F * u, 4 * countsPerKelvin);
}

void DrawTree(CCanvas& canvas) {
    const float u = canvas.unit();
    const SPoint foot = canvas.Place(0.93F, 0.655F);
    const auto at = [&](float right, float up) {
        return SPoint{foot.x + right * u, foot.y - up * u};
    };
    canvas.Fill(SCapsule{foot, at(0.005F, 0.25F), 0.016F * u}, Counts(8));
    // Clumps of leaves; the outer ones are cooler.
    constexpr int clumps = 70;
    for (int i = 0; i < clumps; ++i) {
        const float angle = 2.4F * static_cast<float>(i);  // the golden angle fills a disc evenly
        const float part = 1 - static_cast<float>(i) / clumps;
        const float distance = 0.145F * std::sqrt(part);
        const SPoint centre =
            at(distance * std::cos(angle), 0.34F + 0.85F * distance * std::sin(angle));
        const float radius = (0.02F + 0.025F * GridNoise(i, 7)) * u;
        canvas.Fill(Disc(centre, radius), Counts(4 + 3.5F * (1 - part) + 1.5F * GridNoise(i, 9)));
    }
}

void DrawLamp(CCanvas& canvas) {
    const float u = canvas.unit();
    const SPoint foot = canvas.Place(0.57F, road - 0.01F);
    const SPoint top{foot.x, foot.y - 0.52F * u};
    const SPoint head{foot.x + 0.07F * u, top.y - 0.015F * u};
    canvas.Fill(SCapsule{foot, top, 0.007F * u}, Counts(5));
    canvas.Fill(SCapsule{top, head, 0.005F * u}, Counts(5));
    canvas.Fill(SCapsule{head, {head.x + 0.035F * u, head.y}, 0.011F * u}, Counts(41));
    canvas.Glow({head.x + 0.018F * u, head.y}, 0.06F * u, 4 * countsPerKelvin);
}

void DrawWheel(CCanvas& canvas, SPoint centre) {
    const float u = canvas.unit();
    canvas.Fill(Disc(centre, 0.048F * u), Counts(15));
    canvas.Fill(Disc(centre, 0.03F * u), Counts(22));  // the brake disc behind the rim
    canvas.Fill(Disc(centre, 0.01F * u), Counts(28));
}

void DrawCar(CCanvas& canvas) {
    const float u = canvas.unit();
    const SPoint ground = canvas.Place(0.58F, 0.87F);
    const auto at = [&](float right, float up) {
        return SPoint{ground.x + right * u, ground.y - up * u};
    };
    canvas.Glow(at(0.13F, 0.01F), 0.17F * u, 7 * countsPerKelvin);  // engine heat on the road
    const SPolygon<4> cabin{
        {{at(0.2F, 0.2F), at(0.36F, 0.2F), at(0.44F, 0.11F), at(0.13F, 0.11F)}}};
    canvas.Fill(cabin, Counts(6));
    const SPolygon<4> front{
        {{at(0.205F, 0.185F), at(0.265F, 0.185F), at(0.265F, 0.115F), at(0.155F, 0.115F)}}};
    const SPolygon<4> rear{
        {{at(0.28F, 0.185F), at(0.35F, 0.185F), at(0.405F, 0.115F), at(0.28F, 0.115F)}}};
    canvas.Fill(front, Counts(0));  // glass mirrors the sky
    canvas.Fill(rear, Counts(0));
    canvas.Fill(SCapsule{at(0.035F, 0.075F), at(0.47F, 0.075F), 0.042F * u}, Counts(8.5F));
    const SPolygon<4> hood{
        {{at(0.03F, 0.115F), at(0.15F, 0.125F), at(0.165F, 0.095F), at(0.0F, 0.085F)}}};
    canvas.Fill(hood, Counts(30));
    canvas.Glow(at(0.08F, 0.1F), 0.085F * u, 20 * countsPerKelvin);
    canvas.Fill(SCapsule{at(0.0F, 0.06F), at(0.0F, 0.085F), 0.008F * u}, Counts(36));  // grille
    DrawWheel(canvas, at(0.095F, 0.045F));
    DrawWheel(canvas, at(0.4F, 0.045F));
    canvas.Fill(Disc(at(0.51F, 0.04F), 0.009F * u), Counts(58));  // exhaust
    canvas.Glow(at(0.525F, 0.035F), 0.045F * u, 8 * countsPerKelvin);
}

struct SWalker {
    SPoint feet;
    float height;     // pixels
    float direction;  // 1 to the right, -1 to the left
    float phase;      // of the steps, in radians
};

/// Draws an arm or a leg of two bones. `swing` is its angle to the vertical, `bend` the angle of
/// the joint.
void DrawLimb(CCanvas& canvas, SPoint joint, float length, float radius, float swing, float bend,
              float celsius, float endCelsius) {
    const SPoint middle{joint.x + length * 0.5F * std::sin(swing),
                        joint.y + length * 0.5F * std::cos(swing)};
    const SPoint end{middle.x + length * 0.5F * std::sin(swing + bend),
                     middle.y + length * 0.5F * std::cos(swing + bend)};
    canvas.Fill(SCapsule{joint, middle, radius}, Counts(celsius));
    canvas.Fill(SCapsule{middle, end, radius * 0.8F}, Counts(celsius - 1));
    canvas.Fill(Disc(end, radius * 0.95F), Counts(endCelsius));
}

/// Skin is the warmest part, shoes are the coolest.
void DrawWalker(CCanvas& canvas, const SWalker& walker) {
    const float h = walker.height;
    const float bob = 0.012F * h * std::cos(2 * walker.phase);
    const SPoint hip{walker.feet.x, walker.feet.y - 0.48F * h - bob};
    const SPoint shoulder{hip.x + 0.02F * h * walker.direction, hip.y - 0.32F * h};
    const SPoint head{shoulder.x + 0.015F * h * walker.direction, shoulder.y - 0.105F * h};
    for (const float side : {-1.0F, 1.0F}) {
        const float swing = side * std::sin(walker.phase) * walker.direction;
        const float lift = std::max(side * std::cos(walker.phase), 0.0F);
        DrawLimb(canvas, hip, 0.47F * h, 0.045F * h, 0.48F * swing, -0.7F * lift * walker.direction,
                 22, 14);
        DrawLimb(canvas, shoulder, 0.36F * h, 0.03F * h, -0.5F * swing, 0.35F * walker.direction,
                 22.5F, 31);
    }
    canvas.Fill(SCapsule{hip, {shoulder.x, shoulder.y + 0.05F * h}, 0.082F * h}, Counts(24.5F));
    canvas.Glow({shoulder.x, shoulder.y + 0.14F * h}, 0.1F * h, 2.5F * countsPerKelvin);
    canvas.Fill(SCapsule{shoulder, head, 0.03F * h}, Counts(33));
    canvas.Fill(SCapsule{head, {head.x, head.y - 0.028F * h}, 0.05F * h}, Counts(34));
    canvas.Fill(Disc({head.x - 0.015F * h * walker.direction, head.y - 0.037F * h}, 0.046F * h),
                Counts(27));  // hair
}

/// Returns the position, from -margin to 1 + margin, of an object that crosses the picture again
/// and again.
float Crossing(double seconds, double duration, double offset, float margin) {
    const double part = seconds / duration + offset;
    return static_cast<float>(part - std::floor(part)) * (1 + 2 * margin) - margin;
}

void DrawWalkers(CCanvas& canvas, double seconds) {
    constexpr float margin = 0.1F;
    constexpr double stepsPerSecond = 0.95;  // of one leg
    const double turn = 2 * std::numbers::pi * stepsPerSecond * seconds;
    const auto phase = [](double angle) {
        return static_cast<float>(std::fmod(angle, 2 * std::numbers::pi));
    };
    const float first = Crossing(seconds, 24, 0.42, margin);
    const float second = 1 - Crossing(seconds, 17, 0.62, margin);
    DrawWalker(canvas, {canvas.Place(first, 0.745F), 0.27F * canvas.unit(), 1, phase(turn)});
    DrawWalker(canvas,
               {canvas.Place(second, 0.97F), 0.43F * canvas.unit(), -1, phase(turn * 1.1 + 1)});
}

void DrawAeroplane(CCanvas& canvas, double seconds) {
    const float part = Crossing(seconds, 31, 0.3, 0.05F);
    const SPoint at = canvas.Place(part, 0.16F - 0.07F * part);
    const float u = canvas.unit();
    canvas.Fill(
        SCapsule{{at.x - 0.02F * u, at.y + 0.003F * u}, {at.x + 0.012F * u, at.y}, 0.004F * u},
        Counts(-6));
    canvas.Fill(Disc({at.x - 0.006F * u, at.y + 0.004F * u}, 0.005F * u), Counts(75));
    canvas.Glow({at.x - 0.02F * u, at.y + 0.004F * u}, 0.022F * u, 22 * countsPerKelvin);
}

void DrawSmoke(CCanvas& canvas, double seconds) {
    constexpr int puffs = 5;
    const SPoint mouth = ChimneyTop(canvas);
    const float u = canvas.unit();
    for (int i = 0; i < puffs; ++i) {
        const float age = Crossing(seconds, 4, static_cast<double>(i) / puffs, 0);
        const float sway = 0.012F * std::sin(6 * age + static_cast<float>(i));
        const SPoint at{mouth.x + (0.07F * age * age + sway * age) * u,
                        mouth.y - (0.01F + 0.16F * age) * u};
        canvas.Glow(at, (0.018F + 0.04F * age) * u, (1 - age) * 13 * countsPerKelvin);
    }
}

std::vector<std::int16_t> RandomCounts(std::size_t number, float deviation,
                                       std::mt19937_64& random) {
    std::vector<std::int16_t> counts(number);
    for (std::int16_t& value : counts) {
        // The sum of eight bytes is close enough to a normal distribution.
        float sum = 0;
        for (std::uint64_t bits = random(), i = 0; i < 8; ++i, bits >>= 8) {
            sum += static_cast<float>(bits & 0xFF);
        }
        constexpr float mean = 8 * 127.5F;
        constexpr float deviationOfSum = 209;  // sqrt(8 * (256 * 256 - 1) / 12)
        value = static_cast<std::int16_t>(std::lround((sum - mean) / deviationOfSum * deviation));
    }
    return counts;
}

}  // namespace

CScene::CScene(SPictureSize size, std::uint64_t seed)
    : pictureSize(size), background(std::size_t{size.width} * size.height) {
    std::mt19937_64 random(seed);
    columnOffsets = RandomCounts(size.width, columnPatternCounts, random);
    noise = RandomCounts(noiseLength + size.width, noiseCounts, random);
    CCanvas canvas(size, background);
    canvas.Paint([&](SPoint at) {
        return Counts(LandscapeCelsius(at.x / canvas.width(), at.y / canvas.height()));
    });
    DrawHouse(canvas);
    DrawTree(canvas);
    DrawLamp(canvas);
    DrawCar(canvas);
}

void CScene::Render(double seconds, std::uint64_t frame, std::span<std::uint16_t> picture) const {
    std::ranges::copy(background, picture.begin());
    CCanvas canvas(pictureSize, picture);
    DrawAeroplane(canvas, seconds);
    DrawSmoke(canvas, seconds);
    DrawWalkers(canvas, seconds);
    AddNoise(seconds, frame, picture);
}

void CScene::AddNoise(double seconds, std::uint64_t frame, std::span<std::uint16_t> picture) const {
    const double angle = seconds * 2 * std::numbers::pi / driftSeconds;
    const auto drift = static_cast<int>(std::lround(driftCounts * std::sin(angle)));
    std::minstd_rand random(static_cast<std::uint32_t>(frame % 2147483646 + 1));
    for (std::size_t y = 0; y < pictureSize.height; ++y) {
        std::uint16_t* const line = &picture[y * pictureSize.width];
        const std::int16_t* const stretch = &noise[random() % noiseLength];
        for (std::size_t x = 0; x < pictureSize.width; ++x) {
            line[x] = static_cast<std::uint16_t>(line[x] + stretch[x] + columnOffsets[x] + drift);
        }
    }
}

}  // namespace korusim
