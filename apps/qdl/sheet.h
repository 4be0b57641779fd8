// SPDX-License-Identifier: MIT
// Contact sheet: pictures in a grid with their names, a title and the colour scale that they share.
#pragma once

#include "pictures.h"

struct Panel {
    std::string label;
    std::function<Picture()> draw;
};

struct Sheet {
    std::string title;
    std::string details;
    uint32_t width;  // of each picture, in pixels
    uint32_t height;
    std::vector<Panel> panels;
    Scale scale;
    std::string unit;  // of the values on the scale
};

// Most frames that a sheet shows.
constexpr uint32_t sheetFrames = 24;

void saveSheet(const std::string& file, const Sheet& sheet);
