// SPDX-License-Identifier: MIT
#include "counters.h"

#include <array>
#include <bit>
#include <cstring>

#include "qdltypes.h"

namespace qdlsim {
namespace {

constexpr uint32_t kStates = 16384;
constexpr uint16_t kStartState = 0x3FFF;
constexpr uint8_t kClosingByte = 0x5A;
constexpr int16_t kNoState = -1;
constexpr size_t kGroupPixels = 4;
constexpr size_t kGroupBytes = 7;

static_assert(std::endian::native == std::endian::little, "groups of pixels are moved as little-endian 64-bit words");

// One count: x^14 + x^13 + x^12 + x^2 + 1, a polynomial of maximal length. Taps 14, 13, 12, 2 of R. Ward, T. Molteno,
// "Table of Linear Feedback Shift Registers", University of Otago (2007).
constexpr uint16_t nextState(uint16_t state) {
    const int bit = (state >> 13 ^ state >> 12 ^ state >> 11 ^ state >> 1) & 1;
    return static_cast<uint16_t>((state << 1 | bit) & (kStates - 1));
}

struct CodeTables {
    std::array<uint16_t, kMaxCount + 1> codes{};
    std::array<int16_t, kStates> counts{};
    uint16_t afterLast = kStartState;
};

constexpr CodeTables makeTables() {
    CodeTables tables;
    tables.counts[0] = kNoState;
    for (uint32_t count = 0; count <= kMaxCount; ++count) {
        tables.codes[count] = tables.afterLast;
        tables.counts[tables.afterLast] = static_cast<int16_t>(count);
        tables.afterLast = nextState(tables.afterLast);
    }
    return tables;
}

constexpr CodeTables kTables = makeTables();
static_assert(kTables.afterLast == kStartState && kTables.codes[kMaxCount] != kTables.codes[0]);

// Four 16-bit lanes of 14 bits to 56 bits without gaps: pairs of lanes close up, then the two pairs.
constexpr uint64_t closeUp(uint64_t lanes) {
    const uint64_t pairs = (lanes & 0x00003FFF00003FFFu) | (lanes >> 2 & 0x0FFFC0000FFFC000u);
    return (pairs & 0x000000000FFFFFFFu) | (pairs >> 4 & 0x00FFFFFFF0000000u);
}

constexpr uint64_t spread(uint64_t packed) {
    const uint64_t pairs = (packed & 0x000000000FFFFFFFu) | (packed & 0x00FFFFFFF0000000u) << 4;
    return (pairs & 0x00003FFF00003FFFu) | (pairs & 0x0FFFC0000FFFC000u) << 2;
}

static_assert(spread(closeUp(0x3FFF000120003FFEu)) == 0x3FFF000120003FFEu);

}  // namespace

uint16_t counterCode(uint32_t count) { return kTables.codes[count]; }

// Four pixels are exactly seven bytes. Each store writes one byte more, which the next group overwrites; behind the
// last group it is the place of the closing byte.
void shiftOut(uint16_t* codes, uint8_t* stream) {
    constexpr uint64_t kCleared = kStartState * 0x0001000100010001u;
    for (size_t group = 0; group < QDL_CHIP_PIXELS / kGroupPixels; ++group) {
        uint64_t lanes;
        std::memcpy(&lanes, codes + group * kGroupPixels, sizeof lanes);
        std::memcpy(codes + group * kGroupPixels, &kCleared, sizeof kCleared);
        const uint64_t packed = closeUp(lanes);
        std::memcpy(stream + group * kGroupBytes, &packed, sizeof packed);
    }
    stream[QDL_CHIP_STREAM_BYTES - 1] = kClosingByte;
}

bool unpackStream(const uint8_t* stream, uint16_t* codes) {
    for (size_t group = 0; group < QDL_CHIP_PIXELS / kGroupPixels; ++group) {
        uint64_t packed;
        std::memcpy(&packed, stream + group * kGroupBytes, sizeof packed);
        const uint64_t lanes = spread(packed);
        std::memcpy(codes + group * kGroupPixels, &lanes, sizeof lanes);
    }
    return stream[QDL_CHIP_STREAM_BYTES - 1] == kClosingByte;
}

bool decodeCounts(int16_t* frame, size_t pixels) {
    uint16_t seenStates = 0, seenCounts = 0;
    const auto decode = [&](uint64_t state) {
        seenStates |= static_cast<uint16_t>(state);
        const auto count = static_cast<uint16_t>(kTables.counts[state & (kStates - 1)]);
        seenCounts |= count;
        return count;
    };
    for (size_t pixel = 0; pixel < pixels; ++pixel)
        frame[pixel] = static_cast<int16_t>(decode(static_cast<uint16_t>(frame[pixel])));
    return seenStates < kStates && seenCounts <= INT16_MAX;
}

}  // namespace qdlsim
