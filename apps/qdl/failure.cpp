// SPDX-License-Identifier: MIT
#include "failure.h"

#include <qdlctrl.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

const char* const exitStatusHelp =
    "Exit status:\n"
    "    0  done\n"
    "    1  unexpected failure of the program itself\n"
    "    2  wrong usage\n"
    "    3  control library not found or not loadable\n"
    "    4  no such device, or no device at all\n"
    "    5  a device refused an operation\n"
    "    6  acquisition failed\n"
    "    7  a file was refused, or cannot be read or written\n"
    "    8  acquisition timed out\n"
    "  130  acquisition interrupted\n";

std::string formatted(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

namespace {

struct Meaning {
    int32_t code;
    const char* words;
};

constexpr Meaning meanings[] = {
    {QDL_OK, "success"},
    {QDL_CFG_DEFAULTS, "read, with defaults for some keys"},
    {QDL_E_FAILED, "library not initialized, or a configuration write failed"},
    {QDL_E_ARGUMENT, "invalid argument"},
    {QDL_E_MEMORY, "allocation failed"},
    {QDL_E_OPEN_FOR_WRITING, "file cannot be opened for writing"},
    {QDL_E_WRITE, "write failed"},
    {QDL_E_OPEN_FOR_READING, "file cannot be opened for reading"},
    {QDL_E_READ, "read failed, or the file is too short"},
    {QDL_E_CFG_KEYS, "keys missing from a configuration file"},
    {QDL_E_CFG_OPEN, "configuration file cannot be opened"},
    {QDL_E_FRAME_NOT_READY, "frame not available"},
    {QDL_E_NOTHING_TO_READ, "no acquisition, or frame file not there yet"},
    {QDL_E_ITEM_REFUSED, "stored info item refused by the HW library"},
    {QDL_E_NOT_INITIALIZED, "not initialized"},
    {QDL_E_START, "exposure cannot start"},
    {QDL_E_STOP, "exposure cannot be stopped"},
    {QDL_E_BUSY_LINE, "busy line cannot be read, the exposure ends early"},
    {QDL_E_READOUT, "read-out failed"},
    {QDL_E_STREAM, "stream cannot be taken apart into pixels"},
    {QDL_E_PSEUDO_RANDOM, "counter codes cannot be turned into counts"},
    {QDL_E_DACS, "DACs cannot be sent"},
    {QDL_E_ABORTED, "stopped by an abort"},
    {QDL_E_TEST_PULSES, "test pulses failed"},
    {QDL_E_PIXELS, "pixel matrix cannot be sent"},
    {QDL_E_ANALOG, "analog DAC value cannot be read"},
    {QDL_E_RESET_MATRIX, "pixel matrix cannot be reset"},
    {QDL_E_DEVICE_ID, "no such device"},
    {QDL_E_NO_HW_LIBRARY, "no HW library found"},
    {QDL_E_HW_LIBRARY_LOAD, "HW library cannot be loaded"},
    {QDL_E_HW_LIBRARY_INIT, "module is no HW library, or found no device"},
    {QDL_E_GET_ITEM, "info item cannot be read"},
    {QDL_E_SET_ITEM, "info item cannot be set"},
};

}  // namespace

const char* meaningOf(int32_t code) {
    for (const Meaning& meaning : meanings)
        if (meaning.code == code) return meaning.words;
    return "unknown code";
}

Failure::Failure(ExitStatus exitStatus, const std::string& summary, int32_t libraryCode, std::string libraryText)
    : std::runtime_error(summary), status(exitStatus), code(libraryCode), text(std::move(libraryText)) {}

std::string describe(const Failure& failure) {
    std::string line = failure.what();
    if (failure.code != 0) line += formatted(": code %d (%s)", failure.code, meaningOf(failure.code));
    if (!failure.text.empty()) line += ": " + failure.text;
    return line;
}
