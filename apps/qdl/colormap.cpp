// SPDX-License-Identifier: MIT
#include "colormap.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

// Map "viridis" by N. Smith and S. van der Walt (CC0), as the polynomial of degree 6 fitted by M. Zucker (CC0);
// one row for each power of the value, columns red, green and blue.
constexpr double viridis[7][3] = {
    {0.2777273272234177, 0.005407344544966578, 0.3340998053353061},
    {0.1050930431085774, 1.404613529898575, 1.384590162594685},
    {-0.3308618287255563, 0.214847559468213, 0.09509516302823659},
    {-4.634230498983486, -5.799100973351585, -19.33244095627987},
    {6.228269936347081, 14.17993336680509, 56.69055260068105},
    {4.776384997670288, -13.74514537774601, -65.35303263337234},
    {-5.435455855934631, 4.645852612178535, 26.3124352495832},
};

uint8_t channelAt(double value, int channel) {
    double level = 0;
    for (int power = 6; power >= 0; --power)
        level = level * value + viridis[power][channel];
    return static_cast<uint8_t>(std::lround(255 * std::clamp(level, 0.0, 1.0)));
}

std::array<Color, 256> makeTable() {
    std::array<Color, 256> table;
    for (int i = 0; i < 256; ++i)
        table[i] = {channelAt(i / 255.0, 0), channelAt(i / 255.0, 1), channelAt(i / 255.0, 2)};
    return table;
}

}  // namespace

Color mapColor(double value) {
    static const std::array<Color, 256> table = makeTable();
    return table[static_cast<size_t>(std::lround(255 * std::clamp(value, 0.0, 1.0)))];
}
