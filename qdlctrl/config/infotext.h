// SPDX-License-Identifier: MIT
// Typed values to text and back. A value is a block of `count` elements of one type (QDL_TYPE_...) without gaps.
#pragma once

#include <cstddef>
#include <cstdint>

// Bytes of one element; 0 for a type that is none.
std::size_t infoTypeSize(uint32_t type);

// Writes the elements to `text`, an area of `size` characters, each number with a blank behind it; text that does not
// fit is cut. A string must be terminated and is written up to there, whatever `count` says. False if there is no room
// for a terminator.
bool infoValueToText(uint32_t type, const void* data, int32_t count, char* text, std::size_t size);

// Reads `count` elements from the writable `text` of `size` characters, which it may change. Numbers are taken one
// behind the other and keep their low bits; a truth value is TRUE or FALSE, or all of them are numbers. A string fills
// `count` bytes, padded with zeros, without a terminator if it is as long. False if elements are missing or the type is
// none; elements in front of the failure are stored.
bool infoTextToValue(uint32_t type, void* data, int32_t count, char* text, std::size_t size);
