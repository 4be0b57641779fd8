// SPDX-License-Identifier: MIT
// Loops over pixels, free of any device. Areas do not overlap unless told otherwise.
#pragma once

#include <cstddef>
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

namespace pixelops {

// Signed 16-bit pixels to wider elements, with their sign.
void widen(const int16_t* pixels, uint32_t* wide, std::size_t count);
void widen(const int16_t* pixels, double* wide, std::size_t count);

// The same within one area: `count` 16-bit pixels at the start of `area` become `count` wide elements.
void widenInPlace(uint32_t* area, std::size_t count);
void widenInPlace(double* area, std::size_t count);

// Counts to what the getters hand out: the low 16 bits, or the unsigned value.
void narrow(const uint32_t* counts, int16_t* low, std::size_t count);
void toDouble(const uint32_t* counts, double* wide, std::size_t count);

// sum[i] += pixels[i], sign-extended, in arithmetic that wraps.
void addFrame(uint32_t* sum, const int16_t* pixels, std::size_t count);

// Copies the pixels of the sub-grid, of each chip, from `frame` to `target`, sign-extended to the target's type.
void scatter(int16_t* target, const int16_t* frame, uint32_t chips, SubGrid grid);
void scatter(uint32_t* target, const int16_t* frame, uint32_t chips, SubGrid grid);

// `masked` becomes `matrix` with the mask bit set in the sub-grid and cleared elsewhere.
void maskSubGrid(uint8_t* masked, const uint8_t* matrix, uint32_t chips, SubGrid grid);

}  // namespace pixelops
