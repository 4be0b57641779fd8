// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "poisson.h"
#include "qdlhw.h"
#include "sensor.h"

namespace qdlsim {

// Text of a failure, which lives as long as the module; null is success.
using Failure = const char*;

// One simulated detector. Calls come one at a time; only streamToFrame, pseudoToCounts and the two functions of the
// last failure may run beside another call, so they touch nothing that changes but that one atomic pointer.
class SimDevice {
 public:
    SimDevice(uint32_t serial, uint32_t chips, std::string_view name, Scene scene);

    DevInfo* info() { return &info_; }

    Failure start(double seconds);
    Failure stop();
    Failure busyLine(int16_t& state) const;
    Failure testPulses(double keV, double period, uint16_t pulses);
    Failure setDacs(const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes);
    Failure readAnalog(uint32_t chip, double& volts) const;
    Failure setPixels(const uint8_t* pixels);
    Failure resetMatrix();
    Failure readMatrix(uint16_t* buffer, uint32_t words);
    Failure prepare();
    Failure streamToFrame(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const;
    Failure pseudoToCounts(int16_t* frame, uint32_t pixels) const;

    // Keeps the text of a failure; gives the result code of the call.
    int32_t result(Failure failure);
    const char* lastFailure() const { return lastFailure_.load(); }

    uint32_t serial() const { return serial_; }
    uint32_t chips() const { return chips_; }
    uint32_t pixels() const { return chips_ * QDL_CHIP_PIXELS; }
    const Sensor& sensor() const { return sensor_; }
    float threshold(uint32_t pixel) const;
    const Settings& settings() const { return settings_; }
    // For a change of settings. What follows from them is computed anew before the next exposure.
    Settings& changeSettings();
    // Begins the sequence of frames that belongs to the seed.
    void restartRandom();
    uint32_t exposures() const { return exposures_; }

 private:
    using Clock = std::chrono::steady_clock;

    uint32_t streamBytes() const { return chips_ * QDL_CHIP_STREAM_BYTES; }
    uint32_t streamWords() const { return (streamBytes() + 1) / 2; }
    double elapsed() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }
    void updatePlans(double seconds);
    void clearCounters();

    const uint32_t serial_;
    const uint32_t chips_;
    DevInfo info_{};
    const Sensor sensor_;
    Settings settings_;
    std::atomic<const char*> lastFailure_{"no failure"};

    std::vector<uint8_t> dacs_;
    std::vector<uint32_t> senseCodes_;  // one for each chip, 0: none selected yet
    std::vector<uint8_t> pixelConfig_;
    std::vector<uint16_t> counters_;  // states of the shift registers

    // From scene to counts, each computed from the one before it.
    std::vector<float> light_;
    std::vector<float> rates_;
    std::vector<PoissonPlan> plans_;
    std::optional<Scene> litScene_;  // the scene that light_ shows
    bool ratesStale_ = true;
    double planSeconds_ = -1.0;

    bool exposing_ = false;
    bool selfTimed_ = false;  // the exposure ends by itself, by the timer of the hardware or by the shutter
    double seconds_ = 0.0;
    Clock::time_point begin_;
    uint32_t exposures_ = 0;  // since the seed was set
    uint32_t readouts_ = 0;
};

}  // namespace qdlsim
