// SPDX-License-Identifier: MIT
// The table of the simulator: two devices, of one chip and of four.
#include <array>
#include <cstdint>
#include <exception>

#include "items.h"
#include "qdlhw.h"
#include "simdevice.h"

namespace qdlsim {
namespace {

constexpr const char* kNoDevice = "no such device";

// Of hwFirstDevice and hwNextDevice, which never overlap.
uint32_t lastGiven = 0;
const char* libFailure = "no failure";

std::array<SimDevice, 2>& devices() {
    static std::array<SimDevice, 2> all = {SimDevice(1001, 1, "SIM-1CHIP", Scene::star),
                                           SimDevice(4001, 4, "SIM-4CHIP", Scene::phantom)};
    return all;
}

SimDevice* find(uint32_t id) { return id < devices().size() ? &devices()[id] : nullptr; }

template <typename Action>
int32_t onDevice(uint32_t id, Action action) noexcept {
    SimDevice* device = find(id);
    if (!device) return -1;
    try {
        return device->result(action(*device));
    } catch (const std::exception&) {
        return device->result("out of memory");
    }
}

int32_t hwFirstDevice(uint32_t* hwID) noexcept {
    try {
        devices();
    } catch (const std::exception&) {
        libFailure = "not enough memory for the simulated devices";
        return -1;
    }
    *hwID = lastGiven = 0;
    return 0;
}

int32_t hwNextDevice(uint32_t* hwID) noexcept {
    if (lastGiven + 1 >= devices().size()) return 1;
    *hwID = ++lastGiven;
    return 0;
}

DevInfo* hwGetDevInfo(uint32_t id) noexcept {
    SimDevice* device = find(id);
    return device ? device->info() : nullptr;
}

const char* hwLibError() noexcept { return libFailure; }

const char* hwDevError(uint32_t id) noexcept {
    const SimDevice* device = find(id);
    return device ? device->lastFailure() : kNoDevice;
}

int32_t hwGetItemCount() noexcept { return itemCount(); }

int32_t hwGetItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size) noexcept {
    return onDevice(id, [=](SimDevice& device) { return getItem(device, index, *item, *size); });
}

int32_t hwSetItem(uint32_t id, uint32_t index, const void* data, uint32_t size) noexcept {
    return onDevice(id, [=](SimDevice& device) { return setItem(device, index, data, size); });
}

int32_t hwStartAcq(uint32_t id, double time) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.start(time); });
}

int32_t hwStopAcq(uint32_t id) noexcept {
    return onDevice(id, [](SimDevice& device) { return device.stop(); });
}

// Pulses of arg1 keV in silicon, a period of arg2 seconds, arg4 of them; arg3 is not used.
int32_t hwTestPulses(uint32_t id, double arg1, double arg2, uint8_t, uint16_t arg4) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.testPulses(arg1, arg2, arg4); });
}

int32_t hwSetDacs(uint32_t id, const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.setDacs(dacs, first, second, codes); });
}

int32_t hwReadAnalog(uint32_t id, uint32_t chip, double* value) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.readAnalog(chip, *value); });
}

int32_t hwSetPixels(uint32_t id, const uint8_t* pixels) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.setPixels(pixels); });
}

int32_t hwResetMatrix(uint32_t id) noexcept {
    return onDevice(id, [](SimDevice& device) { return device.resetMatrix(); });
}

int32_t hwReadMatrix(uint32_t id, uint16_t* buffer, uint32_t words) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.readMatrix(buffer, words); });
}

int32_t hwPrepare(uint32_t id) noexcept {
    return onDevice(id, [](SimDevice& device) { return device.prepare(); });
}

int32_t hwBusyLine(uint32_t id, int16_t* state) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.busyLine(*state); });
}

int32_t hwStreamToFrame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.streamToFrame(stream, words, frame, pixels); });
}

int32_t hwPseudoToCounts(uint32_t id, int16_t* frame, uint32_t pixels, uint32_t) noexcept {
    return onDevice(id, [=](SimDevice& device) { return device.pseudoToCounts(frame, pixels); });
}

constexpr MandatoryFuncs makeTable() {
    MandatoryFuncs table{};
    table.hwFirstDevice = hwFirstDevice;
    table.hwNextDevice = hwNextDevice;
    table.hwGetDevInfo = hwGetDevInfo;
    table.hwGetItemCount = hwGetItemCount;
    table.hwGetItem = hwGetItem;
    table.hwSetItem = hwSetItem;
    table.hwStartAcq = hwStartAcq;
    table.hwStopAcq = hwStopAcq;
    table.hwTestPulses = hwTestPulses;
    table.hwSetDacs = hwSetDacs;
    table.hwReadAnalog = hwReadAnalog;
    table.hwSetPixels = hwSetPixels;
    table.hwResetMatrix = hwResetMatrix;
    table.hwReadMatrix = hwReadMatrix;
    table.hwPrepare = hwPrepare;
    table.hwLibError = hwLibError;
    table.hwDevError = hwDevError;
    table.hwBusyLine = hwBusyLine;
    table.hwStreamToFrame = hwStreamToFrame;
    table.hwPseudoToCounts = hwPseudoToCounts;
    return table;
}

constexpr MandatoryFuncs kTable = makeTable();

}  // namespace
}  // namespace qdlsim

extern "C" QDLHW_API const MandatoryFuncs* getMandatoryFuncs() { return &qdlsim::kTable; }
