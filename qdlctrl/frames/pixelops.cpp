// SPDX-License-Identifier: MIT
#include "frames/pixelops.h"

#include <array>
#include <cstring>

#include "qdltypes.h"

namespace pixelops {
namespace {

constexpr int32_t side = QDL_CHIP_SIDE;

template <class Wide>
void widenTo(const int16_t* pixels, Wide* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = static_cast<Wide>(static_cast<int32_t>(pixels[i]));
}

// From the end to the start, by blocks that pass through a copy: a wide block covers only 16-bit pixels that have been
// read already.
template <class Wide>
void widenFromEnd(Wide* area, std::size_t count) {
    constexpr std::size_t blockPixels = 256;
    const char* const narrowArea = reinterpret_cast<const char*>(area);
    int16_t block[blockPixels];
    while (count) {
        const std::size_t pixels = count % blockPixels ? count % blockPixels : blockPixels;
        count -= pixels;
        std::memcpy(block, narrowArea + count * sizeof(int16_t), pixels * sizeof(int16_t));
        widenTo(block, area + count, pixels);
    }
}

template <class Target>
void scatterTo(Target* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    for (uint32_t chip = 0; chip < chips; ++chip, target += QDL_CHIP_PIXELS, frame += QDL_CHIP_PIXELS)
        for (int32_t y = grid.y0; y < side; y += grid.spacing)
            for (int32_t x = grid.x0; x < side; x += grid.spacing)
                target[y * side + x] = static_cast<Target>(static_cast<int32_t>(frame[y * side + x]));
}

}  // namespace

void widen(const int16_t* pixels, uint32_t* wide, std::size_t count) { widenTo(pixels, wide, count); }
void widen(const int16_t* pixels, double* wide, std::size_t count) { widenTo(pixels, wide, count); }
void widenInPlace(uint32_t* area, std::size_t count) { widenFromEnd(area, count); }
void widenInPlace(double* area, std::size_t count) { widenFromEnd(area, count); }

void narrow(const uint32_t* counts, int16_t* low, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        low[i] = static_cast<int16_t>(counts[i]);
}

void toDouble(const uint32_t* counts, double* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = counts[i];
}

void addFrame(uint32_t* sum, const int16_t* pixels, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        sum[i] += static_cast<uint32_t>(static_cast<int32_t>(pixels[i]));
}

void scatter(int16_t* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    scatterTo(target, frame, chips, grid);
}
void scatter(uint32_t* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    scatterTo(target, frame, chips, grid);
}

void maskSubGrid(uint8_t* masked, const uint8_t* matrix, uint32_t chips, SubGrid grid) {
    const std::array<uint8_t, side> closed{};
    std::array<uint8_t, side> open{};
    for (int32_t x = grid.x0; x < side; x += grid.spacing)
        open[static_cast<std::size_t>(x)] = QDL_PIXEL_MASK_BIT;
    for (uint32_t chip = 0; chip < chips; ++chip)
        for (int32_t y = 0; y < side; ++y, masked += side, matrix += side) {
            const uint8_t* const row = (y >= grid.y0 && (y - grid.y0) % grid.spacing == 0 ? open : closed).data();
            for (int32_t x = 0; x < side; ++x)
                masked[x] = static_cast<uint8_t>((matrix[x] & ~QDL_PIXEL_MASK_BIT) | row[x]);
        }
}

}  // namespace pixelops
