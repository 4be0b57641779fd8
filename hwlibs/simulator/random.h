// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace qdlsim {

// Increment and finaliser of SplitMix64: G. L. Steele, D. Lea, C. H. Flood, "Fast Splittable Pseudorandom Number
// Generators", OOPSLA 2014.
inline constexpr uint64_t kGoldenGamma = 0x9E3779B97F4A7C15u;

constexpr uint64_t mix64(uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

// 53 random bits as a number in [0, 1).
constexpr double toUnit(uint64_t bits) { return static_cast<double>(bits >> 11) * 0x1p-53; }

// A stream in which every number is computed from its position alone: frames come out the same in any order and from
// any thread. Streams of one seed are told apart by `purpose`.
class CounterRandom {
 public:
    constexpr CounterRandom(uint64_t seed, uint64_t purpose)
        : key_(mix64(mix64(seed + kGoldenGamma) ^ (purpose * kGoldenGamma))) {}

    constexpr uint64_t bits(uint64_t position) const { return mix64(key_ + position * kGoldenGamma); }
    constexpr double unit(uint64_t position) const { return toUnit(bits(position)); }

    // Standard normal by G. E. P. Box and M. E. Muller, Annals of Mathematical Statistics 29 (1958); takes the numbers
    // at 2 * position and 2 * position + 1.
    double normal(uint64_t position) const {
        const double radius = std::sqrt(-2.0 * std::log(1.0 - unit(2 * position)));
        return radius * std::cos(2.0 * std::numbers::pi * unit(2 * position + 1));
    }

 private:
    uint64_t key_;
};

}  // namespace qdlsim
