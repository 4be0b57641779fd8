// SPDX-License-Identifier: MIT
// Sectioned `key:value` text files: finding keys and writing lines. Knows nothing of devices and keeps no state. Every
// search starts from the beginning of the file.
//
// A line is a heading "[section]" from the first column, or a key, a colon and a value; anything else is skipped, and
// so is a line in another section. Lines longer than 4095 characters are taken in pieces, each a line of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

enum class CfgResult { found = 0, notFound = 1, failed = -1 };

// Room for the longest value with its terminator.
constexpr std::size_t cfgLineSize = 4096;

// Copies what stands behind the colon of the first matching line, up to and including the line's end, to `value`, an
// area of `valueSize` characters; a longer value is cut. A key of the file matches when it equals the requested name or
// is a prefix of it. `section` null or empty: only lines ahead of the first heading are seen.
CfgResult cfgGetString(std::FILE* file, const char* section, const char* keyName, char* value, std::size_t valueSize);

// The value as a decimal integer; what follows the number is ignored. A blank value counts as found and leaves *value
// as it is; a number that does not fit is failed.
CfgResult cfgGetInt(std::FILE* file, const char* section, const char* keyName, int* value);

// Collects the lines that tell of failed keys, in an area of fixed size; what does not fit is cut.
class CfgErrors {
 public:
    void add(CfgResult result, const char* keyName);
    const char* text() const { return lines; }
    bool empty() const { return length == 0; }

 private:
    char lines[4096] = "";
    std::size_t length = 0;
};

// As cfgGetInt, but a key that is missing or fails stores `defaultValue` and adds its line to `errors`. The byte form
// takes 0 to 255 only, and a blank value as failed.
void cfgGetIntDef(std::FILE* file, const char* section, const char* keyName, int* value, int defaultValue,
                  CfgErrors& errors);
void cfgGetByteDef(std::FILE* file, const char* section, const char* keyName, uint8_t* value, uint8_t defaultValue,
                   CfgErrors& errors);

// Write one line. False if it is longer than cfgLineSize - 1 characters, or if the write fails.
bool cfgPutInt(std::FILE* file, const char* keyName, int value);
bool cfgPutString(std::FILE* file, const char* keyName, const char* value);
