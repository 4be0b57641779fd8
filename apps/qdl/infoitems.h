// SPDX-License-Identifier: MIT
// The named, typed values that a HW library publishes.
#pragma once

#include "session.h"

struct InfoValue {
    uint32_t index = 0;
    std::string name;
    uint32_t type = 0;
    uint32_t count = 0;   // of elements
    bool stored = false;  // kept in the configuration file
    std::vector<char> data;

    // Texts as text, one element as a value, several as an array.
    Json json() const;
    // The same, but of a long array only the number of its values and their range.
    Json summary() const;
};

// All items that can be read; for the others the message of the library is printed.
std::vector<InfoValue> readItems(Session& session, const Device& device);
// Throws Failure, of usage if the text is no value of the item's type. Array elements stand apart by blanks.
void writeItem(Session& session, const Device& device, const InfoValue& item, const std::string& text);

// A value as the program prints it: arrays with blanks between, texts without quotes, a summary in words.
std::string textOf(const Json& value);
