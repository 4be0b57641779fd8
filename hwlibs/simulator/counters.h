// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

// The counter of a pixel is a 14-bit linear-feedback shift register: it counts by shifting once, and what is read out
// is the state of the register, not the count. A register has 16383 states; the counter stops at the last one. The
// state 0 never occurs, for the register would not leave it.
namespace qdlsim {

inline constexpr uint32_t kMaxCount = 16382;

// State of the register after `count` counts, at most kMaxCount.
uint16_t counterCode(uint32_t count);

// Shifts one chip out, as a stream of QDL_CHIP_STREAM_BYTES bytes: the pixels row by row, 14 bits each, low bit first,
// and one closing byte. The bit k of a byte is the k-th of its eight. The counters are cleared behind it.
void shiftOut(uint16_t* codes, uint8_t* stream);
// The way back, clearing nothing. Gives false if the stream does not end in the closing byte.
bool unpackStream(const uint8_t* stream, uint16_t* codes);

// Turns states into counts, in place. Gives false if some value is no state; the frame then holds nothing useful.
bool decodeCounts(int16_t* frame, size_t pixels);

}  // namespace qdlsim
