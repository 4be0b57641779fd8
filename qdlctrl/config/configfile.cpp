// SPDX-License-Identifier: MIT
// The .qcf file: flags, timer mode, DACs of every chip, and the stored info items.
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "config/cfgio.h"
#include "device/qdldevice.h"
#include "frames/framefiles.h"

namespace {

constexpr const char* flagSection = "Quandel";
constexpr const char* chipSection = "Chip";

struct FlagKey {
    const char* name;
    std::atomic<int32_t> DeviceCfg::*field;
    int32_t defaultValue;
};

constexpr std::array<FlagKey, 5> flagKeys{{{"Positive polarity", &DeviceCfg::polarity, 1},
                                           {"CST enabled", &DeviceCfg::cst, 0},
                                           {"External shutter", &DeviceCfg::extShutter, 0},
                                           {"HW timer", &DeviceCfg::hwTimer, HW_TIMER_AUTO},
                                           {"Spare FSR", &DeviceCfg::spareFSR, 0}}};

struct DacKey {
    const char* name;
    uint8_t ChipDacs::*field;
    uint8_t defaultValue;
};

constexpr std::array<DacKey, QDL_CHIP_DACS> dacKeys{{{"VbiasDelayN", &ChipDacs::VbiasDelayN, 0},
                                                     {"VbiasDisc", &ChipDacs::VbiasDisc, 0},
                                                     {"VbiasPreamp", &ChipDacs::VbiasPreamp, 128},
                                                     {"VbiasSetDisc", &ChipDacs::VbiasSetDisc, 240},
                                                     {"VbiasThs", &ChipDacs::VbiasThs, 110},
                                                     {"VbiasIkrum", &ChipDacs::VbiasIkrum, 210},
                                                     {"VbiasABuffer", &ChipDacs::VbiasABuffer, 255},
                                                     {"VthH", &ChipDacs::VthH, 0},
                                                     {"VthL", &ChipDacs::VthL, 200},
                                                     {"Vfbk", &ChipDacs::Vfbk, 255},
                                                     {"Vgnd", &ChipDacs::Vgnd, 128},
                                                     {"VbiasLVDStx", &ChipDacs::VbiasLVDStx, 128},
                                                     {"VrefLVDStx", &ChipDacs::VrefLVDStx, 128}}};

std::string chipSectionName(uint32_t chip) { return chipSection + std::to_string(chip); }

bool writeHeading(std::FILE* file, const std::string& section) {
    return std::fprintf(file, "[%s]\n", section.c_str()) >= 0;
}

bool writeDacs(std::FILE* file, const ChipDacs& dacs) {
    for (const DacKey& key : dacKeys)
        if (!cfgPutInt(file, key.name, dacs.*key.field)) return false;
    return true;
}

void readDacs(std::FILE* file, uint32_t chip, ChipDacs& dacs, CfgErrors& errors) {
    const std::string section = chipSectionName(chip);
    for (const DacKey& key : dacKeys)
        cfgGetByteDef(file, section.c_str(), key.name, &(dacs.*key.field), key.defaultValue, errors);
}

void readFlags(std::FILE* file, DeviceCfg& cfg, CfgErrors& errors) {
    for (const FlagKey& key : flagKeys) {
        int value = cfg.*key.field;  // what a blank value leaves in force
        cfgGetIntDef(file, flagSection, key.name, &value, key.defaultValue, errors);
        cfg.*key.field = value;
    }
}

}  // namespace

void QdlDevice::setDefaultCfg() {
    for (const FlagKey& key : flagKeys)
        currentCfg.*key.field = key.defaultValue;
    for (uint32_t chip = 0; chip < currentCfg.chipCount; ++chip)
        for (const DacKey& key : dacKeys)
            currentCfg.dacs[chip].*key.field = key.defaultValue;
}

int32_t QdlDevice::loadQdlCfg(const char* fileName) {
    CsLock cslock(csDevice);
    if (int32_t r = checkMatrix()) return r;
    return loadCfg(fileName ? fileName : "");
}

int32_t QdlDevice::loadCfg(const char* fileName) {
    const File file(std::fopen(fileName, "r"));
    if (!file) {
        reportDevMsg(msg::cfgOpenFailed, fileName);
        setDefaultCfg();
        return QDL_E_CFG_OPEN;
    }
    CfgErrors errors;
    readFlags(file.get(), currentCfg, errors);
    for (uint32_t chip = 0; chip < currentCfg.chipCount; ++chip)
        readDacs(file.get(), chip, currentCfg.dacs[chip], errors);
    loadInterfaceCfg(file.get());
    if (errors.empty()) return QDL_OK;
    reportDevMsg(msg::cfgKeysMissing, fileName);
    reportDevMsg(msg::cfgKeyList, errors.text());
    return QDL_CFG_DEFAULTS;
}

int32_t QdlDevice::saveQdlCfg(const char* fileName) {
    CsLock cslock(csDevice);
    if (int32_t r = checkMatrix()) return r;
    return saveCfg(fileName);
}

int32_t QdlDevice::saveCfg(const char* fileName) {
    if (!fileName) platform::makeFolder(configsDir);
    const char* const cfgFileName = fileName ? fileName : defaultCfgFile.c_str();
    const File file(std::fopen(cfgFileName, "w"));
    if (!file) return reportDevMsg(msg::openForWritingFailed, cfgFileName, std::strerror(errno));
    if (!writeSections(file.get()) || std::fflush(file.get())) return QDL_E_FAILED;
    saveInterfaceCfg(file.get());
    return QDL_OK;
}

bool QdlDevice::writeSections(std::FILE* file) {
    if (!writeHeading(file, flagSection)) return false;
    for (const FlagKey& key : flagKeys)
        if (!cfgPutInt(file, key.name, currentCfg.*key.field)) return false;
    for (uint32_t chip = 0; chip < currentCfg.chipCount; ++chip)
        if (!writeHeading(file, chipSectionName(chip)) || !writeDacs(file, currentCfg.dacs[chip])) return false;
    return true;
}
