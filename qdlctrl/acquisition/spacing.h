// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// The pixels that are open in sub-step k of a spaced frame: every `spacing`-th of every `spacing`-th row, from (x0, y0)
// on, the same on every chip. x moves fastest. The sub-steps 0 to spacing² - 1 together cover each pixel once, whether
// or not `spacing` divides the side of the chip.
struct SubGrid {
    SubGrid(int32_t spacing, int32_t k) : spacing(spacing), x0(k % spacing), y0(k / spacing) {}

    int32_t spacing;
    int32_t x0;
    int32_t y0;
};
