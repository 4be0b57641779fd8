// SPDX-License-Identifier: MIT
#include "poisson.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <memory>
#include <vector>

namespace qdlsim {
namespace {

constexpr double kStep = 0.25;
constexpr uint32_t kLevels = 1024;
constexpr uint16_t kLargeMean = UINT16_MAX;
constexpr int kColumns = 256;
constexpr double kTwo32 = 0x1p32;

// The distribution of one level as an alias table: A. J. Walker, ACM Transactions on Mathematical Software 3 (1977),
// built as by M. D. Vose, IEEE Transactions on Software Engineering 17 (1991). A column holds 24 bits of probability
// for itself and in the low 8 bits the column that gets the rest, so that one 32-bit number draws a count.
struct AliasTable {
    std::array<uint32_t, kColumns> columns;
    uint32_t firstCount;
};

// 256 counts from 112 below the mean on hold all but 1e-11 of every level.
std::array<double, kColumns> probabilities(double mean, uint32_t firstCount) {
    std::array<double, kColumns> weight{};
    const int mode = static_cast<int>(mean) - static_cast<int>(firstCount);
    weight[mode] = 1.0;
    for (int i = mode; i > 0; --i)
        weight[i - 1] = weight[i] * (firstCount + i) / mean;
    for (int i = mode + 1; i < kColumns; ++i)
        weight[i] = weight[i - 1] * mean / (firstCount + i);
    double total = 0.0;
    for (double w : weight)
        total += w;
    for (double& w : weight)
        w /= total;
    return weight;
}

AliasTable makeTable(double mean) {
    AliasTable table{{}, static_cast<uint32_t>(std::max(0.0, std::floor(mean) - 112.0))};
    std::array<double, kColumns> share = probabilities(mean, table.firstCount);
    std::array<uint8_t, kColumns> small, large;
    size_t smallCount = 0, largeCount = 0;
    for (int i = 0; i < kColumns; ++i) {
        share[i] *= kColumns;
        table.columns[i] = 0xFFFFFF00u | static_cast<uint32_t>(i);
        (share[i] < 1.0 ? small[smallCount++] : large[largeCount++]) = static_cast<uint8_t>(i);
    }
    while (smallCount > 0 && largeCount > 0) {
        const uint8_t poor = small[--smallCount];
        const uint8_t rich = large[largeCount - 1];
        table.columns[poor] = static_cast<uint32_t>(share[poor] * 0x1p24) << 8 | rich;
        share[rich] -= 1.0 - share[poor];
        if (share[rich] < 1.0) small[smallCount++] = large[--largeCount];
    }
    return table;
}

const std::vector<AliasTable>& levelTables() {
    static const std::vector<AliasTable> tables = [] {
        std::vector<AliasTable> all(kLevels);
        for (uint32_t level = 0; level < kLevels; ++level)
            all[level] = makeTable(level * kStep);
        return all;
    }();
    return tables;
}

// Inversion of the rest of a mean, for the few numbers above plan.remainder.
uint32_t drawRest(uint32_t remainder, uint32_t bits) {
    double term = (remainder + 1.0) / kTwo32;
    const double mean = -std::log(term);
    const double target = bits / kTwo32;
    double sum = term;
    uint32_t count = 0;
    while (target >= sum && count < 16) {
        term *= mean / ++count;
        sum += term;
    }
    return count;
}

// Stirling's series; good to 1e-9 from 10 on, and smaller counts do not occur beside means above 256.
double logFactorial(double k) {
    return (k + 0.5) * std::log(k) - k + 0.91893853320467274 + (1.0 / 12.0 - 1.0 / (360.0 * k * k)) / k;
}

// Transformed rejection with squeeze, algorithm PTRS: W. Hoermann, "The transformed rejection method for generating
// Poisson random variables", Insurance: Mathematics and Economics 12 (1993).
uint32_t drawLarge(double mean, uint64_t bits, uint32_t limit) {
    if (mean > 2.0 * limit) return limit;
    const double b = 0.931 + 2.53 * std::sqrt(mean);
    const double a = -0.059 + 0.02483 * b;
    const double inverseAlpha = 1.1239 + 1.1328 / (b - 3.4);
    const double vr = 0.9277 - 3.6224 / (b - 2.0);
    const CounterRandom random(bits, 0);
    for (uint64_t trial = 0;; trial += 2) {
        const double u = random.unit(trial) - 0.5;
        const double v = random.unit(trial + 1);
        const double us = 0.5 - std::fabs(u);
        const double k = std::floor((2.0 * a / us + b) * u + mean + 0.43);
        const bool inside = us >= 0.07 && v <= vr;
        if (!inside && (k < 1.0 || (us < 0.013 && v > us))) continue;
        if (inside || std::log(v * inverseAlpha / (a / (us * us) + b)) <= k * std::log(mean) - mean - logFactorial(k))
            return static_cast<uint32_t>(std::min<double>(k, limit));
    }
}

}  // namespace

PoissonPlan planPoisson(double mean) {
    if (mean >= kLevels * kStep) {
        const auto bounded = static_cast<float>(std::min(mean, 1e9));
        return {std::bit_cast<uint32_t>(bounded), kLargeMean};
    }
    const auto level = static_cast<uint16_t>(mean / kStep);
    const double zero = std::ceil(std::exp(level * kStep - mean) * kTwo32) - 1.0;
    return {static_cast<uint32_t>(std::min(zero, kTwo32 - 1.0)), level};
}

void drawPoisson(std::span<const PoissonPlan> plans, const CounterRandom& random, uint64_t firstPosition,
                 uint32_t limit, uint16_t* counts) {
    const AliasTable* tables = levelTables().data();
    for (size_t i = 0; i < plans.size(); ++i) {
        const uint64_t bits = random.bits(firstPosition + i);
        const PoissonPlan plan = plans[i];
        if (plan.level == kLargeMean) {
            counts[i] = static_cast<uint16_t>(drawLarge(std::bit_cast<float>(plan.remainder), bits, limit));
            continue;
        }
        const AliasTable& table = tables[plan.level];
        const uint32_t column = bits & 0xFF;
        const uint32_t entry = table.columns[column];
        const uint32_t own = static_cast<uint32_t>(bits) >> 8;
        uint32_t count = table.firstCount + (own < entry >> 8 ? column : entry & 0xFF);
        const auto high = static_cast<uint32_t>(bits >> 32);
        if (high > plan.remainder) count += drawRest(plan.remainder, high);
        counts[i] = static_cast<uint16_t>(count);
    }
}

}  // namespace qdlsim
