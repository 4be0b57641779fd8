// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "random.h"
#include "scene.h"

namespace qdlsim {

// What the host can change through info items.
struct Settings {
    Scene scene = Scene::flat;
    double photonEnergy = 22.163;    // keV; K-alpha line of silver
    double flux = 1000.0;            // photons a second that a fully lit pixel absorbs
    float noise = 100.0f;            // electrons RMS, mean of the pixels
    float thresholdSpread = 150.0f;  // electrons RMS, from pixel to pixel
    uint32_t seed = 1;
    double readoutTime = 0.0;  // seconds
    double failReadoutRate = 0.0;
    bool failStart = false;
    bool stuckBusy = false;
};

// Charge of a photon or pulse of this energy in the sensor, electrons.
double chargeOf(double keV);

// Threshold that DAC VthL sets for all pixels of a chip, electrons. It comes down from above the baseline: 255 is the
// baseline itself, every step below adds 0.2 keV; the default 200 is 11 keV, half of the default photon energy.
double commonThreshold(uint8_t vthL);

// The pixels of a device as they were made: how far each threshold and noise lies off, which pixels are dead or hot.
// This belongs to the device (its serial number) and does not change with the seed of the frames.
class Sensor {
 public:
    Sensor(uint32_t serial, uint32_t chips);

    // Charge above which a pixel counts, electrons. Each step of adjustLow below 7 lowers it by 100 electrons; so with
    // 7 everywhere the spread is as made, and 7 - round(3.5 + deviation / 100) brings nearly all pixels together, 350
    // electrons below the common threshold. The upper threshold (VthH, adjustHigh) is not simulated.
    float threshold(uint32_t pixel, const Settings& settings, uint8_t vthL, uint8_t config) const;
    float noise(uint32_t pixel, const Settings& settings) const { return settings.noise * noiseFactors_[pixel]; }
    bool dead(uint32_t pixel) const { return flags_[pixel] & kDead; }
    bool hot(uint32_t pixel) const { return flags_[pixel] & kHot; }

    // Counts a second of an unmasked pixel at this threshold, with `light` of 0 to 1.
    float rate(uint32_t pixel, const Settings& settings, float light, float threshold) const;

 private:
    static constexpr uint8_t kDead = 1, kHot = 2;
    std::vector<float> deviations_;  // of the threshold, in RMS spreads
    std::vector<float> noiseFactors_;
    std::vector<uint8_t> flags_;
};

}  // namespace qdlsim
