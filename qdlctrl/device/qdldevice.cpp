// SPDX-License-Identifier: MIT
// Birth, names, flags and end of a device.
#include "device/qdldevice.h"

#include <cstring>

namespace {

// Copies a name into a text area of QDL_NAME_TEXT_SIZE characters, or nowhere if that is null.
void copyName(char* target, const char* name) {
    if (!target) return;
    const std::size_t length = strnlen(name, QDL_NAME_TEXT_SIZE - 1);
    std::memcpy(target, name, length);
    target[length] = 0;
}

}  // namespace

QdlDevice::QdlDevice(uint32_t hwID, const MandatoryFuncs& funcs, uint32_t index, cbInfoMsgFn cbInfoMsg,
                     cbAcqComplFn cbAcqCompl, const std::string& baseDir)
    : hwID(hwID),
      index(index),
      funcs(funcs),
      devInfo(funcs.hwGetDevInfo(hwID)),
      cbInfoMsg(cbInfoMsg),
      cbAcqCompl(cbAcqCompl),
      configsDir(baseDir + platform::separator + "configs"),
      defaultCfgFile(defaultFile(".qcf")),
      defaultPixelsFile(defaultFile(".bpc")) {}

QdlDevice::~QdlDevice() {
    abortFlag = 1;
    CsLock cslock(csDevice);
    if (!initialized) return;
    saveCfg(nullptr);
    saveMatrixTo(defaultPixelsFile.c_str());
}

std::string QdlDevice::defaultFile(const char* extension) const {
    std::string file = configsDir + platform::separator;
    if (devInfo) file += devInfo->hwName;
    file += '_';
    if (devInfo) file.append(devInfo->devName, strnlen(devInfo->devName, QDL_NAME_SIZE));
    return file + extension;
}

int32_t QdlDevice::getQuandelInfo(uint32_t* chipCount, uint32_t* infoValue, char* devName, char* hwName) {
    CsLock cslock(csDevice);
    if (!devInfo) return reportDevMsg(msg::notProperlyInitialized);
    *chipCount = devInfo->chipCount;
    *infoValue = devInfo->infoValue;
    copyName(devName, devInfo->devName);
    copyName(hwName, devInfo->hwName);
    return QDL_OK;
}

void QdlDevice::setFlag(std::atomic<int32_t> DeviceCfg::*field, uint32_t DevInfo::*shared, uint32_t value) {
    CsLock cslock(csDevice);
    currentCfg.*field = static_cast<int32_t>(value);
    if (devInfo) devInfo->*shared = value;
}

void QdlDevice::setPolarity(uint32_t value) { setFlag(&DeviceCfg::polarity, &DevInfo::polarity, value); }
void QdlDevice::setCST(uint32_t value) { setFlag(&DeviceCfg::cst, &DevInfo::cst, value); }
void QdlDevice::setExternalShutter(uint32_t value) { setFlag(&DeviceCfg::extShutter, &DevInfo::extShutter, value); }
void QdlDevice::setSpareFSR(uint32_t value) { setFlag(&DeviceCfg::spareFSR, &DevInfo::spareFSR, value); }

void QdlDevice::setHwTimer(uint32_t mode) {
    // DevInfo hears of the timer before each exposure, when the mode has been worked out.
    CsLock cslock(csDevice);
    currentCfg.hwTimer = static_cast<int32_t>(mode);
}

void QdlDevice::getInfoMsg(int32_t* code, const char** text) const { messages.read(code, text); }

int32_t QdlDevice::checkInitialized() { return initialized ? QDL_OK : reportDevMsg(msg::notInitialized); }

int32_t QdlDevice::checkChip(int32_t chip) {
    if (chip >= 0 && chip < chipCount()) return QDL_OK;
    return reportDevMsg(msg::invalidChip, chip, chipCount(), chipCount() - 1);
}
