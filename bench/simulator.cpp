// SPDX-License-Identifier: MIT
// The simulator's read-out and decoding of one chip, through its table.
#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "limits.h"
#include "plain.h"
#include "qdlhw.h"
#include "rounds.h"

namespace bench {
namespace {

constexpr uint32_t words = (QDL_CHIP_STREAM_BYTES + 1) / 2;

const MandatoryFuncs& simulatorTable() {
    void* const module = dlopen(SIMULATOR, RTLD_NOW | RTLD_LOCAL);
    void* const getTable = module ? dlsym(module, "getMandatoryFuncs") : nullptr;
    if (!getTable) fail("cannot load " SIMULATOR);
    return *reinterpret_cast<decltype(&getMandatoryFuncs)>(getTable)();
}

void must(int32_t answer) {
    if (answer != 0) fail("the simulator refuses");
}

// A stream of an exposure, and the plain forms' way to the same counts.
struct Chip {
    const MandatoryFuncs& table = simulatorTable();
    uint32_t id = 0;
    Area stream{words * sizeof(uint16_t)}, emptied{words * sizeof(uint16_t)};
    Area frame{QDL_CHIP_PIXELS * sizeof(int16_t)}, copy{QDL_CHIP_PIXELS * sizeof(int16_t)};
    Area values{QDL_CHIP_PIXELS * sizeof(uint16_t)};
    std::vector<int16_t> counts = std::vector<int16_t>(1 << 14);

    Chip() {
        must(table.hwFirstDevice(&id));
        must(table.hwStartAcq(id, 0.1));
        must(table.hwStopAcq(id));
        must(table.hwReadMatrix(id, stream.as<uint16_t>(), words));
        plain::unpackBits(stream.as<uint8_t>(), values.as<int16_t>());
        decode(stream.as<uint16_t>());
        for (uint32_t pixel = 0; pixel < QDL_CHIP_PIXELS; ++pixel)
            counts[values.as<uint16_t>()[pixel]] = frame.as<int16_t>()[pixel];
    }

    void decode(const uint16_t* from) const {
        must(table.hwStreamToFrame(id, from, words, frame.as<int16_t>(), QDL_CHIP_PIXELS));
        must(table.hwPseudoToCounts(id, frame.as<int16_t>(), QDL_CHIP_PIXELS, 1));
    }
};

// What is read out in the rounds are cleared counters, which cost the same; what is decoded are counts.
Contest readAndDecode() {
    const auto chip = std::make_shared<Chip>();
    return {[chip] {
                must(chip->table.hwReadMatrix(chip->id, chip->emptied.as<uint16_t>(), words));
                chip->decode(chip->stream.as<uint16_t>());
            },
            [chip] { std::memcpy(chip->copy.as<char>(), chip->frame.as<char>(), QDL_CHIP_PIXELS * sizeof(int16_t)); },
            [chip] {
                plain::packBits(chip->values.as<uint16_t>(), chip->emptied.as<uint8_t>());
                plain::unpackBits(chip->stream.as<uint8_t>(), chip->copy.as<int16_t>());
                plain::decode(chip->copy.as<int16_t>(), chip->counts.data());
            }};
}

}  // namespace

void addRows() { addRow("simulator: read-out and decoding of one chip", {50, 8}, 200, readAndDecode); }

}  // namespace bench
