// SPDX-License-Identifier: MIT
// Any text as a value of any type: nothing outside the value is touched, and the value's own text gives it again.
#include <algorithm>
#include <cstring>

#include "config/infotext.h"
#include "fuzzing.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const uint32_t type = data[0] % 13;
    const int32_t count = data[1];
    const size_t room = data[2] * 8u;
    std::vector<char> text(data + 3, data + size);
    text.push_back(0);
    // Exactly as long as the value, so that the sanitizer sees a step beyond it.
    std::vector<uint8_t> value(static_cast<size_t>(count) * infoTypeSize(type)), again(value.size(), 1);
    value.reserve(1);  // never null
    const bool read = infoTextToValue(type, value.data(), count, text.data(), text.size());
    require(!read || infoTypeSize(type) != 0);
    if (type == QDL_TYPE_STRING) value.push_back(0);

    static std::vector<char> whole(100000);
    std::vector<char> cut(room);
    require(infoValueToText(type, value.data(), type > QDL_TYPE_STRING ? 0 : count, cut.data(), room) == (room > 0));
    require(infoValueToText(type, value.data(), count, whole.data(), whole.size()));
    require(room == 0 || strlen(cut.data()) == std::min(room - 1, strlen(whole.data())) || type == QDL_TYPE_CHAR ||
            type == QDL_TYPE_BYTE);
    if (type < QDL_TYPE_U8 || type > QDL_TYPE_U32) return 0;  // the others lose digits, case or raw bytes
    require(infoTextToValue(type, again.data(), count, whole.data(), whole.size()));
    require(again == value);
    return 0;
}
