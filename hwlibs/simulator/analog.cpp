// SPDX-License-Identifier: MIT
#include "analog.h"

#include <array>

#include "qdltypes.h"

namespace qdlsim {
namespace {

// Range of a DAC: it goes in a straight line from `low` volts at 0 to `high` volts at 255.
struct DacRange {
    uint32_t senseCode;
    double low, high;
};

constexpr std::array<DacRange, QDL_CHIP_DACS> kRanges = {{{1, 0.10, 1.10},
                                                          {2, 0.05, 1.25},
                                                          {3, 0.20, 1.60},
                                                          {4, 0.10, 1.40},
                                                          {5, 0.00, 1.20},
                                                          {7, 0.15, 1.35},
                                                          {14, 0.10, 1.50},
                                                          {12, 0.60, 1.80},
                                                          {11, 0.60, 1.80},
                                                          {10, 0.40, 1.40},
                                                          {13, 0.20, 1.20},
                                                          {6, 0.10, 1.70},
                                                          {9, 0.50, 1.50}}};
constexpr uint32_t kDiodeCode = 8;

// Chips differ by some millivolts.
double chipOffset(uint32_t chip) { return 0.003 * ((chip * 2 + 1) % 5) - 0.006; }

}  // namespace

float chipTemperature(uint32_t chip) { return 31.5f + 0.75f * static_cast<float>(chip); }

std::optional<double> analogVolts(uint32_t chip, uint32_t senseCode, const uint8_t* dacs) {
    // Forward voltage of a silicon diode, 0.6 V at 25 degrees and 2 mV less for each degree more.
    if (senseCode == kDiodeCode) return 0.6 - 0.002 * (chipTemperature(chip) - 25.0);
    for (size_t dac = 0; dac < kRanges.size(); ++dac) {
        const DacRange& range = kRanges[dac];
        if (range.senseCode == senseCode)
            return range.low + (range.high - range.low) * dacs[dac] / 255.0 + chipOffset(chip);
    }
    return std::nullopt;
}

}  // namespace qdlsim
