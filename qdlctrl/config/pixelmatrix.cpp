// SPDX-License-Identifier: MIT
#include <algorithm>

#include "device/qdldevice.h"

int32_t QdlDevice::setPixelsCfg(const uint8_t* pixels, int32_t chip) {
    CsLock cslock(csDevice);
    if (int32_t r = checkPlane(chip)) return r;
    std::copy_n(pixels, QDL_CHIP_PIXELS, currentCfg.plane(chip));
    return sendPixelsCfg();
}

int32_t QdlDevice::getPixelsCfg(uint8_t* pixels, int32_t chip) {
    CsLock cslock(csDevice);
    if (int32_t r = checkPlane(chip)) return r;
    std::copy_n(currentCfg.plane(chip), QDL_CHIP_PIXELS, pixels);
    return QDL_OK;
}

int32_t QdlDevice::resetPixelsCfg(int32_t chip) {
    CsLock cslock(csDevice);
    if (int32_t r = checkPlane(chip)) return r;
    std::fill_n(currentCfg.plane(chip), QDL_CHIP_PIXELS, static_cast<uint8_t>(QDL_PIXEL_DEFAULT));
    return sendPixelsCfg();
}

int32_t QdlDevice::refreshPixelsCfg() {
    CsLock cslock(csDevice);
    if (int32_t r = checkMatrix()) return r;
    return sendPixelsCfg();
}

int32_t QdlDevice::setAllChipsPixelsCfg(const uint8_t* pixels, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkAllPlanes(chips)) return r;
    std::copy_n(pixels, currentCfg.pixelCount(), currentCfg.pixels.get());
    return sendPixelsCfg();
}

int32_t QdlDevice::getAllChipsPixelsCfg(uint8_t* pixels, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkAllPlanes(chips)) return r;
    std::copy_n(currentCfg.pixels.get(), currentCfg.pixelCount(), pixels);
    return QDL_OK;
}

int32_t QdlDevice::resetAllChipsPixelsCfg(int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkAllPlanes(chips)) return r;
    std::fill_n(currentCfg.pixels.get(), currentCfg.pixelCount(), static_cast<uint8_t>(QDL_PIXEL_DEFAULT));
    return sendPixelsCfg();
}

// The matrix exists before the device is initialized: initQdlDevice sends it before its last step.
int32_t QdlDevice::checkMatrix() { return currentCfg.pixels ? QDL_OK : reportDevMsg(msg::notProperlyInitialized); }

int32_t QdlDevice::checkPlane(int32_t chip) {
    if (int32_t r = checkMatrix()) return r;
    return checkChip(chip);
}

int32_t QdlDevice::checkAllPlanes(int32_t chips) {
    if (int32_t r = checkInitialized()) return r;
    return chips < chipCount() ? reportDevMsg(msg::valuesForOtherChips, chips, chipCount()) : QDL_OK;
}

int32_t QdlDevice::sendPixelsCfg() {
    return fromHw(funcs.hwSetPixels(hwID, currentCfg.pixels.get()), msg::pixelsFailed);
}
