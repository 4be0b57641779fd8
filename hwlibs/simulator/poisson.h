// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "random.h"

namespace qdlsim {

// Everything that drawing counts of one mean needs, prepared once and used for many frames.
struct PoissonPlan {
    uint32_t remainder = UINT32_MAX;  // see planPoisson
    uint16_t level = 0;
};

// A mean below 256 is cut into level * 0.25, drawn with one look-up, and a rest below 0.25 that is mostly 0; the sum of
// two independent Poisson numbers is Poisson again, so nothing is rounded. `remainder` is then the largest 32-bit
// number that stands for a rest of no counts. For larger means it holds the mean itself, as the bits of a float.
PoissonPlan planPoisson(double mean);

// Fills counts[i] from plans[i] and the number at firstPosition + i. No count exceeds `limit`.
void drawPoisson(std::span<const PoissonPlan> plans, const CounterRandom& random, uint64_t firstPosition,
                 uint32_t limit, uint16_t* counts);

}  // namespace qdlsim
