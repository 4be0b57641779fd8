// SPDX-License-Identifier: MIT
#include "items.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "analog.h"

namespace qdlsim {
namespace {

constexpr uint32_t kSceneBytes = 32;
constexpr uint32_t kSerialBytes = 8;

uint32_t one(const SimDevice&) { return 1; }
uint32_t eachChip(const SimDevice& device) { return device.chips(); }
uint32_t eachPixel(const SimDevice& device) { return device.pixels(); }

struct Item {
    const char* name;
    uint32_t type;
    uint32_t flags;
    uint32_t (*count)(const SimDevice&);
    void (*read)(const SimDevice&, uint8_t* data);
    Failure (*write)(SimDevice&, const Item&, const uint8_t* data, uint32_t bytes);  // null: read only
    double low = 0.0, high = 0.0;
};

constexpr uint32_t elementBytes(uint32_t type) {
    switch (type) {
        case QDL_TYPE_U16:
            return 2;
        case QDL_TYPE_BOOL:
        case QDL_TYPE_U32:
        case QDL_TYPE_FLOAT:
            return 4;
        case QDL_TYPE_DOUBLE:
            return 8;
        default:
            return 1;
    }
}

template <typename Value>
constexpr uint32_t typeCode() {
    if (std::is_same_v<Value, bool>) return QDL_TYPE_BOOL;
    if (std::is_same_v<Value, float>) return QDL_TYPE_FLOAT;
    return std::is_same_v<Value, double> ? QDL_TYPE_DOUBLE : QDL_TYPE_U32;
}

// The caller's area need not be aligned.
template <typename Value>
void put(uint8_t* data, uint32_t index, Value value) {
    std::memcpy(data + index * sizeof value, &value, sizeof value);
}

// An item that shows one number of the settings.
template <auto Member>
constexpr Item setting(const char* name, uint32_t flags, double low, double high) {
    using Value = std::remove_cvref_t<decltype(std::declval<Settings>().*Member)>;
    using Stored = std::conditional_t<std::is_same_v<Value, bool>, uint32_t, Value>;
    const auto read = [](const SimDevice& device, uint8_t* data) {
        put(data, 0, static_cast<Stored>(device.settings().*Member));
    };
    const auto write = [](SimDevice& device, const Item& item, const uint8_t* data, uint32_t) -> Failure {
        Stored value;
        std::memcpy(&value, data, sizeof value);
        const bool inRange = value >= item.low && value <= item.high;
        if (!inRange) return "value is out of range";
        device.changeSettings().*Member = static_cast<Value>(value);
        return nullptr;
    };
    return {name, typeCode<Value>(), flags, one, read, write, low, high};
}

void readScene(const SimDevice& device, uint8_t* data) {
    std::memset(data, 0, kSceneBytes);
    const std::string_view name = sceneName(device.settings().scene);
    std::memcpy(data, name.data(), name.size());
}

// A text from a file may come with its line end.
Failure writeScene(SimDevice& device, const Item&, const uint8_t* data, uint32_t bytes) {
    std::string_view name(reinterpret_cast<const char*>(data), bytes);
    name = name.substr(0, name.find('\0'));
    name = name.substr(0, name.find_last_not_of(" \t\r\n") + 1);
    const auto scene = sceneByName(name);
    if (!scene) return "scene must be flat, spot, star or phantom";
    device.changeSettings().scene = *scene;
    return nullptr;
}

Failure writeSeed(SimDevice& device, const Item&, const uint8_t* data, uint32_t) {
    std::memcpy(&device.changeSettings().seed, data, sizeof(uint32_t));
    device.restartRandom();
    return nullptr;
}

void readLayout(const SimDevice& device, uint8_t* data) {
    const TileLayout layout(device.chips());
    put(data, 0, static_cast<uint16_t>(layout.columns));
    put(data, 1, static_cast<uint16_t>(layout.rows));
}

void readSerial(const SimDevice& device, uint8_t* data) {
    char text[kSerialBytes + 1];
    std::snprintf(text, sizeof text, "%-*u", static_cast<int>(kSerialBytes), device.serial());
    std::memcpy(data, text, kSerialBytes);
}

void readTemperature(const SimDevice& device, uint8_t* data) {
    for (uint32_t chip = 0; chip < device.chips(); ++chip)
        put(data, chip, chipTemperature(chip));
}

template <typename Value, auto Of>
void readPixels(const SimDevice& device, uint8_t* data) {
    for (uint32_t pixel = 0; pixel < device.pixels(); ++pixel)
        put(data, pixel, static_cast<Value>(Of(device, pixel)));
}

float thresholdOf(const SimDevice& device, uint32_t pixel) { return device.threshold(pixel); }
float noiseOf(const SimDevice& device, uint32_t pixel) { return device.sensor().noise(pixel, device.settings()); }
bool deadOf(const SimDevice& device, uint32_t pixel) { return device.sensor().dead(pixel); }
bool hotOf(const SimDevice& device, uint32_t pixel) { return device.sensor().hot(pixel); }

constexpr std::array kItems = {
    Item{"scene", QDL_TYPE_STRING, QDL_ITEM_STORED, [](const SimDevice&) { return kSceneBytes; }, readScene,
         writeScene},
    setting<&Settings::photonEnergy>("photonEnergy", QDL_ITEM_STORED, 1.0, 200.0),
    setting<&Settings::flux>("flux", QDL_ITEM_STORED, 0.0, 1e9),
    setting<&Settings::noise>("noise", QDL_ITEM_STORED, 0.0, 10000.0),
    setting<&Settings::thresholdSpread>("thresholdSpread", QDL_ITEM_STORED, 0.0, 10000.0),
    Item{"seed", QDL_TYPE_U32, QDL_ITEM_STORED, one,
         [](const SimDevice& device, uint8_t* data) { put(data, 0, device.settings().seed); }, writeSeed},
    setting<&Settings::readoutTime>("readoutTime", QDL_ITEM_STORED, 0.0, 10.0),
    setting<&Settings::failReadoutRate>("failReadoutRate", 0, 0.0, 1.0),
    setting<&Settings::failStart>("failStart", 0, 0.0, UINT32_MAX),
    setting<&Settings::stuckBusy>("stuckBusy", 0, 0.0, UINT32_MAX),
    Item{"exposures", QDL_TYPE_U32, 0, one,
         [](const SimDevice& device, uint8_t* data) { put(data, 0, device.exposures()); }, nullptr},
    Item{"chipLayout", QDL_TYPE_U16, 0, [](const SimDevice&) { return 2u; }, readLayout, nullptr},
    Item{"serial", QDL_TYPE_CHAR, 0, [](const SimDevice&) { return kSerialBytes; }, readSerial, nullptr},
    Item{"temperature", QDL_TYPE_FLOAT, 0, eachChip, readTemperature, nullptr},
    Item{"thresholds", QDL_TYPE_FLOAT, 0, eachPixel, readPixels<float, thresholdOf>, nullptr},
    Item{"pixelNoise", QDL_TYPE_FLOAT, 0, eachPixel, readPixels<float, noiseOf>, nullptr},
    Item{"deadPixels", QDL_TYPE_U8, 0, eachPixel, readPixels<uint8_t, deadOf>, nullptr},
    Item{"hotPixels", QDL_TYPE_U8, 0, eachPixel, readPixels<uint8_t, hotOf>, nullptr},
};

}  // namespace

int32_t itemCount() { return static_cast<int32_t>(kItems.size()); }

Failure getItem(const SimDevice& device, uint32_t index, InfoItem& item, uint32_t& bytes) {
    if (index >= kItems.size()) return "no such info item";
    const Item& entry = kItems[index];
    item.type = entry.type;
    item.count = static_cast<int32_t>(entry.count(device));
    item.flags = entry.flags;
    item.name = entry.name;
    const uint32_t needed = entry.count(device) * elementBytes(entry.type);
    if (bytes < needed) {
        bytes = needed;
        return "area is too small for the value";
    }
    if (!item.data) return "no area for the value";
    entry.read(device, static_cast<uint8_t*>(item.data));
    return nullptr;
}

Failure setItem(SimDevice& device, uint32_t index, const void* data, uint32_t bytes) {
    if (index >= kItems.size()) return "no such info item";
    const Item& entry = kItems[index];
    if (!entry.write) return "info item is read only";
    const uint32_t needed = entry.count(device) * elementBytes(entry.type);
    const bool fits = entry.type == QDL_TYPE_STRING ? bytes <= needed : bytes == needed;
    if (!fits || !data) return "value has the wrong size";
    return entry.write(device, entry, static_cast<const uint8_t*>(data), bytes);
}

}  // namespace qdlsim
