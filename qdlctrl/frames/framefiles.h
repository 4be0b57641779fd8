// SPDX-License-Identifier: MIT
// Names and formats of frame files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

constexpr std::size_t fileNameLimit = 260;

inline bool isEmpty(const char* text) { return !text || !*text; }

// Puts the number before the last dot of the whole `name`, folders included, or at its end if there is no dot. Cut to
// `limit` characters with the terminator. Gives `idxFileName`.
char* indexedFileName(char* idxFileName, std::size_t limit, const char* name, uint32_t index);

// A numbered file name in memory of its own.
struct FileName {
    char text[fileNameLimit];
    operator const char*() const { return text; }
};

// The name of file `index` of a series. Empty, so that it cannot be opened, if `baseName` is empty or null, or so long
// that the number would be cut: two frames must never share a file.
FileName numberedName(const char* baseName, uint32_t index);

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opens a file for transfers by block, without a buffer of the stream's own.
File openUnbuffered(const char* path, const char* mode);

// Text frames. Writing is done when it has been flushed; reading is done when all items are there.
bool writeItems(std::FILE* file, const int16_t* items, std::size_t count);
bool writeItems(std::FILE* file, const uint32_t* items, std::size_t count);
bool readItems(std::FILE* file, int16_t* items, std::size_t count);
