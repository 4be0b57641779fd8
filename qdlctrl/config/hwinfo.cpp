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

// Walks the items of a device that are kept in its configuration file, with a value buffer that grows to what they
// need. An item that cannot be fetched is left out.
class StoredItems {
 public:
    StoredItems(const MandatoryFuncs& funcs, uint32_t hwID)
        : funcs(funcs), hwID(hwID), count(funcs.hwGetItemCount()), buffer(std::malloc(bytes + 1)) {}

    // Goes on to the next item; false when there is none, or no memory for its value.
    bool next() {
        while (buffer && ++at < count)
            if (fetch() && (infoItem.flags & QDL_ITEM_STORED)) return true;
        return false;
    }

    const InfoItem& item() const { return infoItem; }
    uint32_t index() const { return static_cast<uint32_t>(at); }
    uint32_t valueBytes() const { return static_cast<uint32_t>(valueSize()); }
    bool outOfMemory() const { return !buffer; }
    uint32_t bufferBytes() const { return bytes; }

 private:
    bool fetch() {
        uint32_t needed = bytes;
        if (get(&needed)) return valueFits();
        if (needed == bytes) return false;
        bytes = needed;
        if (!resize()) return false;
        return get(&needed) && valueFits();
    }

    bool get(uint32_t* needed) {
        infoItem.data = buffer.get();
        const int32_t answer = funcs.hwGetItem(hwID, index(), &infoItem, needed);
        infoItem.data = buffer.get();                 // a HW library may have filled the whole record
        static_cast<char*>(buffer.get())[bytes] = 0;  // ends a string that fills the buffer
        return answer == 0;
    }

    // Nothing outside the buffer is read: an item that claims more than it was given is left out.
    bool valueFits() const { return infoItem.count >= 0 && valueSize() <= bytes; }

    uint64_t valueSize() const { return static_cast<uint64_t>(infoItem.count) * infoTypeSize(infoItem.type); }

    // Without memory the old buffer goes too.
    bool resize() {
        void* const grown = std::realloc(buffer.get(), std::size_t{bytes} + 1);
        if (grown) static_cast<void>(buffer.release());
        buffer.reset(grown);
        return grown != nullptr;
    }

    const MandatoryFuncs& funcs;
    const uint32_t hwID;
    const int32_t count;
    int32_t at = -1;
    InfoItem infoItem{};
    uint32_t bytes = 1024;  // what the buffer holds, besides one byte for a terminator
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
    StoredItems items(funcs, hwID);
    while (items.next()) {
        const InfoItem& item = items.item();
        char keyVal[keyValSize];
        const ItemKey key(items.index());
        if (cfgGetString(file, sectionName, key.text, keyVal, sizeof keyVal) != CfgResult::found) continue;
        // What the text does not give stays as the HW library has it.
        if (!infoTextToValue(item.type, item.data, item.count, keyVal, sizeof keyVal)) continue;
        if (funcs.hwSetItem(hwID, items.index(), item.data, items.valueBytes()))
            reportDevMsg(msg::itemRefused, HwText(item.name));
    }
    return items.outOfMemory() ? reportDevMsg(msg::allocationFailed, items.bufferBytes()) : QDL_OK;
}

int32_t QdlDevice::saveInterfaceCfg(std::FILE* file) {
    if (std::fprintf(file, "[%s]\n", sectionName) < 0) return QDL_E_FAILED;
    StoredItems items(funcs, hwID);
    while (items.next()) {
        const InfoItem& item = items.item();
        char keyVal[keyValSize];
        if (infoValueToText(item.type, item.data, item.count, keyVal, sizeof keyVal))
            cfgPutString(file, ItemKey(items.index()).text, keyVal);
    }
    return items.outOfMemory() ? reportDevMsg(msg::allocationFailed, items.bufferBytes()) : QDL_OK;
}
