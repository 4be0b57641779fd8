// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "device/cslock.h"

// A buffer of results: memory, its size in elements, and the count of whole frames in it.
//
// The memory changes hands only while both the device lock and `cs` are held, so either is enough to use it. The
// acquiring thread writes frames beyond `filled` without `cs`; `filled` rises with release order after its frame is
// complete, and readers load it with acquire order under `cs`.
template <class Element>
class AcqBuffer {
 public:
    AcqBuffer() = default;
    AcqBuffer(const AcqBuffer&) = delete;
    AcqBuffer& operator=(const AcqBuffer&) = delete;
    ~AcqBuffer() { platform::freeBlock(memory); }

    void release() REQUIRES(cs) {
        platform::freeBlock(memory);
        memory = nullptr;
        elementCount = 0;
        filled = 0;
    }

    // False if there is no memory for that many elements, or no such count; the buffer is then empty.
    bool replace(int64_t elements) REQUIRES(cs) {
        release();
        constexpr uint64_t most = std::min<uint64_t>(UINT32_MAX, SIZE_MAX / sizeof(Element));
        if (elements < 0 || static_cast<uint64_t>(elements) > most) return false;
        memory = static_cast<Element*>(platform::allocateBlock(static_cast<std::size_t>(elements) * sizeof(Element)));
        if (!memory && elements > 0) return false;
        elementCount = static_cast<uint32_t>(elements);
        return true;
    }

    Element* data() const REQUIRES(cs) { return memory; }

    // For the thread that holds the device lock, which is as good as `cs` for this.
    Element* dataUnderDeviceLock() const NO_THREAD_SAFETY_ANALYSIS { return memory; }

    uint32_t size() const { return elementCount; }

    CriticalSection cs;
    std::atomic<uint32_t> filled{0};

 private:
    Element* memory GUARDED_BY(cs) = nullptr;
    std::atomic<uint32_t> elementCount{0};
};
