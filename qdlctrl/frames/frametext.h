// SPDX-License-Identifier: MIT
// Pixels as decimal text and back, by block. Byte for byte what printf makes of "%hd " and "%u ", and item for item
// what scanf takes with "%hd", without a call for each item.
#pragma once

#include <cstddef>
#include <cstdint>

namespace frametext {

// A line end follows every 256th item, counted from the start of the block: a block is whole rows, but for the last.
constexpr std::size_t itemsPerLine = 256;

// Room for the text of `items` items: the longest item is "-32768 " or "4294967295 "; 8 more bytes may be overwritten.
template <class Item>
constexpr std::size_t textRoom(std::size_t items) {
    return items * (sizeof(Item) == 2 ? 7 : 11) + items / itemsPerLine + 8;
}

// Writes the text of the items to `text` and gives its length.
std::size_t format(const int16_t* items, std::size_t count, char* text);
std::size_t format(const uint32_t* items, std::size_t count, char* text);

// Where blanks are among the next 64 characters, bit i for character i, as far as these are blanks and digits only. The
// plain form is for processors without the instructions of the other.
constexpr int blankBlock = 64;
uint64_t findBlanks(const char* text);
uint64_t findBlanksPlain(const char* text);

// Reads signed 16-bit items from text that arrives in blocks; an item may lie across two of them. White space separates
// items and so does a sign; anything else that is no digit ends the text for good. A number beyond 64 bits saturates
// there, and then as any other keeps its low 16 bits.
class Parser {
 public:
    Parser(int16_t* items, std::size_t wanted) : next(items), end(items + wanted) {}

    // Takes a block; false once nothing more is wanted or can be read.
    bool take(const char* text, std::size_t length);
    // Takes what the end of the text completes. Then all items wanted are there, or false.
    bool finish();

 private:
    enum class State { between, sign, digits, stopped };

    const char* takeShortItems(const char* textStart, const char* text, const char* textEnd);
    void startItem(char c);
    void addDigit(uint64_t digit);
    void emit();

    int16_t* next;
    int16_t* const end;
    State state = State::between;
    bool negative = false;
    uint64_t magnitude = 0;
};

}  // namespace frametext
