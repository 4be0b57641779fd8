// SPDX-License-Identifier: MIT
// The scripted HW library, shared between the module scripted.so and the test that drives it: what it announces, how
// it answers, and the log of its calls. Positions are those of MandatoryFuncs.
#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qdlhw.h"

// One call of a position, with the arguments that it has; the others keep their zero.
struct Call {
    int position = 0;
    uint32_t id = 0;                  // hwID
    uint32_t index = 0;               // 6, 7: item; 15: chip
    uint32_t bytes = 0;               // 6, 7: size of the value area as it came
    uint32_t words = 0;               // 18, 25
    uint32_t pixels = 0;              // 25, 27
    double seconds = 0;               // 8
    double pulse1 = 0, pulse2 = 0;    // 13
    uint32_t pulse3 = 0, pulse4 = 0;  // 13
    uint32_t first = 0, second = 0;   // 14
    std::vector<uint32_t> codes{};    // 14, empty for null
    std::vector<uint8_t> data{};      // 7: value, 14: DACs, 16: matrix
    InfoItem* item = nullptr;         // 6, with itemBytes, for hooks that answer themselves
    uint32_t* itemBytes = nullptr;
    uint32_t hwTimerUsed = 0;  // 8, 13: DevInfo.hwTimerUsed at that moment
    int nth = 0;               // 1: the first call of this position since clearLog
    int32_t result = 0;        // as scripted; a hook may change it. Non-zero keeps the position from its work
    std::string text{};        // what position 22 or 23 tells after a failure; a hook may change it
    std::thread::id thread{};  // the thread that called
};

// Counts of a pixel, pure functions of their arguments. Read-outs of a device count from 0, failed ones included.
inline int16_t pixelValue(uint32_t chip, uint32_t x, uint32_t y, uint32_t readout) {
    uint32_t mixed = ((chip * 256 + y) * 256 + x) * 2654435761u ^ (readout + 1) * 2246822519u;
    mixed = (mixed ^ mixed >> 15) * 739982445u;
    return static_cast<int16_t>(mixed >> 16);
}
inline int16_t smallPixelValue(uint32_t chip, uint32_t x, uint32_t y, uint32_t readout) {
    return pixelValue(chip, x, y, readout) & 15;
}
constexpr int16_t maskedPixelValue = -7777;

// Words of a frame's stream, and word `index` of read-out `readout`: its number, a pattern that depends on it, and its
// complement at the end, so that position 25 refuses a shortened, shifted or mixed stream.
constexpr uint32_t streamWords(uint32_t chips) {
    return static_cast<uint32_t>((uint64_t{chips} * QDL_CHIP_STREAM_BYTES + 1) / 2);
}
inline uint16_t streamWord(uint32_t readout, uint32_t index, uint32_t words) {
    if (index == words - 1) return static_cast<uint16_t>(~readout);
    return static_cast<uint16_t>(index < 2 ? readout >> 16 * index : index * 40503u + readout * 977u);
}

// Analog value that position 15 gives after a sensing send of `code` for `chip`.
inline double analogValue(uint32_t chip, uint32_t code) { return 1000.0 * chip + code + 0.25; }

// Text of a failure that was scripted without a text of its own.
inline std::string failText(int position) { return "position " + std::to_string(position) + " failed"; }

struct ScriptedItem {
    uint32_t type = QDL_TYPE_I32;
    int32_t count = 1;
    uint32_t flags = 0;
    std::string name;
    std::vector<uint8_t> value;  // replaced by position 7
    uint32_t neededBytes = 0;    // position 6 asks for at least so many, also when the value is shorter
};

struct ScriptedDevice {
    uint32_t hwID = 0;
    std::string hwName;
    DevInfo info{};
    bool withoutInfo = false;      // position 3 gives null
    std::deque<int16_t> busyLine;  // states of the next polls; 0 when used up

    uint32_t readouts = 0;
    std::vector<uint32_t> senseCodes;                                // of the last position 14
    std::shared_ptr<const std::vector<uint8_t>> sentMatrix, matrix;  // the last one sent; that of the last read-out
};

struct ScriptedHw {
    std::deque<ScriptedDevice> devices;
    std::vector<ScriptedItem> items;
    bool withoutTable = false;  // getMandatoryFuncs gives null
    int16_t (*pixel)(uint32_t chip, uint32_t x, uint32_t y, uint32_t readout) = pixelValue;
    bool respectMask = false;  // pixels masked at the read-out give maskedPixelValue
    bool keepMatrices = true;  // the log keeps what position 16 was given; turn off for thousands of sends

    // `devName` may fill its 64 characters, then without a terminator. hwID never equals the device id.
    ScriptedDevice& addDevice(uint32_t chips = 1, const std::string& devName = "D1",
                              const std::string& hwName = "Scripted", uint32_t infoValue = 0) {
        const auto hwID = static_cast<uint32_t>(70 + devices.size());
        ScriptedDevice& device = devices.emplace_back(ScriptedDevice{hwID, hwName, {}, false, {}, 0, {}, {}, {}});
        device.info.chipCount = chips;
        device.info.infoValue = infoValue;
        devName.copy(device.info.devName, QDL_NAME_SIZE);
        device.info.hwName = device.hwName.c_str();
        return device;
    }

    // Results by the number of the call of a position since clearLog; the first rule that fits wins.
    void failAt(int position, int nth, int32_t result = -1, const std::string& text = "") {
        addFailure({position, nth, nth, result, text});
    }
    void failFrom(int position, int nth, int32_t result = -1, const std::string& text = "") {
        addFailure({position, nth, INT_MAX, result, text});
    }
    void failAlways(int position, int32_t result = -1, const std::string& text = "") {
        failFrom(position, 1, result, text);
    }
    // Runs inside each call of the position, with no lock of the script held: it may block or call the library.
    void setHook(int position, std::function<void(Call&)> hook) {
        const std::lock_guard guard(mutex);
        hooks.at(static_cast<size_t>(position)) = std::move(hook);
    }
    void clearScript() {
        const std::lock_guard guard(mutex);
        failures.clear();
        hooks = {};
    }

    // The calls so far, of these positions or of all.
    std::vector<Call> log(std::initializer_list<int> positions = {}) {
        const std::lock_guard guard(mutex);
        std::vector<Call> chosen;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(chosen), [&](const Call& call) {
            return positions.size() == 0 || std::count(positions.begin(), positions.end(), call.position) > 0;
        });
        return chosen;
    }
    // Also starts the numbers of calls and of read-outs again.
    void clearLog() {
        const std::lock_guard guard(mutex);
        calls.clear();
        counts = {};
        for (ScriptedDevice& device : devices)
            device.readouts = 0;
    }

    // What follows belongs to the module.
    struct Failure {
        int position, from, to;
        int32_t result;
        std::string text;
    };
    void addFailure(const Failure& failure) {
        const std::lock_guard guard(mutex);
        failures.push_back(failure);
    }
    std::mutex mutex;
    std::vector<Failure> failures;
    std::array<std::function<void(Call&)>, 28> hooks;
    std::array<int, 28> counts{};
    std::vector<Call> calls;
    std::set<std::string> texts;  // never shrinks: the library may hold a text while another thread fails
    std::map<uint32_t, const std::string*> lastTexts;  // by hwID, 0: of the library
};

// Type of the second export of scripted.so, `scriptedControl`.
using ScriptedControlFn = ScriptedHw* (*)();
