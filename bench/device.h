// SPDX-License-Identifier: MIT
// Devices of the HW library of the benchmarks, behind the exported functions.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "benchhw.h"
#include "qdlctrl.h"

namespace bench {

// Ends the row with the text of the message store if `result` is a failure.
void must(int32_t result);

class Device {
 public:
    // One of 1, 2, 4, 8 or 16 chips, ready to acquire, with its buffers freed.
    explicit Device(uint32_t chips);

    void setWork(uint32_t work) const { setItem(BENCH_WORK, &work, sizeof work); }
    void setFrame(const std::vector<int16_t>& frame) const {
        setItem(BENCH_FRAME, frame.data(), frame.size() * sizeof frame[0]);
    }
    // Exposures that the next run starts before one fails.
    void setStarts(uint32_t starts) const { setItem(BENCH_STARTS, &starts, sizeof starts); }
    std::array<double, 2> times() const;

    const uint32_t id, pixels, words;

 private:
    void setItem(uint32_t index, const void* data, std::size_t bytes) const;
};

// A file name in a folder on the memory file system, which goes away with the program.
std::string memoryFile(const char* name);

}  // namespace bench
