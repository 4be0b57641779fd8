// SPDX-License-Identifier: MIT
#include "scriptedhw.h"

namespace {

ScriptedHw hw;
constexpr uint16_t pseudoRandomCode = 0x3A5C;

using Result = const char*;  // of the work of a position: null, or the text of its failure
constexpr Result done = nullptr;

ScriptedDevice* find(uint32_t hwID) {
    for (ScriptedDevice& device : hw.devices)
        if (device.hwID == hwID) return &device;
    return nullptr;
}

uint32_t chipsOf(uint32_t hwID) { return find(hwID) ? find(hwID)->info.chipCount : 0; }

int32_t fail(const Call& call, int32_t result, const std::string& text) {
    const std::lock_guard guard(hw.mutex);
    hw.lastTexts[call.id] = &*hw.texts.insert(text).first;
    return result;
}

void script(Call& call) {
    call.thread = std::this_thread::get_id();
    call.nth = ++hw.counts.at(static_cast<size_t>(call.position));
    call.text = failText(call.position);
    const ScriptedDevice* device = find(call.id);
    if (device && (call.position == 8 || call.position == 13)) call.hwTimerUsed = device->info.hwTimerUsed;
    for (const ScriptedHw::Failure& failure : hw.failures) {
        if (failure.position != call.position || call.nth < failure.from || call.nth > failure.to) continue;
        call.result = failure.result;
        if (!failure.text.empty()) call.text = failure.text;
        return;
    }
}

// Logs a call and gives its result after script and hook.
int32_t enter(Call call) {
    std::function<void(Call&)> hook;
    {
        const std::lock_guard guard(hw.mutex);
        script(call);
        hw.calls.push_back(call);
        if (call.position == 16 && !hw.keepMatrices) hw.calls.back().data.clear();
        hook = hw.hooks.at(static_cast<size_t>(call.position));
    }
    if (hook) hook(call);
    return call.result == 0 ? 0 : fail(call, call.result, call.text);
}

template <class Work>
int32_t run(const Call& call, Work work) {
    if (const int32_t result = enter(call)) return result;
    ScriptedDevice* device = find(call.id);
    const Result result = device ? work(*device) : "unknown device";
    return result == done ? 0 : fail(call, -1, result);
}

int32_t run(const Call& call) {
    return run(call, [](ScriptedDevice&) { return done; });
}

int32_t announce(const Call& call, size_t device, uint32_t* hwID) {
    if (const int32_t result = enter(call)) return result;
    if (device >= hw.devices.size()) return fail(call, 1, "no device");
    *hwID = hw.devices[device].hwID;
    return 0;
}

size_t announced = 0;
int32_t firstDevice(uint32_t* hwID) { return announce({.position = 1}, announced = 0, hwID); }
int32_t nextDevice(uint32_t* hwID) { return announce({.position = 2}, ++announced, hwID); }

DevInfo* getDevInfo(uint32_t id) {
    enter({.position = 3, .id = id});
    ScriptedDevice* device = find(id);
    return !device || device->withoutInfo ? nullptr : &device->info;
}

int32_t getItemCount() {
    enter({.position = 5});
    return static_cast<int32_t>(hw.items.size());
}

int32_t getItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* bytes) {
    const Call call{.position = 6, .id = id, .index = index, .bytes = *bytes, .item = item, .itemBytes = bytes};
    return run(call, [&](ScriptedDevice&) -> Result {
        if (index >= hw.items.size()) return "no such item";
        const ScriptedItem& source = hw.items[index];
        const uint32_t needed = std::max(source.neededBytes, static_cast<uint32_t>(source.value.size()));
        if (*bytes < needed) return *bytes = needed, "area too small";
        *item = {source.type, source.count, source.flags, source.name.c_str(), item->data};
        std::copy(source.value.begin(), source.value.end(), static_cast<uint8_t*>(item->data));
        return done;
    });
}

int32_t setItem(uint32_t id, uint32_t index, const void* data, uint32_t bytes) {
    const auto* value = static_cast<const uint8_t*>(data);
    const Call call{.position = 7, .id = id, .index = index, .bytes = bytes, .data = {value, value + bytes}};
    return run(call, [&](ScriptedDevice&) -> Result {
        if (index >= hw.items.size()) return "no such item";
        hw.items[index].value = call.data;
        return done;
    });
}

int32_t startAcq(uint32_t id, double seconds) { return run({.position = 8, .id = id, .seconds = seconds}); }
int32_t stopAcq(uint32_t id) { return run({.position = 9, .id = id}); }
int32_t resetMatrix(uint32_t id) { return run({.position = 17, .id = id}); }
int32_t prepare(uint32_t id) { return run({.position = 21, .id = id}); }

int32_t testPulses(uint32_t id, double pulse1, double pulse2, uint8_t pulse3, uint16_t pulse4) {
    return run({.position = 13, .id = id, .pulse1 = pulse1, .pulse2 = pulse2, .pulse3 = pulse3, .pulse4 = pulse4});
}

int32_t setDacs(uint32_t id, const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes) {
    Call call{.position = 14, .id = id, .first = first, .second = second};
    call.data.assign(dacs, dacs + chipsOf(id) * QDL_CHIP_DACS);
    if (codes) call.codes.assign(codes, codes + chipsOf(id));
    return run(call, [&](ScriptedDevice& device) { return device.senseCodes = call.codes, done; });
}

int32_t readAnalog(uint32_t id, uint32_t chip, double* value) {
    return run({.position = 15, .id = id, .index = chip}, [&](ScriptedDevice& device) -> Result {
        if (chip >= device.senseCodes.size()) return "no DAC selected on that chip";
        *value = analogValue(chip, device.senseCodes[chip]);
        return done;
    });
}

int32_t setPixels(uint32_t id, const uint8_t* pixels) {
    const Call call{.position = 16, .id = id, .data = {pixels, pixels + chipsOf(id) * QDL_CHIP_PIXELS}};
    return run(call, [&](ScriptedDevice& device) {
        device.sentMatrix = std::make_shared<const std::vector<uint8_t>>(call.data);
        return done;
    });
}

// A failing read-out has written its stream and counts: who uses it all the same is found by its number.
int32_t readMatrix(uint32_t id, uint16_t* buffer, uint32_t words) {
    if (ScriptedDevice* device = find(id)) {
        const std::lock_guard guard(hw.mutex);
        for (uint32_t i = 0; i < words; ++i)
            buffer[i] = streamWord(device->readouts, i, words);
        ++device->readouts;
        device->matrix = device->sentMatrix;
    }
    return run({.position = 18, .id = id, .words = words}, [&](ScriptedDevice& device) {
        return words == streamWords(device.info.chipCount) ? done : "wrong number of words";
    });
}

const char* errorText(int position, uint32_t id) {
    enter({.position = position, .id = id});
    const std::lock_guard guard(hw.mutex);
    return hw.lastTexts.count(id) ? hw.lastTexts[id]->c_str() : "";
}
const char* libError() { return errorText(22, 0); }
const char* devError(uint32_t id) { return errorText(23, id); }

int32_t busyLine(uint32_t id, int16_t* state) {
    return run({.position = 24, .id = id}, [&](ScriptedDevice& device) {
        const std::lock_guard guard(hw.mutex);
        *state = device.busyLine.empty() ? int16_t{0} : device.busyLine.front();
        if (!device.busyLine.empty()) device.busyLine.pop_front();
        return done;
    });
}

void fillFrame(const ScriptedDevice& device, uint32_t readout, int16_t* frame) {
    hw.mutex.lock();
    const auto mask = hw.respectMask ? device.matrix : nullptr;
    hw.mutex.unlock();
    for (uint32_t i = 0; i < device.info.chipCount * QDL_CHIP_PIXELS; ++i) {
        const bool open = !mask || ((*mask)[i] & QDL_PIXEL_MASK_BIT) != 0;
        const int16_t count = open ? hw.pixel(i >> 16, i & 255, i >> 8 & 255, readout) : maskedPixelValue;
        frame[i] = static_cast<int16_t>(count ^ pseudoRandomCode);
    }
}

int32_t streamToFrame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) {
    return run({.position = 25, .id = id, .words = words, .pixels = pixels}, [&](ScriptedDevice& device) -> Result {
        if (words != streamWords(device.info.chipCount)) return "wrong number of words";
        if (pixels < device.info.chipCount * QDL_CHIP_PIXELS) return "too few pixels";
        const uint32_t readout = stream[0] | uint32_t{stream[1]} << 16;
        for (uint32_t i = 0; i < words; ++i)
            if (stream[i] != streamWord(readout, i, words)) return "damaged stream";
        fillFrame(device, readout, frame);
        return done;
    });
}

int32_t pseudoToCounts(uint32_t id, int16_t* frame, uint32_t pixels, uint32_t one) {
    return run({.position = 27, .id = id, .pixels = pixels}, [&](ScriptedDevice& device) -> Result {
        if (one != 1) return "last argument is not 1";
        if (pixels < device.info.chipCount * QDL_CHIP_PIXELS) return "too few pixels";
        for (uint32_t i = 0; i < device.info.chipCount * QDL_CHIP_PIXELS; ++i)
            frame[i] = static_cast<int16_t>(frame[i] ^ pseudoRandomCode);
        return done;
    });
}

const MandatoryFuncs funcs = {nullptr,    firstDevice,   nextDevice, getDevInfo,    nullptr,   getItemCount,
                              getItem,    setItem,       startAcq,   stopAcq,       nullptr,   nullptr,
                              nullptr,    testPulses,    setDacs,    readAnalog,    setPixels, resetMatrix,
                              readMatrix, nullptr,       nullptr,    prepare,       libError,  devError,
                              busyLine,   streamToFrame, nullptr,    pseudoToCounts};

}  // namespace

extern "C" {

const MandatoryFuncs* getMandatoryFuncs() { return hw.withoutTable ? nullptr : &funcs; }

QDLHW_API ScriptedHw* scriptedControl();
ScriptedHw* scriptedControl() { return &hw; }
}
