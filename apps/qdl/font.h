// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

constexpr int glyphColumns = 5;
constexpr int glyphRows = 8;     // the last one is for descenders
constexpr int glyphAdvance = 6;  // columns from one character to the next

// The columns of an ASCII character, bit 0 on top; a question mark for what has no glyph.
const uint8_t* glyphOf(char character);
