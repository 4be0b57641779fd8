// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qdlsim {

// What stands in the beam.
enum class Scene { flat, spot, star, phantom };

std::optional<Scene> sceneByName(std::string_view name);
const char* sceneName(Scene scene);

// The chips of a device lie side by side as tiles of one picture, filled row by row: of four chips 0 is top left, 1 top
// right, 2 bottom left, 3 bottom right. Each chip's row 0 is its upper edge.
struct TileLayout {
    uint32_t columns, rows;
    explicit constexpr TileLayout(uint32_t chips) : columns(chips < 2 ? 1 : 2), rows((chips + columns - 1) / columns) {}
};

// Writes the light that reaches each pixel, 0 to 1, as [chip][y][x].
void renderScene(Scene scene, uint32_t chips, float* light);

// Light at a point of the sample phantom; (0, 0) is the upper left corner of the picture, (1, 1) the lower right one.
double phantomLight(double x, double y);

}  // namespace qdlsim
