// SPDX-License-Identifier: MIT
#include "config/cfgio.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// What stands behind the colon if the line holds the key; null otherwise.
const char* valueOf(const char* line, const char* keyName) {
    const char* const colon = std::strchr(line, ':');
    if (!colon) return nullptr;
    // Compared over the length of the file's key: a prefix of the requested name matches too.
    return std::strncmp(line, keyName, static_cast<std::size_t>(colon - line)) == 0 ? colon + 1 : nullptr;
}

// The section that a line beginning with "[" opens; null data if it has no "]".
std::string_view headingOf(const char* line) {
    const char* const end = std::strchr(line, ']');
    return end ? std::string_view(line + 1, static_cast<std::size_t>(end - line - 1)) : std::string_view();
}

// Leaves the matching line in `line` and gives its value, or null.
const char* findKey(std::FILE* file, std::string_view section, const char* keyName, char* line) {
    bool inSection = section.empty();
    while (std::fgets(line, cfgLineSize, file)) {
        if (*line == '[') {
            if (inSection) return nullptr;
            const std::string_view heading = headingOf(line);
            inSection = heading.data() && heading == section;
        } else if (inSection) {
            if (const char* const value = valueOf(line, keyName)) return value;
        }
    }
    return nullptr;
}

CfgResult findValue(std::FILE* file, const char* section, const char* keyName, char* line, const char*& value) {
    if (std::fseek(file, 0, SEEK_SET)) return CfgResult::failed;
    value = findKey(file, section ? section : "", keyName, line);
    return value ? CfgResult::found : CfgResult::notFound;
}

// As scanf takes "%d", but a number that does not fit is a failure and not another number.
CfgResult takeInt(const char* text, int* value) {
    if (text[std::strspn(text, " \t\n\v\f\r")] == 0) return CfgResult::found;
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE || number != static_cast<int>(number)) return CfgResult::failed;
    *value = static_cast<int>(number);
    return CfgResult::found;
}

template <class... Args>
bool putLine(std::FILE* file, const char* format, Args... args) {
    char line[cfgLineSize];
    const int length = std::snprintf(line, sizeof line, format, args...);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof line && std::fputs(line, file) >= 0;
}

}  // namespace

CfgResult cfgGetString(std::FILE* file, const char* section, const char* keyName, char* value, std::size_t valueSize) {
    char line[cfgLineSize];
    const char* found = nullptr;
    const CfgResult result = findValue(file, section, keyName, line, found);
    if (result == CfgResult::found) std::snprintf(value, valueSize, "%s", found);
    return result;
}

CfgResult cfgGetInt(std::FILE* file, const char* section, const char* keyName, int* value) {
    char line[cfgLineSize];
    const char* found = nullptr;
    const CfgResult result = findValue(file, section, keyName, line, found);
    return result == CfgResult::found ? takeInt(found, value) : result;
}

void CfgErrors::add(CfgResult result, const char* keyName) {
    const char* const what = result == CfgResult::notFound ? "Key not found" : "Error occurred while reading key";
    const std::size_t room = sizeof lines - length;
    const int added = std::snprintf(lines + length, room, "%s: %s.\n", what, keyName);
    if (added > 0) length += static_cast<std::size_t>(added) < room ? static_cast<std::size_t>(added) : room - 1;
}

void cfgGetIntDef(std::FILE* file, const char* section, const char* keyName, int* value, int defaultValue,
                  CfgErrors& errors) {
    const CfgResult result = cfgGetInt(file, section, keyName, value);
    if (result == CfgResult::found) return;
    errors.add(result, keyName);
    *value = defaultValue;
}

void cfgGetByteDef(std::FILE* file, const char* section, const char* keyName, uint8_t* value, uint8_t defaultValue,
                   CfgErrors& errors) {
    int tmpValue = -1;  // stays out of range if the value is blank
    CfgResult result = cfgGetInt(file, section, keyName, &tmpValue);
    if (result == CfgResult::found && (tmpValue < 0 || tmpValue > 255)) result = CfgResult::failed;
    if (result != CfgResult::found) {
        errors.add(result, keyName);
        tmpValue = defaultValue;
    }
    *value = static_cast<uint8_t>(tmpValue);
}

bool cfgPutInt(std::FILE* file, const char* keyName, int value) { return putLine(file, "%s:%d\n", keyName, value); }

bool cfgPutString(std::FILE* file, const char* keyName, const char* value) {
    return putLine(file, "%s:%s\n", keyName, value);
}
