// SPDX-License-Identifier: MIT
#include "simdevice.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

#include "analog.h"
#include "counters.h"

namespace qdlsim {
namespace {

constexpr uint32_t kVthL = 8;
constexpr uint8_t kSensing = 255;
constexpr uint8_t kDefaultDacs[QDL_CHIP_DACS] = {0, 0, 128, 240, 110, 210, 255, 0, 200, 255, 128, 128, 128};

// Purposes of random streams, together with the serial number.
constexpr uint64_t kForFrames = 1ull << 32;
constexpr uint64_t kForReadouts = 2ull << 32;
// Room for the pixels of one exposure in the positions of the stream of frames.
constexpr int kPixelBits = 20;

// An exposure that is stopped when its time is over, or so near its end that no abort can be meant, counts for exactly
// the time asked for. The jitter of a host's clock would make every frame of a seed a different one.
double countedSeconds(double elapsed, double asked) { return elapsed >= 0.98 * asked - 0.001 ? asked : elapsed; }

}  // namespace

SimDevice::SimDevice(uint32_t serial, uint32_t chips, std::string_view name, Scene scene)
    : serial_(serial),
      chips_(chips),
      sensor_(serial, chips),
      senseCodes_(chips),
      pixelConfig_(pixels()),
      counters_(pixels()),
      light_(pixels()),
      rates_(pixels()),
      plans_(pixels()) {
    info_.polarity = 1;
    info_.chipCount = chips;
    info_.infoValue = serial;
    info_.hwName = "Simulator";
    name.copy(info_.devName, QDL_NAME_SIZE - 1);
    settings_.scene = scene;
    for (uint32_t chip = 0; chip < chips; ++chip)
        dacs_.insert(dacs_.end(), std::begin(kDefaultDacs), std::end(kDefaultDacs));
    std::fill(pixelConfig_.begin(), pixelConfig_.end(), QDL_PIXEL_DEFAULT);
    clearCounters();
}

int32_t SimDevice::result(Failure failure) {
    if (!failure) return 0;
    lastFailure_.store(failure);
    return -1;
}

Settings& SimDevice::changeSettings() {
    ratesStale_ = true;
    return settings_;
}

void SimDevice::restartRandom() { exposures_ = readouts_ = 0; }

float SimDevice::threshold(uint32_t pixel) const {
    const uint8_t vthL = dacs_[pixel / QDL_CHIP_PIXELS * QDL_CHIP_DACS + kVthL];
    return sensor_.threshold(pixel, settings_, vthL, pixelConfig_[pixel]);
}

void SimDevice::clearCounters() { std::fill(counters_.begin(), counters_.end(), counterCode(0)); }

// Frame after frame nothing changes, and then nothing is computed.
void SimDevice::updatePlans(double seconds) {
    if (litScene_ != settings_.scene) renderScene(settings_.scene, chips_, light_.data());
    litScene_ = settings_.scene;
    if (ratesStale_)
        for (uint32_t pixel = 0; pixel < pixels(); ++pixel)
            rates_[pixel] = sensor_.rate(pixel, settings_, light_[pixel], threshold(pixel));
    if (ratesStale_ || seconds != planSeconds_)
        for (uint32_t pixel = 0; pixel < pixels(); ++pixel)
            plans_[pixel] = planPoisson(rates_[pixel] * seconds);
    ratesStale_ = false;
    planSeconds_ = seconds;
}

Failure SimDevice::start(double seconds) {
    if (exposing_) return "an exposure is running";
    if (!std::isfinite(seconds) || seconds < 0.0) return "exposure time must be 0 or more seconds";
    if (settings_.failStart) return "start fails on request (item failStart)";
    updatePlans(seconds);
    selfTimed_ = info_.hwTimerUsed || info_.extShutter;
    seconds_ = seconds;
    exposing_ = true;
    begin_ = Clock::now();
    return nullptr;
}

Failure SimDevice::stop() {
    if (!exposing_) return "no exposure is running";
    exposing_ = false;
    updatePlans(countedSeconds(elapsed(), seconds_));
    const CounterRandom random(settings_.seed, kForFrames + serial_);
    drawPoisson(plans_, random, static_cast<uint64_t>(exposures_++) << kPixelBits, kMaxCount, counters_.data());
    for (uint32_t pixel = 0; pixel < pixels(); ++pixel)
        counters_[pixel] = counterCode(pixelConfig_[pixel] & QDL_PIXEL_MASK_BIT ? counters_[pixel] : 0);
    return nullptr;
}

Failure SimDevice::busyLine(int16_t& state) const {
    const bool busy = exposing_ && (!selfTimed_ || elapsed() < seconds_);
    state = busy || settings_.stuckBusy;
    return nullptr;
}

// Pulses bring their charge without noise, so each of them counts or none does. The period only has to make sense: no
// time passes.
Failure SimDevice::testPulses(double keV, double period, uint16_t pulses) {
    if (exposing_) return "an exposure is running";
    if (!std::isfinite(keV) || !std::isfinite(period) || period < 0.0)
        return "test pulses need a height in keV and a period of 0 or more seconds";
    const uint16_t code = counterCode(std::min<uint32_t>(pulses, kMaxCount));
    const double charge = chargeOf(keV);
    for (uint32_t pixel = 0; pixel < pixels(); ++pixel) {
        const bool open = (pixelConfig_[pixel] & (QDL_PIXEL_MASK_BIT | QDL_PIXEL_TEST_BIT)) == QDL_PIXEL_MASK_BIT;
        const bool counts = open && !sensor_.dead(pixel) && charge > threshold(pixel);
        counters_[pixel] = counts ? code : counterCode(0);
    }
    return nullptr;
}

Failure SimDevice::setDacs(const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes) {
    const bool sensing = first == kSensing && second == 0 && codes;
    if (!sensing && (first != 0 || second != 0)) return "unknown way of sending DACs";
    for (uint32_t chip = 0; sensing && chip < chips_; ++chip)
        if (!analogVolts(chip, codes[chip], dacs)) return "sense code selects no DAC";
    if (sensing) senseCodes_.assign(codes, codes + chips_);
    for (uint32_t chip = 0; chip < chips_; ++chip)
        ratesStale_ |= dacs[chip * QDL_CHIP_DACS + kVthL] != dacs_[chip * QDL_CHIP_DACS + kVthL];
    dacs_.assign(dacs, dacs + chips_ * QDL_CHIP_DACS);
    return nullptr;
}

Failure SimDevice::readAnalog(uint32_t chip, double& volts) const {
    if (chip >= chips_) return "no such chip";
    const auto value = analogVolts(chip, senseCodes_[chip], &dacs_[chip * QDL_CHIP_DACS]);
    if (!value) return "no DAC was selected for reading";
    volts = *value;
    return nullptr;
}

// A moving mask sends the matrix again and again; only a changed threshold makes other rates.
Failure SimDevice::setPixels(const uint8_t* pixels) {
    uint8_t changed = 0;
    for (size_t pixel = 0; pixel < pixelConfig_.size(); ++pixel)
        changed |= pixels[pixel] ^ pixelConfig_[pixel];
    if (changed & QDL_PIXEL_ADJUST_LOW) ratesStale_ = true;
    std::memcpy(pixelConfig_.data(), pixels, pixelConfig_.size());
    return nullptr;
}

Failure SimDevice::resetMatrix() {
    clearCounters();
    return nullptr;
}

// Reading shifts the counters out, so they are empty afterwards, also when the stream was lost on its way.
Failure SimDevice::readMatrix(uint16_t* buffer, uint32_t words) {
    if (exposing_) return "an exposure is running";
    if (words < streamWords()) return "stream buffer is too small";
    if (settings_.readoutTime > 0.0) std::this_thread::sleep_for(std::chrono::duration<double>(settings_.readoutTime));
    const CounterRandom random(settings_.seed, kForReadouts + serial_);
    const bool lost = random.unit(readouts_++) < settings_.failReadoutRate;
    auto* stream = reinterpret_cast<uint8_t*>(buffer);
    for (uint32_t chip = 0; !lost && chip < chips_; ++chip)
        shiftOut(&counters_[chip * QDL_CHIP_PIXELS], stream + chip * QDL_CHIP_STREAM_BYTES);
    if (!lost && streamBytes() % 2) stream[streamBytes()] = 0;
    if (!lost) return nullptr;
    clearCounters();
    return "read-out fails on request (item failReadoutRate)";
}

Failure SimDevice::prepare() {
    exposing_ = false;
    clearCounters();
    return nullptr;
}

Failure SimDevice::streamToFrame(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const {
    if (words < streamWords()) return "stream is too short";
    if (pixels < this->pixels()) return "frame is too small for the pixels of the device";
    const auto* bytes = reinterpret_cast<const uint8_t*>(stream);
    auto* codes = reinterpret_cast<uint16_t*>(frame);
    for (uint32_t chip = 0; chip < chips_; ++chip)
        if (!unpackStream(bytes + chip * QDL_CHIP_STREAM_BYTES, codes + chip * QDL_CHIP_PIXELS))
            return "stream does not end in its closing byte";
    return nullptr;
}

Failure SimDevice::pseudoToCounts(int16_t* frame, uint32_t pixels) const {
    return decodeCounts(frame, std::min(pixels, this->pixels())) ? nullptr : "frame holds values that no counter has";
}

}  // namespace qdlsim
