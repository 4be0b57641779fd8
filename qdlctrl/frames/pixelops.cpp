// SPDX-License-Identifier: MIT
#include "frames/pixelops.h"

#include <array>
#include <cstring>

#include "qdltypes.h"

// The functions below in two ways, for all processors and for those with wider instructions; which one is taken is
// decided when the library is loaded. Hooks of sanitizers must not run that early.
#if defined(__x86_64__) && defined(__ELF__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define QDL_WIDEST __attribute__((target_clones("avx2", "default"), flatten))
#else
#define QDL_WIDEST
#endif

namespace pixelops {
namespace {

constexpr int32_t side = QDL_CHIP_SIDE;

template <class Wide>
inline void widenTo(const int16_t* pixels, Wide* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = static_cast<Wide>(static_cast<int32_t>(pixels[i]));
}

// The upper pixels first: from `first` on, the wide elements lie behind all 16-bit pixels that are left, and nothing is
// overwritten before it is read. Then the same with those below.
template <class Wide>
inline void widenFromEnd(Wide* area, std::size_t count) {
    constexpr std::size_t ratio = sizeof(Wide) / sizeof(int16_t);
    const char* const narrowArea = reinterpret_cast<const char*>(area);
    for (std::size_t first; count > 0; count = first) {
        first = count > 1 ? (count + ratio - 1) / ratio : 0;
        for (std::size_t i = first; i < count; ++i) {
            int16_t pixel;
            std::memcpy(&pixel, narrowArea + i * sizeof pixel, sizeof pixel);
            area[i] = static_cast<Wide>(static_cast<int32_t>(pixel));
        }
    }
}

// Whole rows, the closed pixels stored as they were.
template <class Target>
inline void blendRows(Target* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    std::array<Target, side> open{};
    for (int32_t x = grid.x0; x < side; x += grid.spacing)
        open[static_cast<std::size_t>(x)] = static_cast<Target>(-1);
    for (uint32_t chip = 0; chip < chips; ++chip, target += QDL_CHIP_PIXELS, frame += QDL_CHIP_PIXELS)
        for (int32_t y = grid.y0; y < side; y += grid.spacing)
            for (int32_t x = 0; x < side; ++x) {
                Target& old = target[y * side + x];
                const auto pixel = static_cast<Target>(static_cast<int32_t>(frame[y * side + x]));
                old = static_cast<Target>(old ^ ((old ^ pixel) & open[static_cast<std::size_t>(x)]));
            }
}

template <class Target>
inline void scatterTo(Target* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    constexpr int32_t denseSpacing = 8;  // up to here rows are faster than pixels
    if (grid.spacing <= denseSpacing) return blendRows(target, frame, chips, grid);
    for (uint32_t chip = 0; chip < chips; ++chip, target += QDL_CHIP_PIXELS, frame += QDL_CHIP_PIXELS)
        for (int32_t y = grid.y0; y < side; y += grid.spacing)
            for (int32_t x = grid.x0; x < side; x += grid.spacing)
                target[y * side + x] = static_cast<Target>(static_cast<int32_t>(frame[y * side + x]));
}

}  // namespace

QDL_WIDEST void widen(const int16_t* pixels, uint32_t* wide, std::size_t count) { widenTo(pixels, wide, count); }
QDL_WIDEST void widen(const int16_t* pixels, double* wide, std::size_t count) { widenTo(pixels, wide, count); }
QDL_WIDEST void widenInPlace(uint32_t* area, std::size_t count) { widenFromEnd(area, count); }
QDL_WIDEST void widenInPlace(double* area, std::size_t count) { widenFromEnd(area, count); }

QDL_WIDEST void narrow(const uint32_t* counts, int16_t* low, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        low[i] = static_cast<int16_t>(counts[i]);
}

QDL_WIDEST void toDouble(const uint32_t* counts, double* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = counts[i];
}

QDL_WIDEST void addFrame(uint32_t* sum, const int16_t* pixels, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        sum[i] += static_cast<uint32_t>(static_cast<int32_t>(pixels[i]));
}

QDL_WIDEST void scatter(int16_t* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    scatterTo(target, frame, chips, grid);
}
QDL_WIDEST void scatter(uint32_t* target, const int16_t* frame, uint32_t chips, SubGrid grid) {
    scatterTo(target, frame, chips, grid);
}

QDL_WIDEST void maskSubGrid(uint8_t* masked, const uint8_t* matrix, uint32_t chips, SubGrid grid) {
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
