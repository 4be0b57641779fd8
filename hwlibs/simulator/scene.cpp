// SPDX-License-Identifier: MIT
#include "scene.h"

#include <array>
#include <cmath>
#include <numbers>

#include "qdltypes.h"

namespace qdlsim {
namespace {

constexpr std::array<const char*, 4> kNames = {"flat", "spot", "star", "phantom"};

// A beam, wider than high and off the centre, in a faint halo.
double spotLight(double x, double y) {
    const double distance = std::pow((x - 0.56) / 0.14, 2) + std::pow((y - 0.42) / 0.09, 2);
    return 0.9 * std::exp(-0.5 * distance) + 0.08 * std::exp(-0.05 * distance) + 0.02;
}

// A Siemens star of 36 spokes. The disc in the upper left corner shows which way up a picture is.
double starLight(double x, double y) {
    constexpr double kOpen = 1.0, kOpaque = 0.08;
    if (std::hypot(x - 0.08, y - 0.08) < 0.035) return kOpaque;
    const double radius = std::hypot(x - 0.5, y - 0.5);
    if (radius > 0.46) return kOpen;
    if (radius > 0.445 || radius < 0.012) return kOpaque;
    const double turn = std::atan2(y - 0.5, x - 0.5) / (2.0 * std::numbers::pi);
    const double spoke = turn * 36.0;
    return spoke - std::floor(spoke) < 0.5 ? kOpen : kOpaque;
}

double lightAt(Scene scene, double x, double y) {
    switch (scene) {
        case Scene::spot:
            return spotLight(x, y);
        case Scene::star:
            return starLight(x, y);
        case Scene::phantom:
            return phantomLight(x, y);
        case Scene::flat:
            break;
    }
    return 1.0;
}

// A pixel collects what falls on all of its area, so that edges are no steps.
float pixelLight(Scene scene, double x, double y, double width, double height) {
    constexpr int kSide = 3;
    double sum = 0.0;
    for (int i = 0; i < kSide; ++i)
        for (int j = 0; j < kSide; ++j)
            sum += lightAt(scene, x + (j + 0.5) / kSide * width, y + (i + 0.5) / kSide * height);
    return static_cast<float>(sum / (kSide * kSide));
}

}  // namespace

std::optional<Scene> sceneByName(std::string_view name) {
    for (size_t i = 0; i < kNames.size(); ++i)
        if (name == kNames[i]) return static_cast<Scene>(i);
    return std::nullopt;
}

const char* sceneName(Scene scene) { return kNames[static_cast<size_t>(scene)]; }

void renderScene(Scene scene, uint32_t chips, float* light) {
    const TileLayout layout(chips);
    const double width = 1.0 / (layout.columns * QDL_CHIP_SIDE);
    const double height = 1.0 / (layout.rows * QDL_CHIP_SIDE);
    for (uint32_t chip = 0; chip < chips; ++chip) {
        const uint32_t left = chip % layout.columns * QDL_CHIP_SIDE;
        const uint32_t top = chip / layout.columns * QDL_CHIP_SIDE;
        for (uint32_t y = top; y < top + QDL_CHIP_SIDE; ++y)
            for (uint32_t x = left; x < left + QDL_CHIP_SIDE; ++x)
                *light++ = pixelLight(scene, x * width, y * height, width, height);
    }
}

}  // namespace qdlsim
