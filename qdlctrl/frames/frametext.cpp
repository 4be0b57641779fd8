// SPDX-License-Identifier: MIT
#include "frames/frametext.h"

#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

template <class Item, class Append>
std::size_t formatLines(const Item* items, std::size_t count, char* text, Append append) {
    char* end = text;
    for (; count >= itemsPerLine; count -= itemsPerLine, items += itemsPerLine) {
        for (std::size_t i = 0; i < itemsPerLine; ++i)
            end = append(end, items[i]);
        *end++ = '\n';
    }
    for (std::size_t i = 0; i < count; ++i)
        end = append(end, items[i]);
    return static_cast<std::size_t>(end - text);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Characters as one number, the first one lowest.
template <class Number>
Number loadBytes(const char* text) {
    Number bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}

// The numbers that the last 1 to 4 and 1 to 8 characters ahead of `end` make, digits behind any blanks. What is in
// front of them becomes zeros; then a multiplication joins neighbours, digits to pairs, these to fours and those to
// eights.
int32_t valueOfFour(const char* end, int length) {
    static constexpr std::array<uint32_t, 5> keep{0, 0x0F000000, 0x0F0F0000, 0x0F0F0F00, 0x0F0F0F0F};
    uint32_t value = loadBytes<uint32_t>(end - 4) & keep[static_cast<unsigned>(length)];
    value = (value * (10 << 8 | 1) >> 8) & 0x00FF00FFu;
    return static_cast<int32_t>(value * (100 << 16 | 1) >> 16);
}

int32_t valueOfEight(const char* end, int length) {
    uint64_t value = (loadBytes<uint64_t>(end - length) & 0x0F0F0F0F0F0F0F0Fu) << (64 - 8 * length);
    value = (value * (10 << 8 | 1) >> 8) & 0x00FF00FF00FF00FFu;
    value = (value * (100 << 16 | 1) >> 16) & 0x0000FFFF0000FFFFu;
    return static_cast<int32_t>(value * (uint64_t{10000} << 32 | 1) >> 32);
}

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

std::size_t format(const int16_t* items, std::size_t count, char* text) {
    const ReadyTexts& texts = readyTexts();
    return formatLines(items, count, text,
                       [&](char* end, int16_t item) { return append(end, texts[static_cast<uint16_t>(item)]); });
}

std::size_t format(const uint32_t* items, std::size_t count, char* text) {
    const ReadyTexts& texts = readyTexts();
    return formatLines(items, count, text, [&](char* end, uint32_t item) { return appendUnsigned(end, item, texts); });
}

uint64_t findBlanksPlain(const char* text) {
    uint64_t blanks = 0;
    for (int i = 0; i < blankBlock && (text[i] == ' ' || isDigit(text[i])); ++i)
        blanks |= static_cast<uint64_t>(text[i] == ' ') << i;
    return blanks;
}

#if defined(__SSE2__)
uint64_t findBlanks(const char* text) {
    uint64_t blanks = 0, others = 0;
    for (int i = 0; i < blankBlock; i += 16) {
        const __m128i chars = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
        const __m128i blank = _mm_cmpeq_epi8(chars, _mm_set1_epi8(' '));
        const __m128i below = _mm_cmplt_epi8(chars, _mm_set1_epi8('0'));
        const __m128i above = _mm_cmpgt_epi8(chars, _mm_set1_epi8('9'));
        const __m128i other = _mm_or_si128(_mm_andnot_si128(blank, below), above);
        blanks |= static_cast<uint64_t>(_mm_movemask_epi8(blank)) << i;
        others |= static_cast<uint64_t>(_mm_movemask_epi8(other)) << i;
    }
    return blanks & ~others & (others - 1);
}
#else
uint64_t findBlanks(const char* text) { return findBlanksPlain(text); }
#endif

bool Parser::take(const char* text, std::size_t length) {
    const char* const textStart = text;
    const char* const textEnd = text + length;
    while (text != textEnd && state != State::stopped && next != end) {
        if (state == State::between) text = takeShortItems(textStart, text, textEnd);
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

// The common case at full speed: items of one to seven digits with a blank behind them. Their ends are known for a
// block of 64 characters at once, so that no item waits for the one before it. Stops ahead of anything else, and near
// the ends of the text, from where the exact way goes on.
const char* Parser::takeShortItems(const char* textStart, const char* text, const char* textEnd) {
    constexpr int readAhead = 8, readBehind = 4;
    if (text - textStart < readBehind) return text;
    int16_t* item = next;
    while (textEnd - text >= blankBlock + readAhead && end - item >= blankBlock / 2) {
        const uint64_t blanks = findBlanks(text);
        uint64_t ends = blanks & ~(blanks << 1 | 1);
        if (ends == 0) break;
        const int taken = blankBlock - std::countl_zero(ends);
        const uint64_t inside = ~ends & ((uint64_t{1} << (taken - 1)) - 1);
        const uint64_t twos = inside & inside << 1, fours = twos & twos << 2;
        if (fours & fours << 4) break;
        const bool anyLong = (fours & inside << 4) != 0;
        const auto takeAll = [&](auto valueOf) {
            for (int first = 0, last; ends; ends &= ends - 1, first = last + 1) {
                last = std::countr_zero(ends);
                *item++ = static_cast<int16_t>(valueOf(text + last, last - first));
            }
        };
        anyLong ? takeAll(valueOfEight) : takeAll(valueOfFour);
        text += taken;
    }
    next = item;
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
