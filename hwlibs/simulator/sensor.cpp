// SPDX-License-Identifier: MIT
#include "sensor.h"

#include <cmath>
#include <numbers>

#include "qdltypes.h"

namespace qdlsim {
namespace {

// Silicon at room temperature: G. F. Knoll, "Radiation Detection and Measurement", 4th edition, chapter 11.
constexpr double kElectronVoltsPerPair = 3.62;
constexpr double kFano = 0.115;

constexpr double kThresholdStep = 0.2;  // keV for a step of VthL
constexpr float kAdjustStep = 100.0f;   // electrons for a step of adjustLow
constexpr double kNoiseFactorSpread = 0.05;
constexpr double kDeadShare = 2e-4;
constexpr double kHotShare = 1e-4;
constexpr double kHotRate = 20000.0;  // counts a second
constexpr double kPeakingTime = 150e-9;

// Part of the photons whose charge exceeds the threshold. The charge spreads normally: electronic noise and, by Fano,
// kFano times the number of pairs as the variance of pair creation. Charge does not leave the pixel that it came to.
double countedShare(double charge, double threshold, double noise) {
    const double deviation = std::sqrt(noise * noise + kFano * charge);
    return 0.5 * std::erfc((threshold - charge) / (std::numbers::sqrt2 * deviation));
}

// Rate at which noise alone crosses the threshold upwards: S. O. Rice, "Mathematical Analysis of Random Noise", Bell
// System Technical Journal 24 (1945). White noise of bandwidth B crosses its mean B / sqrt(3) times a second, and
// B = 1 / (4 * peaking time) for a simple shaper: H. Spieler, "Semiconductor Detector Systems", Oxford (2005).
double noiseRate(double threshold, double noise) {
    constexpr double kCrossings = 1.0 / (4.0 * std::numbers::sqrt3 * kPeakingTime);
    if (noise <= 0.0) return 0.0;
    const double distance = threshold / noise;
    return kCrossings * std::exp(-0.5 * distance * distance);
}

}  // namespace

double chargeOf(double keV) { return keV * 1000.0 / kElectronVoltsPerPair; }

double commonThreshold(uint8_t vthL) { return chargeOf((255 - vthL) * kThresholdStep); }

Sensor::Sensor(uint32_t serial, uint32_t chips)
    : deviations_(chips * QDL_CHIP_PIXELS), noiseFactors_(deviations_.size()), flags_(deviations_.size()) {
    const CounterRandom forThreshold(serial, 1), forNoise(serial, 2), forFlags(serial, 3);
    for (uint32_t pixel = 0; pixel < deviations_.size(); ++pixel) {
        deviations_[pixel] = static_cast<float>(forThreshold.normal(pixel));
        noiseFactors_[pixel] = static_cast<float>(std::exp(kNoiseFactorSpread * forNoise.normal(pixel)));
        const double chance = forFlags.unit(pixel);
        flags_[pixel] = chance < kDeadShare ? kDead : chance < kDeadShare + kHotShare ? kHot : 0;
    }
}

float Sensor::threshold(uint32_t pixel, const Settings& settings, uint8_t vthL, uint8_t config) const {
    const auto steps = static_cast<float>(QDL_PIXEL_ADJUST_LOW - (config & QDL_PIXEL_ADJUST_LOW));
    return static_cast<float>(commonThreshold(vthL)) + settings.thresholdSpread * deviations_[pixel] -
           kAdjustStep * steps;
}

float Sensor::rate(uint32_t pixel, const Settings& settings, float light, float threshold) const {
    if (dead(pixel)) return 0.0f;
    const double pixelNoise = noise(pixel, settings);
    const double photons = light * settings.flux;
    double rate = photons * countedShare(chargeOf(settings.photonEnergy), threshold, pixelNoise);
    rate += noiseRate(threshold, pixelNoise);
    if (hot(pixel)) rate += kHotRate;
    return static_cast<float>(rate);
}

}  // namespace qdlsim
