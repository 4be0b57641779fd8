// SPDX-License-Identifier: MIT
#include "frames/frametext.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

namespace frametext {
namespace {

// "%hd " of one value, ready to be stored in one go: at most 7 characters, and their number.
struct ReadyText {
    char text[7];
    uint8_t length;
};
static_assert(sizeof(ReadyText) == 8);

// The text of every value, by its 16 bits.
struct ReadyTexts {
    ReadyTexts() {
        for (int32_t value = INT16_MIN; value <= INT16_MAX; ++value) {
            ReadyText& ready = texts[static_cast<uint16_t>(value)];
            char* const end = std::to_chars(ready.text, ready.text + 6, value).ptr;
            *end = ' ';
            ready.length = static_cast<uint8_t>(end + 1 - ready.text);
        }
    }
    const ReadyText& operator[](std::size_t value) const { return texts[value]; }

    std::array<ReadyText, 65536> texts;
};

// Made when the first frame is written, in memory that is there from the start.
const ReadyTexts& readyTexts() {
    static const ReadyTexts table;
    return table;
}

char* append(char* end, const ReadyText& ready) {
    std::memcpy(end, &ready, sizeof ready);
    return end + ready.length;
}

// "%u " of a value: ready texts for its groups of four digits, each but the first taken from that of 10000 + group, so
// that its zeros are there, and each but the last without the blank.
char* appendUnsigned(char* end, uint32_t value, const ReadyTexts& texts) {
    constexpr uint32_t group = 10000;
    if (value >= group) {
        end = appendUnsigned(end, value / group, texts) - 1;
        std::memcpy(end, texts[group + value % group].text + 1, 5);
        return end + 5;
    }
    return append(end, texts[value]);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }
// Eight characters as one number, the first one lowest.
uint64_t eightBytes(const char* text) {
    uint64_t bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}

// How many of the eight, from the first on, are digits. Bit 7 of a byte rises where it is above '9' or below '0'; a
// borrow reaches only bytes behind one that is no digit.
int leadingDigits(uint64_t bytes) {
    const uint64_t above = bytes + 0x4646464646464646u;
    const uint64_t below = bytes - 0x3030303030303030u;
    return std::countr_zero((above | below | bytes) & 0x8080808080808080u) / 8;
}

// The number that the first 1 to 8 digits make: zeros are moved in front, then pairs, fours and eights are joined.
int32_t valueOfDigits(uint64_t bytes, int digits) {
    uint64_t value = (bytes & 0x0F0F0F0F0F0F0F0Fu) << (64 - 8 * digits);
    value = (value * 10 + (value >> 8)) & 0x00FF00FF00FF00FFu;
    value = (value * 100 + (value >> 16)) & 0x0000FFFF0000FFFFu;
    return static_cast<int32_t>(value * 10000 + (value >> 32));
}

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

std::size_t format(const int16_t* items, std::size_t count, char* text) {
    const ReadyTexts& texts = readyTexts();
    char* end = text;
    for (std::size_t i = 0; i < count; ++i) {
        end = append(end, texts[static_cast<uint16_t>(items[i])]);
        if (i % itemsPerLine == itemsPerLine - 1) *end++ = '\n';
    }
    return static_cast<std::size_t>(end - text);
}

std::size_t format(const uint32_t* items, std::size_t count, char* text) {
    const ReadyTexts& texts = readyTexts();
    char* end = text;
    for (std::size_t i = 0; i < count; ++i) {
        end = appendUnsigned(end, items[i], texts);
        if (i % itemsPerLine == itemsPerLine - 1) *end++ = '\n';
    }
    return static_cast<std::size_t>(end - text);
}

bool Parser::take(const char* text, std::size_t length) {
    const char* const textEnd = text + length;
    while (text != textEnd && state != State::stopped && next != end) {
        if (state == State::between) text = takeShortItems(text, textEnd);
        if (text == textEnd || next == end) break;
        const char c = *text;
        if (isDigit(c)) {
            state = State::digits;
            addDigit(static_cast<uint64_t>(c - '0'));
        } else if (state == State::digits) {
            emit();
            continue;  // what ends an item may begin the next one
        } else {
            startItem(c);
        }
        ++text;
    }
    return state != State::stopped && next != end;
}

// The common case at full speed: items without a sign, of one to seven digits and the blank behind them, that lie whole
// in the block. Stops ahead of the first item that is anything else, which the exact way then takes. Where an item ends
// is guessed by branches, so that the next one is under way before it is known.
const char* Parser::takeShortItems(const char* text, const char* textEnd) {
    while (next != end && textEnd - text > static_cast<std::ptrdiff_t>(sizeof(uint64_t))) {
        const uint64_t bytes = eightBytes(text);
        const int digits = leadingDigits(bytes);
        if (digits == 0 || digits == 8) break;
        *next++ = static_cast<int16_t>(valueOfDigits(bytes, digits));
        text += digits;
        if (*text != ' ') break;
        ++text;
    }
    return text;
}

bool Parser::finish() {
    if (state == State::digits && next != end) emit();
    return next == end;
}

void Parser::startItem(char c) {
    const bool sign = c == '-' || c == '+';
    if (state == State::sign || !(sign || isSpace(c))) {
        state = State::stopped;
    } else if (sign) {
        state = State::sign;
        negative = c == '-';
    }
}

void Parser::addDigit(uint64_t digit) {
    const uint64_t limit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (negative ? 1 : 0);
    magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
}

void Parser::emit() {
    *next++ = static_cast<int16_t>(negative ? 0 - magnitude : magnitude);
    state = State::between;
    negative = false;
    magnitude = 0;
}

}  // namespace frametext
