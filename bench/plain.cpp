// SPDX-License-Identifier: MIT
#include "plain.h"

#include <cstdio>
#include <cstring>

#include "qdltypes.h"
#include "rounds.h"

namespace bench::plain {
namespace {

constexpr int counterBits = 14;

template <class Item>
void writeItems(const char* path, const char* format, const Item* items, std::size_t count) {
    std::FILE* const file = std::fopen(path, "w");
    if (!file) fail("cannot open a text file");
    for (std::size_t i = 0; i < count; ++i) {
        std::fprintf(file, format, items[i]);
        if (i % 256 == 255) std::fprintf(file, "\n");
    }
    std::fclose(file);
}

// From the last element to the first, so that none is overwritten before it is read.
template <class Wide>
void widenBackward(Wide* area, std::size_t count) {
    const char* const narrow = reinterpret_cast<const char*>(area);
    for (std::size_t i = count; i-- > 0;) {
        int16_t pixel;
        std::memcpy(&pixel, narrow + i * sizeof pixel, sizeof pixel);
        area[i] = static_cast<Wide>(pixel);
    }
}

}  // namespace

void writeText(const char* path, const int16_t* items, std::size_t count) { writeItems(path, "%hd ", items, count); }
void writeText(const char* path, const uint32_t* items, std::size_t count) { writeItems(path, "%u ", items, count); }

void readText(const char* path, int16_t* items, std::size_t count) {
    std::FILE* const file = std::fopen(path, "r");
    if (!file) fail("cannot open a text file");
    for (std::size_t i = 0; i < count; ++i)
        if (std::fscanf(file, "%hd", &items[i]) != 1) fail("a text file is too short");
    std::fclose(file);
}

void widen(const int16_t* pixels, uint32_t* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = static_cast<uint32_t>(pixels[i]);
}

void widen(const int16_t* pixels, double* wide, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        wide[i] = pixels[i];
}

void widenInPlace(uint32_t* area, std::size_t count) { widenBackward(area, count); }
void widenInPlace(double* area, std::size_t count) { widenBackward(area, count); }

void addFrame(uint32_t* sum, const int16_t* pixels, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        sum[i] += static_cast<uint32_t>(pixels[i]);
}

void maskSubGrid(uint8_t* masked, const uint8_t* matrix, std::size_t pixels, int32_t spacing, int32_t subStep) {
    std::memcpy(masked, matrix, pixels);
    for (std::size_t i = 0; i < pixels; ++i)
        masked[i] &= static_cast<uint8_t>(~QDL_PIXEL_MASK_BIT);
    for (; pixels; pixels -= QDL_CHIP_PIXELS, masked += QDL_CHIP_PIXELS)
        for (int32_t y = subStep / spacing; y < QDL_CHIP_SIDE; y += spacing)
            for (int32_t x = subStep % spacing; x < QDL_CHIP_SIDE; x += spacing)
                masked[y * QDL_CHIP_SIDE + x] |= QDL_PIXEL_MASK_BIT;
}

void scatter(int16_t* target, const int16_t* frame, std::size_t pixels, int32_t spacing, int32_t subStep) {
    for (; pixels; pixels -= QDL_CHIP_PIXELS, target += QDL_CHIP_PIXELS, frame += QDL_CHIP_PIXELS)
        for (int32_t y = subStep / spacing; y < QDL_CHIP_SIDE; y += spacing)
            for (int32_t x = subStep % spacing; x < QDL_CHIP_SIDE; x += spacing)
                target[y * QDL_CHIP_SIDE + x] = frame[y * QDL_CHIP_SIDE + x];
}

void packBits(const uint16_t* values, uint8_t* stream) {
    std::memset(stream, 0, QDL_CHIP_STREAM_BYTES);
    for (uint32_t bit = 0; bit < QDL_CHIP_PIXELS * counterBits; ++bit)
        stream[bit / 8] |= static_cast<uint8_t>((values[bit / counterBits] >> bit % counterBits & 1) << bit % 8);
}

void unpackBits(const uint8_t* stream, int16_t* values) {
    std::memset(values, 0, QDL_CHIP_PIXELS * sizeof *values);
    for (uint32_t bit = 0; bit < QDL_CHIP_PIXELS * counterBits; ++bit)
        values[bit / counterBits] |= static_cast<int16_t>((stream[bit / 8] >> bit % 8 & 1) << bit % counterBits);
}

void decode(int16_t* values, const int16_t* counts) {
    for (uint32_t pixel = 0; pixel < QDL_CHIP_PIXELS; ++pixel)
        values[pixel] = counts[values[pixel]];
}

}  // namespace bench::plain
