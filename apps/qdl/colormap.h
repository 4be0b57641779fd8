// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

struct Color {
    uint8_t red, green, blue;
};

// Colour of a value from 0 (dark violet) to 1 (yellow) in a map whose steps look alike to the eye and that survives
// printing in grey. Values outside are clipped.
Color mapColor(double value);
