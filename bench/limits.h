// SPDX-License-Identifier: MIT
// The best that the machine can do: the bytes that must move, moved by the widest instructions, and nothing computed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

// Memory as the library has it for results: at the start of a cache line, from 4 MiB on in large pages. All touched.
class Area {
 public:
    explicit Area(std::size_t bytes);
    template <class Element>
    Element* as(std::size_t first = 0) const {
        return reinterpret_cast<Element*>(memory.get()) + first;
    }

 private:
    struct Free {
        void operator()(char* block) const;
    };
    std::unique_ptr<char, Free> memory;
};

// Reads `count` 16-bit elements and writes as many of 32 and 64 bits. Counts are multiples of 64.
void streamTo32(const int16_t* narrow, uint32_t* wide, std::size_t count);
void streamTo64(const int16_t* narrow, double* wide, std::size_t count);

// Reads `count` elements of 16 bits and of 32 bits, adds, and writes those of 32 bits.
void streamAndAdd(uint32_t* sum, const int16_t* narrow, std::size_t count);

// Looks at each byte once.
uint64_t onePass(const char* bytes, std::size_t count);

// The file with exactly these bytes, and back into `bytes`, by one call of the system each.
void writeWhole(const std::string& path, const void* bytes, std::size_t count);
void readWhole(const std::string& path, void* bytes, std::size_t count);

}  // namespace bench
