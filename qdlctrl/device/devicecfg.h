// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "qdlctrl.h"

// The configuration of a device: what its .qcf file holds, and its pixel matrix. The flags are atomic, since their
// getters take no lock; all else belongs to the device lock.
struct DeviceCfg {
    std::atomic<int32_t> polarity{0};
    std::atomic<int32_t> cst{0};
    std::atomic<int32_t> extShutter{0};
    std::atomic<int32_t> spareFSR{0};
    std::atomic<int32_t> hwTimer{HW_TIMER_AUTO};
    uint32_t chipCount = 0;             // chips that the arrays hold
    std::unique_ptr<ChipDacs[]> dacs;   // chipCount records
    std::unique_ptr<uint8_t[]> pixels;  // [chip][y][x], chipCount planes; null until the device is initialized

    // Makes both arrays anew for `chips` chips, DACs 0 and pixels at their default. Without memory for them the block
    // stays as it was and the result is false.
    bool resizeCfg(uint32_t chips);

    // Takes the pixel matrix of `other`, and its chip count where that differs. False without memory for it.
    bool copyPixelsFrom(const DeviceCfg& other);

    // Puts bit 0 of `value` into the test bit of every pixel.
    void setTestBit(uint8_t value);

    uint8_t* plane(int32_t chip) const { return pixels.get() + static_cast<std::size_t>(chip) * QDL_CHIP_PIXELS; }
    std::size_t pixelCount() const { return static_cast<std::size_t>(chipCount) * QDL_CHIP_PIXELS; }
};
