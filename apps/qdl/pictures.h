// SPDX-License-Identifier: MIT
// Frames as pictures: how chips are placed beside each other, and which colours values get.
//
// Pixels are [chip][y][x] with row 0 on top, in buffers, files and pictures alike.
#pragma once

#include <qdltypes.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

// Chips are tiles, filled row by row from the top left.
struct Layout {
    uint32_t chips;
    uint32_t columns;

    uint32_t rows() const { return (chips + columns - 1) / columns; }
    uint32_t width() const { return columns * QDL_CHIP_SIDE; }
    uint32_t height() const { return rows() * QDL_CHIP_SIDE; }
};

// The one place that decides: four chips make a square, any other number a row; `columns` above 0 overrides.
Layout layoutFor(uint32_t chips, uint32_t columns);
// The same in words, for the help.
extern const char* const layoutHelp;

struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<float> values;  // [y][x]

    float at(uint32_t x, uint32_t y) const { return values[size_t{y} * width + x]; }
    // Mean of the block of pixels from (x, y) on, cut at the edges.
    double mean(uint32_t x, uint32_t y, uint32_t blockWidth, uint32_t blockHeight) const;
};

// Places the chips of a frame, which has layout.chips * QDL_CHIP_PIXELS pixels. Places without a chip get 0.
Picture arrange(std::span<const double> pixels, const Layout& layout);

// Gives the pixels of a frame.
using FrameReader = std::function<std::vector<double>(uint32_t frame)>;

// The values of the darkest and the brightest colour.
struct Scale {
    double low = 0;
    double high = 1;
    std::string origin;  // how they were found, for the reader of the picture

    double position(double value) const { return (value - low) / (high - low); }
};

// A value on a scale: counts are whole numbers.
std::string scaleText(double value);

// One scale for all `frames`: 0.1 to 99.9 % of the pixels, so that a few hot ones do not hide the rest; everything if
// that leaves nothing to tell apart. `range`, two values or empty, overrides.
Scale scaleFor(const std::vector<uint32_t>& frames, const FrameReader& read, const std::vector<double>& range);

// The first and the last of `count` frames and others evenly between, at most `most` of them.
std::vector<uint32_t> selectFrames(uint32_t count, uint32_t most);

// Just the pixels, one dot each.
void savePlain(const std::string& file, const Picture& picture, const Scale& scale);

struct Statistics {
    double min = 0, max = 0, mean = 0, sum = 0;
};
Statistics statisticsOf(std::span<const double> pixels);
