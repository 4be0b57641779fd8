// SPDX-License-Identifier: MIT
#include "limits.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "rounds.h"

#if defined(__x86_64__) && defined(__ELF__)
#define WIDEST __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define WIDEST
#endif

namespace bench {
namespace {

typedef uint32_t Block __attribute__((vector_size(32), aligned(1), may_alias));

const Block* blocksOf(const void* memory) { return static_cast<const Block*>(memory); }
Block* blocksOf(void* memory) { return static_cast<Block*>(memory); }

int openOrFail(const std::string& path, int flags) {
    const int file = open(path.c_str(), flags, 0666);
    return file >= 0 ? file : (fail("cannot open " + path), -1);
}

}  // namespace

Area::Area(std::size_t bytes) {
    constexpr std::size_t cacheLine = 64, largePage = std::size_t{2} << 20;
    const std::size_t alignment = bytes < 2 * largePage ? cacheLine : largePage;
    const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
    memory.reset(static_cast<char*>(std::aligned_alloc(alignment, rounded)));
    if (!memory) throw std::bad_alloc();
    if (alignment == largePage) madvise(memory.get(), rounded, MADV_HUGEPAGE);
    std::memset(memory.get(), 1, rounded);
}

void Area::Free::operator()(char* block) const { std::free(block); }

WIDEST void streamTo32(const int16_t* narrow, uint32_t* wide, std::size_t count) {
    const Block* const from = blocksOf(narrow);
    Block* const to = blocksOf(wide);
    for (std::size_t i = 0; i < count * sizeof *narrow / sizeof(Block); ++i)
        to[2 * i] = to[2 * i + 1] = from[i];
}

WIDEST void streamTo64(const int16_t* narrow, double* wide, std::size_t count) {
    const Block* const from = blocksOf(narrow);
    Block* const to = blocksOf(wide);
    for (std::size_t i = 0; i < count * sizeof *narrow / sizeof(Block); ++i)
        to[4 * i] = to[4 * i + 1] = to[4 * i + 2] = to[4 * i + 3] = from[i];
}

WIDEST void streamAndAdd(uint32_t* sum, const int16_t* narrow, std::size_t count) {
    const Block* const from = blocksOf(narrow);
    Block* const to = blocksOf(sum);
    for (std::size_t i = 0; i < count * sizeof *narrow / sizeof(Block); ++i) {
        const Block pixels = from[i];
        to[2 * i] += pixels;
        to[2 * i + 1] += pixels;
    }
}

WIDEST uint64_t onePass(const char* bytes, std::size_t count) {
    const Block* const from = blocksOf(bytes);
    Block total{};
    for (std::size_t i = 0; i < count / sizeof(Block); ++i)
        total ^= from[i];
    uint64_t seen = 0;
    for (std::size_t i = 0; i < sizeof(Block) / sizeof(uint32_t); ++i)
        seen += total[i];
    return seen;
}

void writeWhole(const std::string& path, const void* bytes, std::size_t count) {
    const int file = openOrFail(path, O_WRONLY | O_CREAT | O_TRUNC);
    const bool whole = write(file, bytes, count) == static_cast<ssize_t>(count);
    if (close(file) || !whole) fail("cannot write " + path);
}

void readWhole(const std::string& path, void* bytes, std::size_t count) {
    const int file = openOrFail(path, O_RDONLY);
    const bool whole = read(file, bytes, count) == static_cast<ssize_t>(count);
    if (close(file) || !whole) fail("cannot read " + path);
}

}  // namespace bench
