// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

namespace qdlsim {

// Temperature of a chip, degrees Celsius; constant.
float chipTemperature(uint32_t chip);

// Voltage that chip number `chip` shows for a sense code, with `dacs` as its 13 DAC values. The code 8 stands for the
// temperature diode. Nothing for a code that selects no signal.
std::optional<double> analogVolts(uint32_t chip, uint32_t senseCode, const uint8_t* dacs);

}  // namespace qdlsim
