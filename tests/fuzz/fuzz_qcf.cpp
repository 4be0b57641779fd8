// SPDX-License-Identifier: MIT
// Any bytes as a .qcf file, with items of all types: it loads, and what a save writes of it loads to the same settings.
#include <cstring>

#include "fuzzing.h"

namespace {

std::vector<ScriptedItem> allTypes() {
    std::vector<ScriptedItem> items;
    const uint8_t bytes[] = {4, 1, 1, 1, 2, 2, 4, 4, 4, 8, 1, 1};  // of an element, by type
    for (uint32_t type = 0; type < sizeof bytes; ++type)
        for (const int32_t count : {3, 300})
            items.push_back({type, count, QDL_ITEM_STORED, "item",
                             std::vector<uint8_t>(bytes[type] * static_cast<size_t>(count), '1'), 0});
    return items;
}

struct Settings {
    uint32_t flags[5];
    ChipDacs dacs;
};

Settings settings() {
    Settings now{};
    getPolarity(0, &now.flags[0]);
    getCST(0, &now.flags[1]);
    getExternalShutter(0, &now.flags[2]);
    getHwTimer(0, &now.flags[3]);
    getSpareFSR(0, &now.flags[4]);
    getChipDACs(0, &now.dacs, 0);
    return now;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<ScriptedItem> items = allTypes();
    static ScriptedHw& hw = startDevice(items);
    static const MemoryFile given, saved;
    const char* const nowhere = "/nowhere/at/all";
    hw.items = items;
    hw.clearLog();
    given.write({reinterpret_cast<const char*>(data), size});
    require(loadQdlCfg(0, nowhere) == QDL_E_CFG_OPEN);
    const int32_t loaded = loadQdlCfg(0, given.path.c_str());
    require(loaded == QDL_OK || loaded == QDL_CFG_DEFAULTS);
    const Settings before = settings();
    for (const Call& call : hw.log({7}))
        require(call.bytes == items[call.index].value.size());
    require(saveQdlCfg(0, saved.path.c_str()) == QDL_OK);
    require(loadQdlCfg(0, nowhere) == QDL_E_CFG_OPEN);
    require(loadQdlCfg(0, saved.path.c_str()) == QDL_OK);
    const Settings after = settings();
    require(memcmp(before.flags, after.flags, sizeof before.flags) == 0);
    require(memcmp(&before.dacs, &after.dacs, sizeof before.dacs) == 0);
    return 0;
}
