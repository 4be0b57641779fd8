// SPDX-License-Identifier: MIT
#include "frames/framefiles.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "device/qdldevice.h"
#include "frames/frametext.h"

// Binary files are plain images of memory, lowest byte first.
static_assert(std::endian::native == std::endian::little);

namespace {

constexpr std::size_t blockItems = 32 * frametext::itemsPerLine;

template <class Item>
bool writeBlocks(std::FILE* file, const Item* items, std::size_t count) {
    char text[frametext::textRoom<Item>(blockItems)];
    while (count) {
        const std::size_t block = std::min(count, blockItems);
        const std::size_t length = frametext::format(items, block, text);
        if (std::fwrite(text, 1, length, file) != length) return false;
        items += block;
        count -= block;
    }
    return std::fflush(file) == 0;
}

// What stands ahead of the last dot, or all of the name.
std::string_view stemOf(const char* name) {
    const char* const dot = std::strrchr(name, '.');
    return dot ? std::string_view(name, static_cast<std::size_t>(dot - name)) : std::string_view(name);
}

const char* systemText() { return std::strerror(errno); }

}  // namespace

char* indexedFileName(char* idxFileName, std::size_t limit, const char* name, uint32_t index) {
    const std::string_view stem = stemOf(name);
    std::snprintf(idxFileName, limit, "%.*s%u%s", static_cast<int>(std::min(stem.size(), limit)), name, index,
                  name + stem.size());
    return idxFileName;
}

FileName numberedName(const char* baseName, uint32_t index) {
    FileName name{};
    if (isEmpty(baseName)) return name;
    const int numberLength = std::snprintf(nullptr, 0, "%u", index);
    if (stemOf(baseName).size() + static_cast<std::size_t>(numberLength) < fileNameLimit)
        indexedFileName(name.text, fileNameLimit, baseName, index);
    return name;
}

File openUnbuffered(const char* path, const char* mode) {
    File file(std::fopen(path, mode));
    if (file) std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

bool writeItems(std::FILE* file, const int16_t* items, std::size_t count) { return writeBlocks(file, items, count); }
bool writeItems(std::FILE* file, const uint32_t* items, std::size_t count) { return writeBlocks(file, items, count); }

bool readItems(std::FILE* file, int16_t* items, std::size_t count) {
    frametext::Parser parser(items, count);
    char text[65536];
    std::size_t length;
    do
        length = std::fread(text, 1, sizeof text, file);
    while (length && parser.take(text, length));
    return parser.finish();
}

int32_t QdlDevice::readBinFile(const char* path, void* buffer, std::size_t bytes) {
    const File file = openUnbuffered(path, "rb");
    if (!file) return reportDevMsg(msg::openForReadingFailed, path, systemText());
    errno = 0;  // a file that just ends is no failure of the system
    if (std::fread(buffer, 1, bytes, file.get()) < bytes) return reportDevMsg(msg::readFailed, path, systemText());
    return QDL_OK;
}

int32_t QdlDevice::writeBinFile(const char* path, const void* buffer, std::size_t bytes, bool append) {
    const File file = openUnbuffered(path, append ? "a+b" : "wb");
    if (!file) return reportDevMsg(msg::openForWritingFailed, path, systemText());
    if ((bytes && std::fwrite(buffer, 1, bytes, file.get()) < bytes) || std::fflush(file.get()))
        return reportDevMsg(msg::writeFailed, path, systemText());
    return QDL_OK;
}

int32_t QdlDevice::readAsciiFile(const char* path, int16_t* buffer, uint32_t items) {
    const File file = openUnbuffered(path, "r");
    if (!file) return reportDevMsg(msg::openForReadingFailed, path, systemText());
    return readItems(file.get(), buffer, items) ? QDL_OK : reportDevMsg(msg::readItemsFailed, items, path);
}

template <class Item>
int32_t QdlDevice::writeAsciiFile(const char* path, const Item* buffer, std::size_t items, bool append) {
    const File file = openUnbuffered(path, append ? "a+" : "w");
    if (!file) return reportDevMsg(msg::openForWritingFailed, path, systemText());
    return writeItems(file.get(), buffer, items) ? QDL_OK : reportDevMsg(msg::writeFailed, path, systemText());
}

int32_t QdlDevice::writeAscii16(const char* path, const int16_t* buffer, std::size_t items, bool append) {
    return writeAsciiFile(path, buffer, items, append);
}

int32_t QdlDevice::writeAscii32(const char* path, const uint32_t* buffer, std::size_t items, bool append) {
    return writeAsciiFile(path, buffer, items, append);
}
