// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <vector>

#include "device/qdldevice.h"

namespace {

// What selects a DAC for the analog read-back, by DAC index. The last entry belongs to no DAC.
constexpr std::array<uint32_t, QDL_CHIP_DACS + 1> dacSenseCodes{1, 2, 3, 4, 5, 7, 14, 12, 11, 10, 13, 6, 9, 8};

}  // namespace

int32_t QdlDevice::setChipDACs(const ChipDacs* dacs, int32_t chip) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    if (int32_t r = checkChip(chip)) return r;
    currentCfg.dacs[static_cast<std::size_t>(chip)] = *dacs;
    return sendDacs(0, 0, nullptr);
}

int32_t QdlDevice::getChipDACs(ChipDacs* dacs, int32_t chip) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    if (int32_t r = checkChip(chip)) return r;
    *dacs = currentCfg.dacs[static_cast<std::size_t>(chip)];
    return QDL_OK;
}

int32_t QdlDevice::setAllChipsDACs(const ChipDacs* dacs, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    if (chips != chipCount()) return reportDevMsg(msg::valuesForOtherChips, chips, chipCount());
    std::copy_n(dacs, chips, currentCfg.dacs.get());
    return sendDacs(0, 0, nullptr);
}

int32_t QdlDevice::getAllChipsDACs(ChipDacs* dacs, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    if (chips != chipCount()) return reportDevMsg(msg::bufferForOtherChips, chips, chipCount());
    std::copy_n(currentCfg.dacs.get(), chips, dacs);
    return QDL_OK;
}

int32_t QdlDevice::refreshDACs() {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    return sendDacs(0, 0, nullptr);
}

int32_t QdlDevice::getAllChipsDACsAnalog(double* values, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkAnalogRead(chips)) return r;
    const std::size_t count = currentCfg.chipCount;
    std::vector<double> ofOneDac(count);
    for (int32_t dac = 0; dac < QDL_CHIP_DACS; ++dac) {
        const std::vector<int32_t> dacIndex(count, dac);
        if (int32_t r = readSingleDac(ofOneDac.data(), dacIndex.data())) return r;
        for (std::size_t chip = 0; chip < count; ++chip)
            values[chip * QDL_CHIP_DACS + static_cast<std::size_t>(dac)] = ofOneDac[chip];
    }
    return QDL_OK;
}

int32_t QdlDevice::getAllChipsSingleDacAnalog(double* values, const int32_t* dacIndex, int32_t chips) {
    CsLock cslock(csDevice);
    if (int32_t r = checkAnalogRead(chips)) return r;
    constexpr int32_t lastIndex = static_cast<int32_t>(dacSenseCodes.size()) - 1;
    for (int32_t chip = 0; chip < chipCount(); ++chip)
        if (dacIndex[chip] < 0 || dacIndex[chip] > lastIndex)
            return reportDevMsg(msg::invalidDacIndex, dacIndex[chip], lastIndex);
    return readSingleDac(values, dacIndex);
}

int32_t QdlDevice::checkAnalogRead(int32_t chips) {
    if (int32_t r = checkInitialized()) return r;
    return chips < chipCount() ? reportDevMsg(msg::bufferForOtherChips, chips, chipCount()) : QDL_OK;
}

// One sensing send selects a DAC on every chip; then the chips are read one by one.
int32_t QdlDevice::readSingleDac(double* values, const int32_t* dacIndex) {
    const uint32_t count = currentCfg.chipCount;
    std::vector<uint32_t> codes(count);
    std::transform(dacIndex, dacIndex + count, codes.begin(),
                   [](int32_t dac) { return dacSenseCodes[static_cast<std::size_t>(dac)]; });
    if (int32_t r = sendDacs(255, 0, codes.data())) return r;
    for (uint32_t chip = 0; chip < count; ++chip)
        if (funcs.hwReadAnalog(hwID, chip, &values[chip]))
            return reportDevMsg(msg::analogFailed, static_cast<int32_t>(codes[chip]), hwErrorText());
    return QDL_OK;
}

int32_t QdlDevice::sendDacs(uint8_t first, uint8_t second, const uint32_t* codes) {
    const auto* const dacs = reinterpret_cast<const uint8_t*>(currentCfg.dacs.get());
    return fromHw(funcs.hwSetDacs(hwID, dacs, first, second, codes), msg::dacsFailed);
}
