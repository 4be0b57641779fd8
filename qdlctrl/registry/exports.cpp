// SPDX-License-Identifier: MIT
// The exported functions: find the device, forward, return. No opinion, no lock.
#include <new>

#include "registry/ctrl.h"

namespace {

QdlCtrl ctrl;

// No exception leaves the library; the containers and strings below throw only for want of memory.
template <class Operation>
int32_t guarded(Operation operation) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return QDL_E_MEMORY;
    }
}

template <class Operation>
int32_t onDevice(uint32_t id, Operation operation) {
    QdlDevice* const device = ctrl.getDevice(id);
    if (!device) return QDL_E_DEVICE_ID;
    return guarded([&] { return operation(*device); });
}

// For operations that have no result.
template <class Operation>
int32_t doOnDevice(uint32_t id, Operation operation) {
    return onDevice(id, [&](QdlDevice& device) {
        operation(device);
        return QDL_OK;
    });
}

}  // namespace

int32_t initQdlCtrl() {
    guarded([] { return ctrl.initQdlCtrl(); });
    return QDL_OK;
}

int32_t exitQdlCtrl() {
    guarded([] { return ctrl.exitQdlCtrl(); });
    return QDL_OK;
}

int32_t getFirstQdl(uint32_t* id, uint32_t* count) { return ctrl.getFirstQdl(id, count); }

int32_t getNextQdl(uint32_t* id) { return ctrl.getNextQdl(id); }

int32_t setCbInfoMsg(cbInfoMsgFn callback) {
    ctrl.setCbInfoMsg(callback);
    return QDL_OK;
}

int32_t setCbAcqCompl(cbAcqComplFn callback) {
    ctrl.setCbAcqCompl(callback);
    return QDL_OK;
}

int32_t initQdlDevice(uint32_t id, const char* cfgFileName) {
    return onDevice(id, [&](QdlDevice& device) { return device.initQdlDevice(cfgFileName); });
}

int32_t loadQdlCfg(uint32_t id, const char* fileName) {
    return onDevice(id, [&](QdlDevice& device) { return device.loadQdlCfg(fileName); });
}

int32_t saveQdlCfg(uint32_t id, const char* fileName) {
    return onDevice(id, [&](QdlDevice& device) { return device.saveQdlCfg(fileName); });
}

int32_t getQuandelInfo(uint32_t id, uint32_t* chipCount, uint32_t* infoValue, char* devName, char* hwName) {
    return onDevice(id,
                    [&](QdlDevice& device) { return device.getQuandelInfo(chipCount, infoValue, devName, hwName); });
}

int32_t setPolarity(uint32_t id, uint32_t value) {
    return doOnDevice(id, [&](QdlDevice& device) { device.setPolarity(value); });
}

int32_t getPolarity(uint32_t id, uint32_t* value) {
    return doOnDevice(id, [&](QdlDevice& device) { *value = device.getPolarity(); });
}

int32_t setCST(uint32_t id, uint32_t value) {
    return doOnDevice(id, [&](QdlDevice& device) { device.setCST(value); });
}

int32_t getCST(uint32_t id, uint32_t* value) {
    return doOnDevice(id, [&](QdlDevice& device) { *value = device.getCST(); });
}

int32_t setExternalShutter(uint32_t id, uint32_t value) {
    return doOnDevice(id, [&](QdlDevice& device) { device.setExternalShutter(value); });
}

int32_t getExternalShutter(uint32_t id, uint32_t* value) {
    return doOnDevice(id, [&](QdlDevice& device) { *value = device.getExternalShutter(); });
}

int32_t setHwTimer(uint32_t id, uint32_t mode) {
    return doOnDevice(id, [&](QdlDevice& device) { device.setHwTimer(mode); });
}

int32_t getHwTimer(uint32_t id, uint32_t* mode) {
    return doOnDevice(id, [&](QdlDevice& device) { *mode = device.getHwTimer(); });
}

int32_t setSpareFSR(uint32_t id, uint32_t value) {
    return doOnDevice(id, [&](QdlDevice& device) { device.setSpareFSR(value); });
}

int32_t getSpareFSR(uint32_t id, uint32_t* value) {
    return doOnDevice(id, [&](QdlDevice& device) { *value = device.getSpareFSR(); });
}

int32_t abortOperation(uint32_t id) {
    return doOnDevice(id, [&](QdlDevice& device) { device.abortOperation(); });
}

int32_t setChipDACs(uint32_t id, const ChipDacs* dacs, int32_t chip) {
    return onDevice(id, [&](QdlDevice& device) { return device.setChipDACs(dacs, chip); });
}

int32_t getChipDACs(uint32_t id, ChipDacs* dacs, int32_t chip) {
    return onDevice(id, [&](QdlDevice& device) { return device.getChipDACs(dacs, chip); });
}

int32_t setAllChipsDACs(uint32_t id, const ChipDacs* dacs, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.setAllChipsDACs(dacs, chips); });
}

int32_t getAllChipsDACs(uint32_t id, ChipDacs* dacs, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.getAllChipsDACs(dacs, chips); });
}

int32_t refreshDACs(uint32_t id) {
    return onDevice(id, [&](QdlDevice& device) { return device.refreshDACs(); });
}

int32_t getAllChipsDACsAnalog(uint32_t id, double* values, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.getAllChipsDACsAnalog(values, chips); });
}

int32_t getAllChipsSingleDacAnalog(uint32_t id, double* values, const int32_t* dacIndex, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.getAllChipsSingleDacAnalog(values, dacIndex, chips); });
}

int32_t setPixelsCfg(uint32_t id, const uint8_t* pixels, int32_t chip) {
    return onDevice(id, [&](QdlDevice& device) { return device.setPixelsCfg(pixels, chip); });
}

int32_t getPixelsCfg(uint32_t id, uint8_t* pixels, int32_t chip) {
    return onDevice(id, [&](QdlDevice& device) { return device.getPixelsCfg(pixels, chip); });
}

int32_t resetPixelsCfg(uint32_t id, int32_t chip) {
    return onDevice(id, [&](QdlDevice& device) { return device.resetPixelsCfg(chip); });
}

int32_t refreshPixelsCfg(uint32_t id) {
    return onDevice(id, [&](QdlDevice& device) { return device.refreshPixelsCfg(); });
}

int32_t setAllChipsPixelsCfg(uint32_t id, const uint8_t* pixels, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.setAllChipsPixelsCfg(pixels, chips); });
}

int32_t getAllChipsPixelsCfg(uint32_t id, uint8_t* pixels, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.getAllChipsPixelsCfg(pixels, chips); });
}

int32_t resetAllChipsPixelsCfg(uint32_t id, int32_t chips) {
    return onDevice(id, [&](QdlDevice& device) { return device.resetAllChipsPixelsCfg(chips); });
}

int32_t loadPixelsCfg(uint32_t id, const char* fileName) {
    return onDevice(id, [&](QdlDevice& device) { return device.loadPixelsCfg(fileName); });
}

int32_t savePixelsCfg(uint32_t id, const char* fileName) {
    return onDevice(id, [&](QdlDevice& device) { return device.savePixelsCfg(fileName); });
}

int32_t loadPixelsCfgAscii(uint32_t id, const char* maskFile, const char* testFile, const char* adjustLowFile,
                           const char* adjustHighFile) {
    return onDevice(id, [&](QdlDevice& device) {
        return device.loadPixelsCfgAscii(maskFile, testFile, adjustLowFile, adjustHighFile);
    });
}

int32_t savePixelsCfgAscii(uint32_t id, const char* maskFile, const char* testFile, const char* adjustLowFile,
                           const char* adjustHighFile) {
    return onDevice(id, [&](QdlDevice& device) {
        return device.savePixelsCfgAscii(maskFile, testFile, adjustLowFile, adjustHighFile);
    });
}

int32_t performFrameAcq(uint32_t id, int32_t count, double time, int32_t saveToFile, const char* fileName) {
    return onDevice(id,
                    [&](QdlDevice& device) { return device.performFrameAcq(count, time, saveToFile != 0, fileName); });
}

int32_t performFastAcq(uint32_t id, int32_t count, double time, int32_t saveToFile, const char* fileName) {
    return onDevice(id,
                    [&](QdlDevice& device) { return device.performFastAcq(count, time, saveToFile != 0, fileName); });
}

int32_t performIntegralAcq(uint32_t id, int32_t count, double time) {
    return onDevice(id, [&](QdlDevice& device) { return device.performIntegralAcq(count, time); });
}

int32_t performTestPulseAcq(uint32_t id, double pulseArg1, double pulseArg2, uint8_t pulseArg3, uint16_t pulseArg4) {
    return onDevice(
        id, [&](QdlDevice& device) { return device.performTestPulseAcq(pulseArg1, pulseArg2, pulseArg3, pulseArg4); });
}

int32_t setAcqSpacing(uint32_t id, int32_t spacing) {
    return onDevice(id, [&](QdlDevice& device) { return device.setAcqSpacing(spacing); });
}

int32_t getAcqSpacing(uint32_t id, int32_t* spacing) {
    return doOnDevice(id, [&](QdlDevice& device) { *spacing = device.getAcqSpacing(); });
}

int32_t getAcqInfo(uint32_t id, int32_t* acqIndex, int32_t* acqCount, int32_t* acqType) {
    return onDevice(id, [&](QdlDevice& device) { return device.getAcqInfo(acqIndex, acqCount, acqType); });
}

int32_t freeBuffers(uint32_t id) {
    return doOnDevice(id, [&](QdlDevice& device) { device.freeBuffers(); });
}

int32_t freeStreamBuff(uint32_t id) {
    return doOnDevice(id, [&](QdlDevice& device) { device.freeStreamBuff(); });
}

int32_t freeFrameBuff(uint32_t id) {
    return doOnDevice(id, [&](QdlDevice& device) { device.freeFrameBuff(); });
}

int32_t freeIntegralBuff(uint32_t id) {
    return doOnDevice(id, [&](QdlDevice& device) { device.freeIntegralBuff(); });
}

int32_t getFrame16(uint32_t id, int16_t* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return onDevice(id, [&](QdlDevice& device) { return device.getFrame16(buffer, size, frameIndex, msg); });
}

int32_t getFrame32(uint32_t id, uint32_t* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return onDevice(id, [&](QdlDevice& device) { return device.getFrame32(buffer, size, frameIndex, msg); });
}

int32_t getFrameDouble(uint32_t id, double* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return onDevice(id, [&](QdlDevice& device) { return device.getFrameDouble(buffer, size, frameIndex, msg); });
}

int32_t getFrameInfo(uint32_t id, int32_t infoType, uint32_t frameIndex, void* buffer, int32_t size, char* msg) {
    return onDevice(id,
                    [&](QdlDevice& device) { return device.getFrameInfo(infoType, frameIndex, buffer, size, msg); });
}

int32_t stream2Frame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) {
    return onDevice(id, [&](QdlDevice& device) { return device.stream2Frame(stream, words, frame, pixels); });
}

int32_t saveFrame(uint32_t id, const char* fileName, uint32_t frameIndex, int32_t flags) {
    return onDevice(id, [&](QdlDevice& device) { return device.saveFrame(fileName, frameIndex, flags); });
}

int32_t getHwInfoCount(uint32_t id, int32_t* count) {
    return doOnDevice(id, [&](QdlDevice& device) { *count = device.getHwInfoCount(); });
}

int32_t getHwInfoItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size) {
    return onDevice(id, [&](QdlDevice& device) { return device.getHwInfoItem(index, item, size); });
}

int32_t setHwInfoItem(uint32_t id, uint32_t index, const void* data, uint32_t size) {
    return onDevice(id, [&](QdlDevice& device) { return device.setHwInfoItem(index, data, size); });
}

int32_t getInfoMsg(uint32_t id, int32_t* code, const char** text) {
    if (id != QDL_CTRL_ID) return doOnDevice(id, [&](QdlDevice& device) { device.getInfoMsg(code, text); });
    ctrl.getInfoMsg(code, text);
    return QDL_OK;
}

// The second name of each function, at the same address.
#define QDL_EXPORT(name) extern "C" QDL_API decltype(name) _##name __attribute__((alias(#name)));
#include "registry/exports.inc"
#undef QDL_EXPORT
