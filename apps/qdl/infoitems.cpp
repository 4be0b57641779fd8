// SPDX-License-Identifier: MIT
#include "infoitems.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <sstream>

namespace {

// A value beyond that is a mistake of the HW library, not a value.
constexpr uint32_t mostBytes = 256u << 20;
constexpr size_t longestArray = 64;

bool isText(uint32_t type) { return type == QDL_TYPE_CHAR || type == QDL_TYPE_BYTE || type == QDL_TYPE_STRING; }

// Calls `use` with a zero of the C++ type behind a numeric type code.
template <typename Use>
auto withElement(uint32_t type, Use use) {
    switch (type) {
        case QDL_TYPE_U8:
            return use(uint8_t{});
        case QDL_TYPE_I16:
            return use(int16_t{});
        case QDL_TYPE_U16:
            return use(uint16_t{});
        case QDL_TYPE_U32:
            return use(uint32_t{});
        case QDL_TYPE_FLOAT:
            return use(float{});
        case QDL_TYPE_DOUBLE:
            return use(double{});
        default:
            return use(int32_t{});
    }
}

size_t elementBytes(uint32_t type) {
    return isText(type) ? 1 : withElement(type, [](auto zero) { return sizeof zero; });
}

template <typename Element>
Json elementJson(Element value) {
    if constexpr (!std::is_same_v<Element, float>) return value;
    // By way of its shortest text: 0.1f is meant as 0.1.
    char text[64];
    *std::to_chars(text, std::end(text) - 1, value).ptr = '\0';
    return std::strtod(text, nullptr);
}

template <typename Element>
Element parseElement(const InfoValue& item, const std::string& word) {
    Element value{};
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error == std::errc() && stop == end) return value;
    throw Failure(ExitStatus::Usage,
                  formatted("%s cannot be '%s': not a number of its type", item.name.c_str(), word.c_str()));
}

std::string numberWord(const InfoValue& item, const std::string& word) {
    if (item.type != QDL_TYPE_BOOL) return word;
    if (word == "true" || word == "on" || word == "1") return "1";
    if (word == "false" || word == "off" || word == "0") return "0";
    throw Failure(ExitStatus::Usage, formatted("%s cannot be '%s': true or false", item.name.c_str(), word.c_str()));
}

std::vector<char> parseNumbers(const InfoValue& item, const std::string& text) {
    std::vector<char> data;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        withElement(item.type, [&](auto zero) {
            const auto value = parseElement<decltype(zero)>(item, numberWord(item, word));
            const char* bytes = reinterpret_cast<const char*>(&value);
            data.insert(data.end(), bytes, bytes + sizeof value);
        });
    if (data.size() != item.count * elementBytes(item.type))
        throw Failure(ExitStatus::Usage,
                      formatted("%s takes %u value%s", item.name.c_str(), item.count, item.count == 1 ? "" : "s"));
    return data;
}

std::vector<char> parseText(const InfoValue& item, const std::string& text) {
    const size_t room = item.type == QDL_TYPE_STRING ? std::max(item.count, 1u) - 1 : item.count;
    if (text.size() > room)
        throw Failure(ExitStatus::Usage, formatted("%s takes at most %zu characters", item.name.c_str(), room));
    std::vector<char> data(text.begin(), text.end());
    data.resize(item.count);
    return data;
}

// The HW library tells the size that it needs by changing `bytes`; then nothing was delivered.
std::optional<InfoValue> readItem(Session& session, const Device& device, uint32_t index) {
    std::vector<char> data(1024);
    for (int attempt = 0; attempt < 3; ++attempt) {
        InfoItem item = {};
        item.data = data.data();
        const auto room = static_cast<uint32_t>(data.size());
        uint32_t bytes = room;
        if (session.api().getHwInfoItem(device.id, index, &item, &bytes) != QDL_OK) return std::nullopt;
        if (bytes == room) {
            const uint32_t count = item.count > 0 ? static_cast<uint32_t>(item.count) : 0;
            if (item.type > QDL_TYPE_STRING || !item.name || count > room / elementBytes(item.type))
                return std::nullopt;
            data.resize(count * elementBytes(item.type));
            return InfoValue{index, item.name, item.type, count, (item.flags & QDL_ITEM_STORED) != 0, data};
        }
        if (bytes < room || bytes > mostBytes) return std::nullopt;
        data.resize(bytes);
    }
    return std::nullopt;
}

}  // namespace

Json InfoValue::json() const {
    if (isText(type)) {
        std::string text(data.data(), strnlen(data.data(), data.size()));
        // Raw characters have no end of their own and come padded.
        if (type != QDL_TYPE_STRING) text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }
    Json values = Json::array();
    for (uint32_t i = 0; i < count; ++i)
        withElement(type, [&](auto value) {
            std::memcpy(&value, data.data() + i * sizeof value, sizeof value);
            values.push_back(type == QDL_TYPE_BOOL ? Json(value != 0) : elementJson(value));
        });
    return values.size() == 1 ? values[0] : values;
}

Json InfoValue::summary() const {
    if (isText(type) || count <= longestArray) return json();
    return withElement(type, [this](auto zero) {
        std::vector<decltype(zero)> values(count);
        std::memcpy(values.data(), data.data(), count * sizeof zero);
        const auto [min, max] = std::minmax_element(values.begin(), values.end());
        return Json{{"values", count}, {"min", elementJson(*min)}, {"max", elementJson(*max)}};
    });
}

std::vector<InfoValue> readItems(Session& session, const Device& device) {
    int32_t count = 0;
    session.check(device, session.api().getHwInfoCount(device.id, &count), "cannot count the info items");
    std::vector<InfoValue> items;
    for (int32_t index = 0; index < count; ++index)
        if (auto item = readItem(session, device, static_cast<uint32_t>(index))) items.push_back(std::move(*item));
    session.printMessages();
    return items;
}

void writeItem(Session& session, const Device& device, const InfoValue& item, const std::string& text) {
    const std::vector<char> data = isText(item.type) ? parseText(item, text) : parseNumbers(item, text);
    session.check(device,
                  session.api().setHwInfoItem(device.id, item.index, data.data(), static_cast<uint32_t>(data.size())),
                  "cannot set " + item.name);
}

std::string textOf(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_object())
        return textOf(value["values"]) + " values from " + textOf(value["min"]) + " to " + textOf(value["max"]);
    if (!value.is_array()) return value.dump();
    std::string text;
    for (const Json& element : value)
        text += (text.empty() ? "" : " ") + textOf(element);
    return text;
}
