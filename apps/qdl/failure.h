// SPDX-License-Identifier: MIT
// How the program ends: exit statuses, and the exception that carries one together with what the library said.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

enum class ExitStatus {
    Ok = 0,
    Internal = 1,
    Usage = 2,
    Library = 3,
    NoDevice = 4,
    Device = 5,
    Acquisition = 6,
    File = 7,
    TimedOut = 8,
    Interrupted = 130
};

// The table of exit statuses as the help shows it.
extern const char* const exitStatusHelp;

// printf into a string.
__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...);

// A few words for a result or message code of the library.
const char* meaningOf(int32_t code);

struct Failure : std::runtime_error {
    Failure(ExitStatus exitStatus, const std::string& summary, int32_t libraryCode = 0, std::string libraryText = {});

    ExitStatus status;
    int32_t code;      // 0: not a failure of the library
    std::string text;  // what the library stored, may be empty
};

// The failure in one line: what was tried, code, meaning and stored text.
std::string describe(const Failure& failure);
