// SPDX-License-Identifier: MIT
#include "config/infotext.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/platform.h"
#include "qdltypes.h"

namespace {

constexpr std::array<std::size_t, 11> elementBytes{4, 1, 1, 1, 2, 2, 4, 4, 4, 8, 1};

// Text that grows to the end of its area and is then cut.
class BoundedText {
 public:
    BoundedText(char* text, std::size_t size) : at(text), end(text + size - 1) { *at = 0; }

    void append(std::string_view piece) {
        const std::size_t length = std::min(piece.size(), static_cast<std::size_t>(end - at));
        at = std::copy_n(piece.data(), length, at);
        *at = 0;
    }

 private:
    char* at;
    char* const end;
};

// Elements may lie at any address.
template <class Element>
Element elementAt(const void* data, int32_t i) {
    Element element;
    std::memcpy(&element, static_cast<const char*>(data) + static_cast<std::size_t>(i) * sizeof element,
                sizeof element);
    return element;
}

template <class Element>
void store(void* data, int32_t i, Element element) {
    std::memcpy(static_cast<char*>(data) + static_cast<std::size_t>(i) * sizeof element, &element, sizeof element);
}

template <class Element>
void writeIntegers(const void* data, int32_t count, BoundedText& out) {
    char number[16];
    for (int32_t i = 0; i < count; ++i) {
        char* const numberEnd = std::to_chars(number, number + 12, elementAt<Element>(data, i)).ptr;
        *numberEnd = ' ';
        out.append({number, static_cast<std::size_t>(numberEnd + 1 - number)});
    }
}

// As "%f " writes them in the "C" locale; a host with a decimal comma must not change the file.
template <class Element>
void writeReals(const void* data, int32_t count, BoundedText& out) {
    char number[400];  // the largest double has 309 digits ahead of the point
    for (int32_t i = 0; i < count; ++i) {
        const double value = elementAt<Element>(data, i);
        char* const numberEnd = std::to_chars(number, number + 399, value, std::chars_format::fixed, 6).ptr;
        *numberEnd = ' ';
        out.append({number, static_cast<std::size_t>(numberEnd + 1 - number)});
    }
}

void writeTruthValues(const void* data, int32_t count, BoundedText& out) {
    for (int32_t i = 0; i < count; ++i)
        out.append(elementAt<uint32_t>(data, i) ? "TRUE " : "FALSE ");
}

// `convert` takes text and end pointer as strtol does.
template <class Element, class Convert>
bool readNumbers(void* data, int32_t count, char* text, Convert convert) {
    for (int32_t i = 0; i < count; ++i) {
        char* numberEnd = nullptr;
        const auto number = convert(text, &numberEnd);
        if (numberEnd == text) return false;
        store(data, i, static_cast<Element>(number));
        text = numberEnd;
    }
    return true;
}

template <class Element>
bool readSigned(void* data, int32_t count, char* text) {
    return readNumbers<Element>(data, count, text, [](char* at, char** end) { return std::strtol(at, end, 10); });
}

template <class Element>
bool readUnsigned(void* data, int32_t count, char* text) {
    return readNumbers<Element>(data, count, text, [](char* at, char** end) { return std::strtoul(at, end, 10); });
}

// Truth values as numbers are stored unchanged; where the numbers run out, the rest is false.
bool readTruthNumbers(void* data, int32_t count, char* text) {
    for (int32_t i = 0; i < count; ++i)
        store(data, i, static_cast<int32_t>(std::strtol(text, &text, 10)));
    return true;
}

bool readTruthWords(void* data, int32_t count, const char* text, std::size_t size) {
    const std::string_view words(text);
    std::size_t at = 0;
    for (int32_t i = 0; i < count && at < size; ++i) {
        const std::string_view rest = at < words.size() ? words.substr(at) : std::string_view();
        const bool isTrue = rest.starts_with("TRUE");
        if (!isTrue && !rest.starts_with("FALSE")) return false;
        store(data, i, static_cast<int32_t>(isTrue));
        at += 5;  // the blank behind TRUE goes with it
        while (at < words.size() && words[at] == ' ')
            ++at;
    }
    return true;
}

bool readTruthValues(void* data, int32_t count, char* text, std::size_t size) {
    for (char* c = text; *c; ++c)
        if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
    int number;
    if (std::sscanf(text, "%d", &number) == 1) return readTruthNumbers(data, count, text);
    return readTruthWords(data, count, text, size);
}

}  // namespace

std::size_t infoTypeSize(uint32_t type) { return type < elementBytes.size() ? elementBytes[type] : 0; }

bool infoValueToText(uint32_t type, const void* data, int32_t count, char* text, std::size_t size) {
    if (size < 1) return false;
    BoundedText out(text, size);
    const char* const bytes = static_cast<const char*>(data);
    const std::size_t byteCount = static_cast<std::size_t>(std::max(count, 0));
    switch (type) {
        case QDL_TYPE_BOOL:
            writeTruthValues(data, count, out);
            break;
        case QDL_TYPE_CHAR:
        case QDL_TYPE_BYTE:
            out.append({bytes, byteCount});
            break;
        case QDL_TYPE_U8:
            writeIntegers<uint8_t>(data, count, out);
            break;
        case QDL_TYPE_I16:
            writeIntegers<int16_t>(data, count, out);
            break;
        case QDL_TYPE_U16:
            writeIntegers<uint16_t>(data, count, out);
            break;
        case QDL_TYPE_I32:
            writeIntegers<int32_t>(data, count, out);
            break;
        case QDL_TYPE_U32:
            writeIntegers<uint32_t>(data, count, out);
            break;
        case QDL_TYPE_FLOAT:
            writeReals<float>(data, count, out);
            break;
        case QDL_TYPE_DOUBLE:
            writeReals<double>(data, count, out);
            break;
        case QDL_TYPE_STRING:
            out.append({bytes, strnlen(bytes, size)});
            break;
        default:
            out.append("NA");
    }
    return true;
}

bool infoTextToValue(uint32_t type, void* data, int32_t count, char* text, std::size_t size) {
    if (size < 1) return false;
    text[size - 1] = 0;
    switch (type) {
        case QDL_TYPE_BOOL:
            return readTruthValues(data, count, text, size);
        case QDL_TYPE_CHAR:
        case QDL_TYPE_BYTE:
        case QDL_TYPE_U8:
            return readSigned<uint8_t>(data, count, text);
        case QDL_TYPE_I16:
            return readSigned<int16_t>(data, count, text);
        case QDL_TYPE_U16:
            return readUnsigned<uint16_t>(data, count, text);
        case QDL_TYPE_I32:
            return readSigned<int32_t>(data, count, text);
        case QDL_TYPE_U32:
            return readUnsigned<uint32_t>(data, count, text);
        case QDL_TYPE_FLOAT:
            return readNumbers<float>(data, count, text, platform::parseDouble);
        case QDL_TYPE_DOUBLE:
            return readNumbers<double>(data, count, text, platform::parseDouble);
        case QDL_TYPE_STRING:
            std::strncpy(static_cast<char*>(data), text, static_cast<std::size_t>(std::max(count, 0)));
            return true;
        default:
            return false;
    }
}
