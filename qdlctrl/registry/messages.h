// SPDX-License-Identifier: MIT
// Every code with its text, and the store that keeps the last one.
#pragma once

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "qdlctrl.h"

template <class T>
inline constexpr std::string_view printfSpecifier = {};
template <>
inline constexpr std::string_view printfSpecifier<const char*> = "s";
template <>
inline constexpr std::string_view printfSpecifier<int32_t> = "d";
template <>
inline constexpr std::string_view printfSpecifier<uint32_t> = "u";
template <>
inline constexpr std::string_view printfSpecifier<int64_t> = PRId64;

// A code and its text. A text whose specifiers do not fit Args does not compile, and arguments convert to Args when a
// message is filled, so that format and values cannot disagree.
template <class... Args>
struct Message {
    constexpr Message(int32_t code, const char* format) : code(code), format(format) {
        std::string_view rest(format);
        (takeSpecifier(rest, printfSpecifier<Args>), ...);
        if (rest.find('%') != rest.npos) throw "more specifiers than arguments";
    }

    int32_t code;
    const char* format;

 private:
    static constexpr void takeSpecifier(std::string_view& rest, std::string_view specifier) {
        rest.remove_prefix(rest.find('%') + 1);  // npos + 1 is 0: the comparison below then fails
        if (!rest.starts_with(specifier)) throw "specifier and argument disagree";
        rest.remove_prefix(specifier.size());
    }
};

namespace msg {

using Text = const char*;

inline constexpr Message<Text, int32_t> deviceCount{QDL_OK, "Number of successfully initialized devices (%s): %d"};

inline constexpr Message<> frameFileNameMissing{QDL_E_ARGUMENT, "Filename must be supplied."};
inline constexpr Message<> fastFileNameMissing{QDL_E_ARGUMENT, "Filename has to be supplied."};
inline constexpr Message<int32_t, int32_t, int32_t> invalidChip{QDL_E_ARGUMENT,
                                                                "Invalid chip number (%d), %d chips present (0-%d)."};
inline constexpr Message<int32_t, int32_t> valuesForOtherChips{
    QDL_E_ARGUMENT, "Invalid parameter, DAC values supplied for %d chips, but %d chips present."};
inline constexpr Message<int32_t, int32_t> bufferForOtherChips{
    QDL_E_ARGUMENT, "Invalid parameter, buffer supplied for %d chips DACs values, but %d chips present."};
inline constexpr Message<int32_t, int32_t> invalidDacIndex{QDL_E_ARGUMENT,
                                                           "Invalid DAC index (%d), valid indices are 0-%d."};
inline constexpr Message<> noStreamToSave{QDL_E_ARGUMENT, "Cannot save frame, stream buffer is empty"};
inline constexpr Message<> nothingToSave{QDL_E_ARGUMENT, "Cannot save frame, buffers are empty"};
inline constexpr Message<int32_t, uint32_t> noSuchFrameToSave{QDL_E_ARGUMENT,
                                                              "Cannot save frame %d, buffer contains just %u frames"};
inline constexpr Message<int32_t> invalidSpacing{QDL_E_ARGUMENT,
                                                 "Invalid acquisition spacing: %d, spacing has to be [1, 256]."};
inline constexpr Message<> acquisitionInProgress{QDL_E_ARGUMENT, "Cannot perform command, acquisition is in progress."};
inline constexpr Message<int32_t> invalidInfoType{QDL_E_ARGUMENT, "Invalid info type: %d"};
inline constexpr Message<int32_t, int32_t> invalidInfoSize{QDL_E_ARGUMENT, "Invalid size, required: %d, supplied: %d"};

inline constexpr Message<int64_t> allocationFailed{QDL_E_MEMORY, "Allocation of %" PRId64 " bytes failed."};
inline constexpr Message<uint32_t> registryAllocationFailed{QDL_E_MEMORY, "Allocation of %u bytes failed"};

inline constexpr Message<Text, Text> openForWritingFailed{QDL_E_OPEN_FOR_WRITING,
                                                          "Cannot open file \"%s\" for writing: %s."};
inline constexpr Message<Text, Text> writeFailed{QDL_E_WRITE, "Error occurred while writing to file \"%s\": %s."};
inline constexpr Message<Text, Text> openForReadingFailed{QDL_E_OPEN_FOR_READING,
                                                          "Cannot open file \"%s\" for reading: %s."};
inline constexpr Message<Text, Text> readFailed{QDL_E_READ, "Error occurred while reading file \"%s\": %s."};
inline constexpr Message<uint32_t, Text> readItemsFailed{QDL_E_READ, "Reading %u items from file %s failed"};
inline constexpr Message<Text> readFrameFailed{QDL_E_READ, "Reading frame from file %s failed"};

inline constexpr Message<Text> cfgKeysMissing{
    QDL_E_CFG_KEYS, "Not all configuration data can be read from config file \"%s\", default values were used."};
inline constexpr Message<Text> cfgKeyList{QDL_E_CFG_KEYS, "%s"};
inline constexpr Message<Text> cfgOpenFailed{QDL_E_CFG_OPEN,
                                             "Cannot open config file \"%s\", default values will be used."};

inline constexpr Message<int32_t, int32_t> bufferTooSmall{QDL_E_FRAME_NOT_READY,
                                                          "Buffer is too small, current size: %d, required size: %d."};
inline constexpr Message<int32_t, int32_t, int32_t> streamFrameNotReady{
    QDL_E_FRAME_NOT_READY, "Frame %d is not ready, stream buffer size: %d frames, filled: %d frames."};
inline constexpr Message<int32_t, int32_t, int32_t> frameNotReady{
    QDL_E_FRAME_NOT_READY, "Frame %d is not ready, frame buffer size: %d frames, filled: %d frames."};
inline constexpr Message<> integralEmpty{QDL_E_FRAME_NOT_READY, "Integral buffer is empty, cannot get frame."};
inline constexpr Message<int32_t> frameFileNotReady{QDL_E_NOTHING_TO_READ, "Frame %d is not ready, cannot load it."};
inline constexpr Message<> noAcquisition{QDL_E_NOTHING_TO_READ,
                                         "No acquisition finished or in progress, cannot get frame."};

inline constexpr Message<Text> itemRefused{QDL_E_ITEM_REFUSED, "Set interface info for \"%s\" failed"};

inline constexpr Message<> ctrlNotInitialized{QDL_E_NOT_INITIALIZED, "Quandel control library was not initialized."};
inline constexpr Message<> notInitialized{QDL_E_NOT_INITIALIZED,
                                          "Cannot perform command, Quandel was not initialized."};
inline constexpr Message<> notProperlyInitialized{QDL_E_NOT_INITIALIZED,
                                                  "Cannot perform command, Quandel was not properly initialized."};

inline constexpr Message<Text> startFailed{QDL_E_START, "Cannot start acquisition: %s"};
inline constexpr Message<Text> stopFailed{QDL_E_STOP, "Error occurred while stopping acquisition: %s"};
inline constexpr Message<Text> busyLineFailed{QDL_E_BUSY_LINE, "Error occurred while checking busy line: %s"};
inline constexpr Message<Text> readoutFailed{QDL_E_READOUT, "Error occurred while reading-out matrix: %s"};
inline constexpr Message<Text> streamFailed{QDL_E_STREAM, "Stream conversion error: %s"};
inline constexpr Message<Text> pseudoFailed{QDL_E_PSEUDO_RANDOM, "Conversion from pseudo-random values error: %s"};
inline constexpr Message<int32_t, Text> streamFailedInFrame{QDL_E_STREAM, "Stream conversion error in frame %d. (%s)"};
inline constexpr Message<int32_t, Text> pseudoFailedInFrame{
    QDL_E_PSEUDO_RANDOM, "Conversion from pseudo-random values error in frame %d. (%s)"};
inline constexpr Message<Text> streamFailedInFile{QDL_E_STREAM, "Stream conversion error in frame from file %s"};
inline constexpr Message<Text> pseudoFailedInFile{QDL_E_PSEUDO_RANDOM,
                                                  "Conversion from pseudo-random values error in frame from file %s"};
inline constexpr Message<Text> dacsFailed{QDL_E_DACS, "Error occurred while setting Quandel DACs: %s"};
inline constexpr Message<> aborted{QDL_E_ABORTED, "Acquisition aborted."};
inline constexpr Message<Text> testPulsesFailed{QDL_E_TEST_PULSES, "Test pulses failed: %s"};
inline constexpr Message<Text> pixelsFailed{QDL_E_PIXELS, "Pixel mask setting failed: %s"};
inline constexpr Message<int32_t, Text> analogFailed{
    QDL_E_ANALOG, "Error occurred while reading analog value from Quandel DACs (code %d): %s"};
inline constexpr Message<Text> resetFailed{QDL_E_RESET_MATRIX, "Resetting pixel matrix failed: %s"};

inline constexpr Message<Text> noHwLibrary{QDL_E_NO_HW_LIBRARY, "No HW library (%s) was found"};
inline constexpr Message<Text, uint32_t> loadFailed{QDL_E_HW_LIBRARY_LOAD, "Cannot load library %s (%u)"};
inline constexpr Message<Text, int32_t> hwLibraryInitFailed{QDL_E_HW_LIBRARY_INIT,
                                                            "Initialization of HW library %s has failed (%d)."};
inline constexpr Message<Text> enumerationFailed{QDL_E_HW_LIBRARY_INIT, "Device initialization error: %s"};
inline constexpr Message<int32_t, Text> getItemFailed{QDL_E_GET_ITEM, "Cannot get HW info item with index %d: %s"};
inline constexpr Message<int32_t, Text> setItemFailed{QDL_E_SET_ITEM, "Cannot set HW info item with index %d: %s"};

}  // namespace msg

// Fills a text area of QDL_TEXT_SIZE characters, cuts what does not fit, and gives the length of the text.
template <class... Args>
std::size_t formatText(char* text, const Message<Args...>& message, std::type_identity_t<Args>... args) {
    int length;
    if constexpr (sizeof...(Args) == 0)
        length = std::snprintf(text, QDL_TEXT_SIZE, "%s", message.format);
    else
        length = std::snprintf(text, QDL_TEXT_SIZE, message.format, args...);
    return static_cast<std::size_t>(std::clamp(length, 0, QDL_TEXT_SIZE - 1));
}

// Formats into the text area of a caller, or nowhere if that is null, and gives the code. For operations that run
// beside an acquisition: they must not disturb the message store of the device.
template <class... Args>
int32_t formatToBuffer(char* text, const Message<Args...>& message, std::type_identity_t<Args>... args) {
    if (text) formatText<Args...>(text, message, args...);
    return message.code;
}

// Copy of a text that a HW library owns, never read beyond the size of a message.
class HwText {
 public:
    explicit HwText(const char* from) {
        const std::size_t length = from ? strnlen(from, sizeof text - 1) : 0;
        std::memcpy(text, from ? from : "", length);
        text[length] = 0;
    }
    operator const char*() const { return text; }

 private:
    char text[QDL_TEXT_SIZE];
};

// The last message. Writers are serialized by the owner; readers take no lock: the code is atomic, and the text, handed
// out by reference, changes under them but stays terminated.
class MessageStore {
 public:
    template <class... Args>
    void store(const Message<Args...>& message, std::type_identity_t<Args>... args) {
        char filled[QDL_TEXT_SIZE];  // an argument may point into the store itself
        const std::size_t length = formatText<Args...>(filled, message, args...);
        lastErrorCode = message.code;
        std::memcpy(lastErrorText, filled, length + 1);
    }
    void read(int32_t* code, const char** text) const {
        *code = lastErrorCode;
        *text = lastErrorText;
    }

 private:
    char lastErrorText[QDL_TEXT_SIZE] = "";
    std::atomic<int32_t> lastErrorCode{0};
};
