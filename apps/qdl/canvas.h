// SPDX-License-Identifier: MIT
// A picture in memory, row 0 on top, that becomes a PNG file.
#pragma once

#include "colormap.h"

#include <string>
#include <string_view>
#include <vector>

class Canvas {
 public:
    Canvas(int canvasWidth, int canvasHeight, Color background);

    int width() const { return columns; }
    int height() const { return rows; }

    // What lies outside the canvas is left out.
    void fill(int x, int y, int fillWidth, int fillHeight, Color color);
    // `scale`: canvas pixels for one dot of the font.
    void write(int x, int y, std::string_view text, Color color, int scale);

    // Throws Failure.
    void savePng(const std::string& file) const;

 private:
    int columns, rows;
    std::vector<Color> dots;
};

int textWidth(std::string_view text, int scale);
int textHeight(int scale);
