// SPDX-License-Identifier: MIT
#include "device/devicecfg.h"

#include <algorithm>
#include <new>

bool DeviceCfg::resizeCfg(uint32_t chips) {
    std::unique_ptr<ChipDacs[]> newDacs;
    std::unique_ptr<uint8_t[]> newPixels;
    if (chips) {
        newDacs.reset(new (std::nothrow) ChipDacs[chips]());
        newPixels.reset(new (std::nothrow) uint8_t[static_cast<std::size_t>(chips) * QDL_CHIP_PIXELS]);
        if (!newDacs || !newPixels) return false;
    }
    chipCount = chips;
    dacs = std::move(newDacs);
    pixels = std::move(newPixels);
    std::fill_n(pixels.get(), pixelCount(), static_cast<uint8_t>(QDL_PIXEL_DEFAULT));
    return true;
}

bool DeviceCfg::copyPixelsFrom(const DeviceCfg& other) {
    if (chipCount != other.chipCount && !resizeCfg(other.chipCount)) return false;
    std::copy_n(other.pixels.get(), pixelCount(), pixels.get());
    return true;
}

void DeviceCfg::setTestBit(uint8_t value) {
    const uint8_t bit = (value & 1) ? QDL_PIXEL_TEST_BIT : 0;
    uint8_t* const bytes = pixels.get();
    const std::size_t count = pixelCount();
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>((bytes[i] & ~QDL_PIXEL_TEST_BIT) | bit);
}
