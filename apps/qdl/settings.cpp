// SPDX-License-Identifier: MIT
#include "settings.h"

#include "infoitems.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <optional>

namespace {

struct Flag {
    const char* key;
    decltype(Api::getPolarity) Api::*get;
    decltype(Api::setPolarity) Api::*set;
};

constexpr Flag flags[] = {
    {"polarity", &Api::getPolarity, &Api::setPolarity},
    {"cst", &Api::getCST, &Api::setCST},
    {"extShutter", &Api::getExternalShutter, &Api::setExternalShutter},
    {"spareFSR", &Api::getSpareFSR, &Api::setSpareFSR},
    {"hwTimer", &Api::getHwTimer, &Api::setHwTimer},
};

constexpr const char* timerModes[] = {"always", "never", "auto"};
static_assert(HW_TIMER_ALWAYS == 0 && HW_TIMER_NEVER == 1 && HW_TIMER_AUTO == 2);

constexpr const char* dacs[QDL_CHIP_DACS] = {"VbiasDelayN", "VbiasDisc",    "VbiasPreamp", "VbiasSetDisc", "VbiasThs",
                                             "VbiasIkrum",  "VbiasABuffer", "VthH",        "VthL",         "Vfbk",
                                             "Vgnd",        "VbiasLVDStx",  "VrefLVDStx"};

template <typename Names>
std::optional<size_t> indexOf(const Names& names, const std::string& name) {
    const auto found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names)) return std::nullopt;
    return static_cast<size_t>(found - std::begin(names));
}

const Flag* flagOf(const std::string& key) {
    const auto found =
        std::find_if(std::begin(flags), std::end(flags), [&](const Flag& flag) { return flag.key == key; });
    return found == std::end(flags) ? nullptr : found;
}

std::optional<uint32_t> wholeNumber(const std::string& text, uint32_t most) {
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value > most) return std::nullopt;
    return value;
}

[[noreturn]] void refuse(const std::string& key, const std::string& value, const char* wanted) {
    throw Failure(ExitStatus::Usage, formatted("%s cannot be '%s': %s", key.c_str(), value.c_str(), wanted));
}

uint32_t flagValue(const std::string& key, const std::string& value) {
    if (key == "hwTimer") {
        if (const auto mode = indexOf(timerModes, value)) return static_cast<uint32_t>(*mode);
        if (const auto mode = wholeNumber(value, HW_TIMER_AUTO)) return *mode;
        refuse(key, value, "always (0), never (1) or auto (2)");
    }
    if (value == "1" || value == "on" || value == "true") return 1;
    if (value == "0" || value == "off" || value == "false") return 0;
    refuse(key, value, "0 or 1, off or on");
}

// A DAC of one chip, or of all of them.
struct DacKey {
    size_t dac;
    uint32_t firstChip, lastChip;
};

DacKey dacOf(const Device& device, const std::string& key) {
    const size_t at = key.find('@');
    DacKey result{indexOf(dacs, key.substr(0, at)).value(), 0, device.chips - 1};
    if (at == std::string::npos) return result;
    const auto chip = wholeNumber(key.substr(at + 1), device.chips - 1);
    if (!chip)
        throw Failure(ExitStatus::Usage,
                      formatted("%s: device %u has the chips 0 to %u", key.c_str(), device.id, device.chips - 1));
    result.firstChip = result.lastChip = *chip;
    return result;
}

// The DACs of all chips as rows of 13 bytes.
std::vector<uint8_t> readDacs(Session& session, const Device& device) {
    std::vector<ChipDacs> records(device.chips);
    session.check(device, session.api().getAllChipsDACs(device.id, records.data(), static_cast<int32_t>(device.chips)),
                  "cannot read the DACs");
    std::vector<uint8_t> bytes(records.size() * sizeof(ChipDacs));
    std::memcpy(bytes.data(), records.data(), bytes.size());
    return bytes;
}

int32_t setDacs(Session& session, const Device& device, const std::vector<uint8_t>& bytes) {
    std::vector<ChipDacs> records(device.chips);
    std::memcpy(records.data(), bytes.data(), bytes.size());
    return session.api().setAllChipsDACs(device.id, records.data(), static_cast<int32_t>(device.chips));
}

void writeDac(Session& session, const Device& device, const std::string& key, const std::string& value) {
    const DacKey place = dacOf(device, key);
    const auto level = wholeNumber(value, 255);
    if (!level) refuse(key, value, "0 to 255");
    const std::vector<uint8_t> before = readDacs(session, device);
    std::vector<uint8_t> after = before;
    for (uint32_t chip = place.firstChip; chip <= place.lastChip; ++chip)
        after[chip * QDL_CHIP_DACS + place.dac] = static_cast<uint8_t>(*level);
    try {
        session.check(device, setDacs(session, device, after), "cannot set " + key);
    } catch (const Failure&) {
        // The library keeps values that it could not send, and would save them.
        setDacs(session, device, before);
        throw;
    }
}

Json readFlag(Session& session, const Device& device, const Flag& flag) {
    uint32_t value = 0;
    session.check(device, (session.api().*flag.get)(device.id, &value), formatted("cannot read %s", flag.key));
    if (flag.get == &Api::getHwTimer && value < std::size(timerModes)) return timerModes[value];
    return value;
}

bool isDac(const std::string& key) { return indexOf(dacs, key.substr(0, key.find('@'))).has_value(); }

Json readDac(Session& session, const Device& device, const std::string& key) {
    const DacKey place = dacOf(device, key);
    const std::vector<uint8_t> bytes = readDacs(session, device);
    Json values = Json::array();
    for (uint32_t chip = place.firstChip; chip <= place.lastChip; ++chip)
        values.push_back(bytes[chip * QDL_CHIP_DACS + place.dac]);
    return values.size() == 1 ? values[0] : values;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

InfoValue itemOf(Session& session, const Device& device, const std::string& key) {
    std::vector<std::string> names;
    for (InfoValue& item : readItems(session, device)) {
        if (item.name == key) return std::move(item);
        names.push_back(item.name);
    }
    throw Failure(ExitStatus::Usage,
                  formatted("there is no setting '%s'\n  flags: %s\n  DACs (@CHIP for one chip): %s\n  info items: %s",
                            key.c_str(), joined(flagKeys()).c_str(), joined(dacKeys()).c_str(), joined(names).c_str()));
}

}  // namespace

std::vector<std::string> flagKeys() {
    std::vector<std::string> keys;
    for (const Flag& flag : flags)
        keys.push_back(flag.key);
    return keys;
}

std::vector<std::string> dacKeys() { return {std::begin(dacs), std::end(dacs)}; }

Json readSetting(Session& session, const Device& device, const std::string& key) {
    if (const Flag* flag = flagOf(key)) return readFlag(session, device, *flag);
    if (isDac(key)) return readDac(session, device, key);
    return itemOf(session, device, key).json();
}

void writeSetting(Session& session, const Device& device, const std::string& key, const std::string& value) {
    if (const Flag* flag = flagOf(key))
        return session.check(device, (session.api().*flag->set)(device.id, flagValue(key, value)), "cannot set " + key);
    if (isDac(key)) return writeDac(session, device, key, value);
    const InfoValue item = itemOf(session, device, key);
    writeItem(session, device, item, value);
    if (!item.stored)
        std::fprintf(stderr, "qdl: note: the HW library does not ask to keep %s in the configuration file\n",
                     key.c_str());
}
