// SPDX-License-Identifier: MIT
#include "device/qdldevice.h"

int32_t QdlDevice::initQdlDevice(const char* cfgFileName) {
    CsLock cslock(csDevice);
    if (acquiring) return reportDevMsg(msg::acquisitionInProgress);
    if (!devInfo) return reportDevMsg(msg::notProperlyInitialized);
    if (int32_t r = setFrameSizes(devInfo->chipCount)) return r;
    funcs.hwPrepare(hwID);
    loadCfg(cfgFileName && *cfgFileName ? cfgFileName : defaultCfgFile.c_str());
    shareFlags();
    // Without the file, or with a part of it, the device still gets the matrix as it stands.
    if (loadMatrix(defaultPixelsFile.c_str())) loadMatrix(nullptr);
    if (int32_t r = sendDacs(0, 0, nullptr)) return r;
    initialized = true;
    return QDL_OK;
}

int32_t QdlDevice::setFrameSizes(uint32_t chips) {
    // The most chips whose bytes of stream fit signed 32-bit arithmetic.
    constexpr uint32_t maxChips = (INT32_MAX - 1) / QDL_CHIP_STREAM_BYTES;
    if (chips > maxChips || !currentCfg.resizeCfg(chips))
        return reportDevMsg(msg::allocationFailed, int64_t{chips} * (QDL_CHIP_PIXELS + QDL_CHIP_DACS));
    const uint32_t newFrameSize = chips * QDL_CHIP_PIXELS;
    if (newFrameSize != frameSize) {
        // Nothing of another size may be read back as frames of this one.
        resetAcqState();
        freeAll(allBuffers);
    }
    frameSize = newFrameSize;
    streamFrameSize = (chips * QDL_CHIP_STREAM_BYTES + 1) / 2;
    return QDL_OK;
}

void QdlDevice::shareFlags() {
    devInfo->cst = static_cast<uint32_t>(currentCfg.cst);
    devInfo->spareFSR = static_cast<uint32_t>(currentCfg.spareFSR);
    devInfo->polarity = static_cast<uint32_t>(currentCfg.polarity);
    devInfo->extShutter = static_cast<uint32_t>(currentCfg.extShutter);
    devInfo->hwTimerUsed = 0;
}
