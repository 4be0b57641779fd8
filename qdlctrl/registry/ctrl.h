// SPDX-License-Identifier: MIT
#pragma once

#include <list>
#include <string>
#include <vector>

#include "device/qdldevice.h"
#include "registry/messages.h"

// One loaded HW library.
struct HwLib {
    void* libHandle;
    std::string libPath;
};

// The one manager of the library: finds HW libraries beside the library's own module and holds the table of devices.
// It has no lock: the table changes in initQdlCtrl and exitQdlCtrl only, which must not overlap other calls.
class QdlCtrl {
 public:
    // Runs when the library is loaded. Makes the folders "configs" and "plugins" and does no device work.
    QdlCtrl();

    int32_t initQdlCtrl();
    int32_t exitQdlCtrl();
    int32_t getFirstQdl(uint32_t* id, uint32_t* count);
    int32_t getNextQdl(uint32_t* id);
    void setCbInfoMsg(cbInfoMsgFn callback) { cbInfoMsg = callback; }
    void setCbAcqCompl(cbAcqComplFn callback) { cbAcqCompl = callback; }
    void getInfoMsg(int32_t* code, const char** text) const { messages.read(code, text); }

    // Null if `id` names no device.
    QdlDevice* getDevice(uint32_t id) const { return id < devices.size() ? devices[id] : nullptr; }

 private:
    int32_t findNextDevId(uint32_t* id);
    void destroyDevices();
    void loadHwLibs();
    void addHwLib(const std::string& fileName);
    void unloadHwLibs();
    void enumerateDevices(const HwLib& lib);
    void createDevices(const MandatoryFuncs& funcs);

    template <class... Args>
    void reportCtrlMsg(const Message<Args...>& message, std::type_identity_t<Args>... args) {
        messages.store(message, args...);
        if (cbInfoMsg) cbInfoMsg(-1);
    }

    std::string baseDir;  // folder of the library's own module
    // Owned, but destroyed by exitQdlCtrl only: at unload the HW libraries may be gone already, and a host that ends
    // without exitQdlCtrl gets no save.
    std::vector<QdlDevice*> devices;
    std::list<HwLib> hwLibs;
    cbInfoMsgFn cbInfoMsg = nullptr;
    cbAcqComplFn cbAcqCompl = nullptr;
    MessageStore messages;
    bool initialized = false;
};
