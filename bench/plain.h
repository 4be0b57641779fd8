// SPDX-License-Identifier: MIT
// The plain forms: what one writes first. Compiled with -O2 in a file of their own, so that nothing is known about
// counts and nothing is inlined into a loop of the caller.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench::plain {

// Items one by one through formatted input and output, a line end behind every 256th.
void writeText(const char* path, const int16_t* items, std::size_t count);
void writeText(const char* path, const uint32_t* items, std::size_t count);
void readText(const char* path, int16_t* items, std::size_t count);

void widen(const int16_t* pixels, uint32_t* wide, std::size_t count);
void widen(const int16_t* pixels, double* wide, std::size_t count);
void widenInPlace(uint32_t* area, std::size_t count);
void widenInPlace(double* area, std::size_t count);
void addFrame(uint32_t* sum, const int16_t* pixels, std::size_t count);

// One sub-step of spacing `spacing`: the mask from the saved matrix, and the open pixels of `frame` to `target`.
void maskSubGrid(uint8_t* masked, const uint8_t* matrix, std::size_t pixels, int32_t spacing, int32_t subStep);
void scatter(int16_t* target, const int16_t* frame, std::size_t pixels, int32_t spacing, int32_t subStep);

// One chip of 14-bit values, low bit first, and back; then each shift register to its count by a table of 16384.
void packBits(const uint16_t* values, uint8_t* stream);
void unpackBits(const uint8_t* stream, int16_t* values);
void decode(int16_t* values, const int16_t* counts);

}  // namespace bench::plain
