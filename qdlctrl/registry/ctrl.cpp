// SPDX-License-Identifier: MIT
#include "registry/ctrl.h"

#include <algorithm>
#include <new>

QdlCtrl::QdlCtrl() {
    const std::string path = platform::modulePath();
    const std::size_t fileName = path.rfind(*platform::separator);
    if (fileName != path.npos) baseDir = path.substr(0, fileName);
    platform::makeFolder(baseDir + platform::separator + "configs");
    platform::makeFolder(baseDir + platform::separator + "plugins");
}

int32_t QdlCtrl::initQdlCtrl() {
    // Devices must not outlive the HW library below them.
    destroyDevices();
    unloadHwLibs();
    try {
        loadHwLibs();
    } catch (const std::bad_alloc&) {
        reportCtrlMsg(msg::registryAllocationFailed, static_cast<uint32_t>(sizeof(HwLib)));
    }
    for (const HwLib& lib : hwLibs) {
        const std::size_t before = devices.size();
        enumerateDevices(lib);
        reportCtrlMsg(msg::deviceCount, lib.libPath.c_str(), static_cast<int32_t>(devices.size() - before));
    }
    initialized = true;
    return QDL_OK;
}

int32_t QdlCtrl::exitQdlCtrl() {
    destroyDevices();
    unloadHwLibs();
    return QDL_OK;
}

int32_t QdlCtrl::getFirstQdl(uint32_t* id, uint32_t* count) {
    *id = 0;
    if (count) *count = static_cast<uint32_t>(devices.size() - std::count(devices.begin(), devices.end(), nullptr));
    return findNextDevId(id);
}

int32_t QdlCtrl::getNextQdl(uint32_t* id) {
    ++*id;
    return findNextDevId(id);
}

int32_t QdlCtrl::findNextDevId(uint32_t* id) {
    if (!initialized) {
        reportCtrlMsg(msg::ctrlNotInitialized);
        return QDL_E_FAILED;
    }
    for (uint32_t i = *id; i < devices.size(); ++i)
        if (devices[i]) {
            *id = i;
            return QDL_OK;
        }
    return QDL_NO_MORE_DEVICES;
}

void QdlCtrl::destroyDevices() {
    // The save of a device can fire the info callback, which may look at any device: it still finds the dying one, and
    // none that is gone.
    for (QdlDevice*& device : devices) {
        delete device;
        device = nullptr;
    }
    devices.clear();
}

void QdlCtrl::loadHwLibs() {
    const std::string path = baseDir + platform::separator + "hwlibs" + platform::separator;
    const std::vector<std::string> names = platform::listModules(path);
    if (names.empty()) reportCtrlMsg(msg::noHwLibrary, (path + platform::modulePattern).c_str());
    for (const std::string& name : names)
        addHwLib(path + name);
}

void QdlCtrl::addHwLib(const std::string& fileName) {
    unsigned error = 0;
    void* const libHandle = platform::loadModule(fileName, &error);
    if (!libHandle) {
        reportCtrlMsg(msg::loadFailed, fileName.c_str(), error);
        return;
    }
    try {
        hwLibs.push_back({libHandle, fileName});
    } catch (const std::bad_alloc&) {
        platform::unloadModule(libHandle);
        reportCtrlMsg(msg::registryAllocationFailed, static_cast<uint32_t>(sizeof(HwLib)));
    }
}

void QdlCtrl::unloadHwLibs() {
    for (const HwLib& lib : hwLibs)
        platform::unloadModule(lib.libHandle);
    hwLibs.clear();
}

void QdlCtrl::enumerateDevices(const HwLib& lib) {
    int error = 0;
    const auto getTable = reinterpret_cast<decltype(&getMandatoryFuncs)>(
        platform::findExport(lib.libHandle, "getMandatoryFuncs", &error));
    const MandatoryFuncs* const funcs = getTable ? getTable() : nullptr;
    if (funcs)
        createDevices(*funcs);
    else
        reportCtrlMsg(msg::hwLibraryInitFailed, lib.libPath.c_str(), error);
}

void QdlCtrl::createDevices(const MandatoryFuncs& funcs) {
    uint32_t hwID = 0;
    int32_t answer = funcs.hwFirstDevice(&hwID);
    // Only the search for a next device can say that there is none: a first one has to exist.
    while (answer == 0) {
        try {
            devices.reserve(devices.size() + 1);
            devices.push_back(
                new QdlDevice(hwID, funcs, static_cast<uint32_t>(devices.size()), cbInfoMsg, cbAcqCompl, baseDir));
        } catch (const std::bad_alloc&) {
            reportCtrlMsg(msg::registryAllocationFailed, static_cast<uint32_t>(sizeof(QdlDevice)));
            return;
        }
        answer = funcs.hwNextDevice(&hwID);
        if (answer > 0) return;
    }
    reportCtrlMsg(msg::enumerationFailed, HwText(funcs.hwLibError()));
}
