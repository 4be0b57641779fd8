// SPDX-License-Identifier: MIT
// HW info items: named, typed values that belong to the HW library and pass through here.
#include <cstdlib>
#include <memory>

#include "config/cfgio.h"
#include "config/infotext.h"
#include "device/qdldevice.h"

namespace {

constexpr const char* sectionName = "Interface";
constexpr std::size_t keyValSize = 2048;

struct ItemKey {
    explicit ItemKey(uint32_t item) { std::snprintf(text, sizeof text, "hwitem%d", static_cast<int32_t>(item)); }
    char text[32];
};

struct Free {
    void operator()(void* block) const { std::free(block); }
};

enum class Fetched { yes, leftOut, noMemory };

// Fetches items of one device, one after the other, into a value buffer that grows to what they need.
class ItemFetcher {
 public:
    ItemFetcher(const MandatoryFuncs& funcs, uint32_t hwID) : funcs(funcs), hwID(hwID) {}

    Fetched fetch(uint32_t item) {
        if (!buffer && !resize()) return Fetched::noMemory;
        uint32_t needed = bytes;
        if (get(item, &needed)) return checkValue();
        if (needed == bytes) return Fetched::leftOut;
        bytes = needed;
        if (!resize()) return Fetched::noMemory;
        return get(item, &needed) ? checkValue() : Fetched::leftOut;
    }

    const InfoItem& item() const { return infoItem; }
    uint32_t valueBytes() const { return static_cast<uint32_t>(valueSize()); }
    uint32_t bufferBytes() const { return bytes; }

 private:
    bool get(uint32_t item, uint32_t* needed) {
        infoItem.data = buffer.get();
        const int32_t answer = funcs.hwGetItem(hwID, item, &infoItem, needed);
        infoItem.data = buffer.get();  // a HW library may have filled the whole record
        return answer == 0;
    }

    // Nothing outside the buffer is read: an item that claims more than it was given is left out, and one more byte
    // ends a string that fills the buffer.
    Fetched checkValue() const { return infoItem.count >= 0 && valueSize() <= bytes ? Fetched::yes : Fetched::leftOut; }

    uint64_t valueSize() const { return static_cast<uint64_t>(infoItem.count) * infoTypeSize(infoItem.type); }

    bool resize() {
        void* const grown = std::realloc(buffer.get(), std::size_t{bytes} + 1);
        if (!grown) return false;
        static_cast<void>(buffer.release());
        buffer.reset(grown);
        static_cast<char*>(grown)[bytes] = 0;
        return true;
    }

    const MandatoryFuncs& funcs;
    const uint32_t hwID;
    InfoItem infoItem{};
    uint32_t bytes = 1024;
    std::unique_ptr<void, Free> buffer;
};

}  // namespace

int32_t QdlDevice::getHwInfoItem(uint32_t index, InfoItem* item, uint32_t* size) {
    CsLock cslock(csDevice);
    const uint32_t given = *size;
    // A size that changed is the answer: the caller's buffer was too small.
    if (funcs.hwGetItem(hwID, index, item, size) == 0 || *size != given) return QDL_OK;
    return reportDevMsg(msg::getItemFailed, static_cast<int32_t>(index), hwErrorText());
}

int32_t QdlDevice::setHwInfoItem(uint32_t index, const void* data, uint32_t size) {
    CsLock cslock(csDevice);
    if (funcs.hwSetItem(hwID, index, data, size) == 0) return QDL_OK;
    return reportDevMsg(msg::setItemFailed, static_cast<int32_t>(index), hwErrorText());
}

int32_t QdlDevice::loadInterfaceCfg(std::FILE* file) {
    ItemFetcher fetcher(funcs, hwID);
    const int32_t count = funcs.hwGetItemCount();
    for (int32_t i = 0; i < count; ++i) {
        const uint32_t index = static_cast<uint32_t>(i);
        const Fetched fetched = fetcher.fetch(index);
        if (fetched == Fetched::noMemory) return reportDevMsg(msg::allocationFailed, fetcher.bufferBytes());
        const InfoItem& item = fetcher.item();
        if (fetched == Fetched::leftOut || !(item.flags & QDL_ITEM_STORED)) continue;
        char keyVal[keyValSize];
        if (cfgGetString(file, sectionName, ItemKey(index).text, keyVal, sizeof keyVal) != CfgResult::found) continue;
        // What the text does not give stays as the HW library has it.
        if (!infoTextToValue(item.type, item.data, item.count, keyVal, sizeof keyVal)) continue;
        if (funcs.hwSetItem(hwID, index, item.data, fetcher.valueBytes()))
            reportDevMsg(msg::itemRefused, HwText(item.name));
    }
    return QDL_OK;
}

int32_t QdlDevice::saveInterfaceCfg(std::FILE* file) {
    if (std::fprintf(file, "[%s]\n", sectionName) < 0) return QDL_E_FAILED;
    ItemFetcher fetcher(funcs, hwID);
    const int32_t count = funcs.hwGetItemCount();
    for (int32_t i = 0; i < count; ++i) {
        const uint32_t index = static_cast<uint32_t>(i);
        const Fetched fetched = fetcher.fetch(index);
        if (fetched == Fetched::noMemory) return reportDevMsg(msg::allocationFailed, fetcher.bufferBytes());
        const InfoItem& item = fetcher.item();
        if (fetched == Fetched::leftOut || !(item.flags & QDL_ITEM_STORED)) continue;
        char keyVal[keyValSize];
        if (infoValueToText(item.type, item.data, item.count, keyVal, sizeof keyVal))
            cfgPutString(file, ItemKey(index).text, keyVal);
    }
    return QDL_OK;
}
