// SPDX-License-Identifier: MIT
// Any bytes, and then enough numbers or none, as a plane file: the matrix becomes what fscanf makes of them, or nothing
// changes.
#include "fuzzing.h"

namespace {

std::string enoughNumbers() {
    std::string text = "\n";
    for (int i = 0; i < QDL_CHIP_PIXELS; ++i)
        text += static_cast<char>('0' + i % 10), text += ' ';
    return text;
}

// Bits of the fields in the order of the arguments, and how far they are from the lowest one.
struct Field {
    unsigned bits;
    int shift;
};
constexpr Field fields[] = {{0x80, 7}, {0x40, 6}, {0x07, 0}, {0x38, 3}};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScriptedHw& hw = startDevice({});
    static const MemoryFile file;
    static const std::string numbers = enoughNumbers();
    if (size == 0) return 0;
    const unsigned choice = *data & 3u;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (*data & 4) text += numbers;
    file.write(text);

    std::vector<uint8_t> expected(QDL_CHIP_PIXELS, 0xA5), matrix = expected;
    hw.clearLog();
    require(setPixelsCfg(0, matrix.data(), 0) == QDL_OK);
    const char* names[4] = {};
    names[choice] = file.path.c_str();
    const int32_t result = loadPixelsCfgAscii(0, names[0], names[1], names[2], names[3]);

    const std::vector<int16_t> scanned = file.scan(QDL_CHIP_PIXELS);
    require(result == (scanned.size() == QDL_CHIP_PIXELS ? QDL_OK : QDL_E_READ));
    const Field field = fields[choice];
    for (size_t i = 0; result == QDL_OK && i < expected.size(); ++i)
        expected[i] = static_cast<uint8_t>((expected[i] & ~field.bits) |
                                           ((static_cast<unsigned>(scanned[i]) << field.shift) & field.bits));
    require(getPixelsCfg(0, matrix.data(), 0) == QDL_OK);
    require(matrix == expected);
    return 0;
}
