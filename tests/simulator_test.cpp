// SPDX-License-Identifier: MIT
// The simulator, driven through its table as the control library does it. Exposures of 1 ms count for their full time
// however soon they are stopped, so nothing here depends on the speed of the machine.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "qdlhw.h"

namespace {

constexpr double kShort = 0.001;
// Indices of info items.
constexpr uint32_t kScene = 0, kPhotonEnergy = 1, kFlux = 2, kNoise = 3, kSpread = 4, kSeed = 5, kFailReadout = 7,
                   kFailStart = 8, kStuckBusy = 9, kSerial = 12, kThresholds = 14, kDead = 16, kHot = 17;
using Frame = std::vector<int16_t>;
using Chosen = std::function<bool(size_t)>;

struct Moments {
    double mean, variance;
};

template <typename Values>
Moments moments(const Values& values, const Chosen& chosen) {
    double count = 0.0, sum = 0.0, squares = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
        if (chosen(i)) ++count, sum += values[i], squares += static_cast<double>(values[i]) * values[i];
    return {sum / count, squares / count - (sum / count) * (sum / count)};
}

struct Device {
    const MandatoryFuncs* table;
    uint32_t id;
    DevInfo* info = table->hwGetDevInfo(id);
    uint32_t pixels = info->chipCount * QDL_CHIP_PIXELS;
    uint32_t words = (info->chipCount * QDL_CHIP_STREAM_BYTES + 1) / 2;
    std::vector<uint8_t> config = std::vector<uint8_t>(pixels, QDL_PIXEL_DEFAULT);
    std::vector<uint8_t> dacs = std::vector<uint8_t>(info->chipCount * QDL_CHIP_DACS, 128);

    // Text of a failure, nothing after success.
    std::string text(int32_t result) const { return result == 0 ? "" : table->hwDevError(id); }
    void need(int32_t result) const { EXPECT_EQ(text(result), ""); }

    int32_t set(uint32_t index, auto value) const { return table->hwSetItem(id, index, &value, sizeof value); }
    int32_t setScene(const char* name) const {
        return table->hwSetItem(id, kScene, name, static_cast<uint32_t>(std::strlen(name)));
    }
    template <typename Value>
    std::vector<Value> get(uint32_t index) const {
        std::vector<Value> values(pixels);
        auto bytes = static_cast<uint32_t>(pixels * sizeof(Value));
        InfoItem item{.type = 0, .count = 0, .flags = 0, .name = nullptr, .data = values.data()};
        need(table->hwGetItem(id, index, &item, &bytes));
        return values;
    }
    void setVthL(uint8_t vthL) {
        for (uint32_t chip = 0; chip < info->chipCount; ++chip)
            dacs[chip * QDL_CHIP_DACS + 8] = vthL;
        need(table->hwSetDacs(id, dacs.data(), 0, 0, nullptr));
    }
    void sendConfig() const { need(table->hwSetPixels(id, config.data())); }

    std::vector<uint16_t> readStream() const {
        std::vector<uint16_t> stream(words);
        need(table->hwReadMatrix(id, stream.data(), words));
        return stream;
    }
    Frame decode(const std::vector<uint16_t>& stream) const {
        Frame frame(pixels);
        need(table->hwStreamToFrame(id, stream.data(), words, frame.data(), pixels));
        need(table->hwPseudoToCounts(id, frame.data(), pixels, 1));
        return frame;
    }
    Frame read() const { return decode(readStream()); }
    Frame expose() const {
        need(table->hwStartAcq(id, kShort) | table->hwStopAcq(id));
        return read();
    }
    bool busy() const {
        int16_t state = -1;
        need(table->hwBusyLine(id, &state));
        return state != 0;
    }
    // Even light on equal pixels: all that are neither dead nor hot have the same mean.
    Chosen makeEven(double counts) const {
        need(setScene("flat") | set(kFlux, counts / kShort) | set(kNoise, 0.0f) | set(kSpread, 0.0f));
        return [dead = get<uint8_t>(kDead), hot = get<uint8_t>(kHot)](size_t i) { return !dead[i] && !hot[i]; };
    }
};

// Each test has the module freshly loaded.
class SimulatorTest : public testing::Test {
 protected:
    ~SimulatorTest() override { dlclose(module); }
    const MandatoryFuncs* getTable() const {
        EXPECT_NE(module, nullptr) << dlerror();
        return reinterpret_cast<decltype(&getMandatoryFuncs)>(dlsym(module, "getMandatoryFuncs"))();
    }
    static uint32_t given(int32_t (*enumerate)(uint32_t*)) {
        uint32_t id = UINT32_MAX;
        EXPECT_EQ(enumerate(&id), 0);
        return id;
    }
    void* module = dlopen(QDL_SIM_PATH, RTLD_NOW | RTLD_LOCAL);
    const MandatoryFuncs* table = getTable();
    Device single{table, given(table->hwFirstDevice)};
    Device four{table, given(table->hwNextDevice)};
};

TEST_F(SimulatorTest, countersRunThroughAllStatesOfTheRegisterAndStop) {
    Frame counts(16384);
    std::iota(counts.begin(), counts.end(), int16_t{0});
    counts[0] = 1;
    single.need(table->hwPseudoToCounts(single.id, counts.data(), 16384, 1));
    auto state = static_cast<int>(std::find(counts.begin() + 1, counts.end(), 0) - counts.begin());
    int wrong = 0;
    for (int count = 0; count < 16383; ++count) {
        wrong += counts[state] != count;
        state = (state << 1 | ((state >> 13 ^ state >> 12 ^ state >> 11 ^ state >> 1) & 1)) & 0x3FFF;
    }
    EXPECT_EQ(wrong, 0);
    for (int16_t none : {int16_t{0}, int16_t{0x4001}})
        EXPECT_NE(table->hwPseudoToCounts(single.id, &none, 1, 1), 0);
}

TEST_F(SimulatorTest, streamIsTheCodesBitByBit) {
    for (const Device* device : {&single, &four}) {
        const uint32_t id = device->id, words = device->words, pixels = device->pixels;
        device->need(device->set(kFlux, 1e6) | table->hwStartAcq(id, kShort) | table->hwStopAcq(id));
        auto stream = device->readStream();
        Frame codes(pixels + 1, -7);
        device->need(table->hwStreamToFrame(id, stream.data(), words, codes.data(), pixels + 1));
        EXPECT_EQ(codes[pixels], -7) << "behind the pixels of the device";
        auto* bytes = reinterpret_cast<uint8_t*>(stream.data());
        for (uint32_t chip = 0; chip < device->info->chipCount; ++chip) {
            std::vector<uint8_t> plain(QDL_CHIP_STREAM_BYTES);
            for (uint32_t bit = 0; bit < QDL_CHIP_PIXELS * 14; ++bit)
                plain[bit / 8] |= (codes[chip * QDL_CHIP_PIXELS + bit / 14] >> bit % 14 & 1) << bit % 8;
            EXPECT_EQ(std::memcmp(plain.data(), bytes + chip * plain.size(), plain.size() - 1), 0) << "chip " << chip;
        }
        EXPECT_NE(table->hwStreamToFrame(id, stream.data(), words - 1, codes.data(), pixels), 0);
        EXPECT_NE(table->hwStreamToFrame(id, stream.data(), words, codes.data(), pixels - 1), 0);
        EXPECT_NE(table->hwReadMatrix(id, stream.data(), words - 1), 0);
        bytes[device->info->chipCount * QDL_CHIP_STREAM_BYTES - 1] ^= 1;
        EXPECT_EQ(device->text(table->hwStreamToFrame(id, stream.data(), words, codes.data(), pixels)),
                  "stream does not end in its closing byte");
        EXPECT_EQ(device->read(), Frame(pixels, 0)) << "a read-out clears the counters";
    }
}

TEST_F(SimulatorTest, sameSeedGivesTheSameFramesAlsoBesideOtherThreads) {
    const auto frames = [](const Device& device, uint32_t seed) {
        device.need(device.set(kSeed, seed));
        return std::vector<Frame>{device.expose(), device.expose(), device.expose()};
    };
    const auto expected = frames(single, 7), expectedFour = frames(four, 7);
    EXPECT_NE(expected[0], expected[1]);
    EXPECT_NE(frames(single, 8)[0], expected[0]);
    const auto stream = single.readStream();
    std::jthread other([&] { EXPECT_EQ(frames(four, 7), expectedFour); });
    std::jthread reader([&] { EXPECT_EQ(single.decode(stream), Frame(single.pixels, 0)); });
    EXPECT_EQ(frames(single, 7), expected);
}

// Variance over mean is 1 in a frame and also in the sum of all frames, where frames that depend on each other would
// show. With the threshold at the photon energy half of the photons count. Bounds of 5 standard errors.
TEST_F(SimulatorTest, countsFollowPoissonStatistics) {
    constexpr int kFrames = 40;
    single.need(single.set(kPhotonEnergy, 11.0));
    for (double mean : {0.1, 0.9, 20.3, 255.9, 700.0}) {
        const Chosen healthy = single.makeEven(2.0 * mean);
        std::vector<double> sums(single.pixels);
        double variance = 0.0;
        for (int i = 0; i < kFrames; ++i) {
            const Frame frame = single.expose();
            variance += moments(frame, healthy).variance / kFrames;
            std::transform(frame.begin(), frame.end(), sums.begin(), sums.begin(), std::plus<>());
        }
        const Moments sum = moments(sums, healthy);
        const double draws = 1.0 * single.pixels * kFrames;
        EXPECT_NEAR(sum.mean / kFrames, mean, 5.0 * std::sqrt(mean / draws));
        EXPECT_NEAR(variance / mean, 1.0, 5.0 * std::sqrt((2.0 + 1.0 / mean) / draws));
        EXPECT_NEAR(sum.variance / sum.mean, 1.0, 5.0 * std::sqrt(2.1 / single.pixels));
    }
}

TEST_F(SimulatorTest, thresholdScanFallsAtThePhotonEnergyAndRisesInTheNoise) {
    const Chosen healthy = single.makeEven(100.0);
    single.need(single.set(kNoise, 100.0f));
    const auto meanAt = [&](uint8_t vthL) { return single.setVthL(vthL), moments(single.expose(), healthy).mean; };
    EXPECT_EQ(meanAt(120), 0.0);             // 27 keV
    EXPECT_NEAR(meanAt(144), 46.0, 2.0);     // 22.2 keV, just above the photons
    EXPECT_NEAR(meanAt(200), 100.0, 0.2);    // 11 keV
    EXPECT_NEAR(meanAt(255), 1062.25, 0.7);  // 0; the noise crosses it 962.25 thousand times a second
}

TEST_F(SimulatorTest, adjustmentFromTheTruthMakesPixelsAlike) {
    const Chosen healthy = single.makeEven(1000.0);
    single.need(single.set(kSpread, 150.0f) | single.set(kNoise, 100.0f));
    single.setVthL(144);
    const auto raw = single.get<float>(kThresholds);
    const Moments made = moments(raw, healthy);
    EXPECT_NEAR(std::sqrt(made.variance), 150.0, 2.0);
    const double before = moments(single.expose(), healthy).variance;
    single.setVthL(138);  // makes up for the 350 electrons that the adjustment takes
    single.expose();
    for (uint32_t i = 0; i < single.pixels; ++i)
        single.config[i] = 0xF8 | std::clamp<int>(7 - std::lround(3.5 + (raw[i] - made.mean) / 100.0), 0, 7);
    single.sendConfig();
    const Moments adjusted = moments(single.get<float>(kThresholds), healthy);
    EXPECT_LT(std::sqrt(adjusted.variance), 50.0);
    EXPECT_NEAR(adjusted.mean, made.mean, 30.0);
    const Moments after = moments(single.expose(), healthy);
    EXPECT_LT(after.variance, 0.3 * before);
    EXPECT_NEAR(after.mean, 500.0, 100.0);
}

TEST_F(SimulatorTest, maskedAndDeadPixelsAreStillAndHotOnesAreLoud) {
    single.makeEven(50.0);
    const auto dead = single.get<uint8_t>(kDead), hot = single.get<uint8_t>(kHot);
    EXPECT_GT(std::count(dead.begin(), dead.end(), 1), 0);
    for (uint32_t i = 0; i < single.pixels; i += 3)
        single.config[i] &= ~QDL_PIXEL_MASK_BIT;
    single.sendConfig();
    const Frame frame = single.expose();
    for (uint32_t i = 0; i < single.pixels; ++i)
        ASSERT_EQ(frame[i] == 0, dead[i] || i % 3 == 0) << "pixel " << i;
    EXPECT_NEAR(moments(frame, [&](size_t i) { return hot[i] && i % 3 != 0; }).mean, 70.0, 20.0);
}

TEST_F(SimulatorTest, testPulsesCountExactlyAboveTheThreshold) {
    const auto dead = four.get<uint8_t>(kDead);
    const auto threshold = four.get<float>(kThresholds);
    for (uint32_t i = 0; i < four.pixels; ++i)
        four.config[i] &= i % 2 ? ~QDL_PIXEL_TEST_BIT : i % 4 ? ~0u : ~QDL_PIXEL_MASK_BIT;
    four.sendConfig();
    for (double keV : {0.5, 11.0, 40.0})
        for (uint16_t pulses : {37, 16382, 65535}) {
            four.need(table->hwTestPulses(four.id, keV, 0.0, 0, pulses));
            const Frame frame = four.read();
            uint32_t wrong = 0;
            for (uint32_t i = 0; i < four.pixels; ++i) {
                const bool counts = i % 2 && !dead[i] && keV * 1000.0 / 3.62 > threshold[i];
                wrong += frame[i] != (counts ? std::min<int>(pulses, 16382) : 0);
            }
            EXPECT_EQ(wrong, 0u) << keV << " keV, " << pulses << " pulses";
        }
    four.need(table->hwTestPulses(four.id, 40.0, 0.0, 0, 5) | table->hwResetMatrix(four.id));
    EXPECT_EQ(four.read(), Frame(four.pixels, 0));
}

TEST_F(SimulatorTest, busyLineFollowsTheTimer) {
    for (const auto& [hwTimer, shutter] : {std::pair{1u, 0u}, {0u, 1u}, {0u, 0u}}) {
        single.info->hwTimerUsed = hwTimer;
        single.info->extShutter = shutter;
        EXPECT_FALSE(single.busy());
        single.need(table->hwStartAcq(single.id, 0.0));
        EXPECT_EQ(single.busy(), !hwTimer && !shutter) << "over at once, but if the host keeps the time";
        single.need(table->hwStopAcq(single.id) | table->hwStartAcq(single.id, 1e5));
        EXPECT_TRUE(single.busy());
        EXPECT_EQ(single.text(table->hwStartAcq(single.id, 1.0)), "an exposure is running");
        single.need(table->hwStopAcq(single.id));
        EXPECT_FALSE(single.busy());
        EXPECT_LT(single.read()[0], 16382) << "stopped early, so it counts for the time that went by";
    }
}

TEST_F(SimulatorTest, faultsComeOnRequest) {
    single.need(single.set(kFailStart, 1u) | single.set(kStuckBusy, 1u) | single.set(kFailReadout, 0.25));
    EXPECT_EQ(single.text(table->hwStartAcq(single.id, 1.0)), "start fails on request (item failStart)");
    EXPECT_TRUE(single.busy());
    std::vector<uint16_t> stream(single.words);
    int failures = 0;
    for (int i = 0; i < 200; ++i)
        failures += table->hwReadMatrix(single.id, stream.data(), single.words) != 0;
    EXPECT_NEAR(failures, 50, 25);
}

TEST_F(SimulatorTest, itemsTellTheirSizeAndRefuseWhatDoesNotFit) {
    constexpr uint32_t kElementBytes[] = {4, 1, 1, 1, 2, 2, 4, 4, 4, 8, 1};
    const auto items = static_cast<uint32_t>(table->hwGetItemCount());
    std::vector<uint8_t> area(four.pixels * sizeof(float));
    for (uint32_t i = 0; i <= items; ++i) {
        InfoItem item{.type = 0, .count = 0, .flags = 0, .name = "none", .data = area.data()};
        uint32_t bytes = 0;
        EXPECT_NE(table->hwGetItem(four.id, i, &item, &bytes), 0);
        if (i < items) --bytes;
        EXPECT_NE(table->hwGetItem(four.id, i, &item, &bytes), 0) << "one byte too few";
        EXPECT_EQ(bytes, i < items ? static_cast<uint32_t>(item.count) * kElementBytes[item.type] : 0);
        EXPECT_EQ(table->hwGetItem(four.id, i, &item, &bytes) == 0, i < items) << item.name;
        EXPECT_NE(table->hwSetItem(four.id, i, area.data(), bytes + 1), 0) << item.name;
        if (item.flags & QDL_ITEM_STORED) four.need(table->hwSetItem(four.id, i, area.data(), bytes));
    }
    for (double flux : {-1.0, std::nan(""), 2e9})
        EXPECT_EQ(four.text(four.set(kFlux, flux)), "value is out of range");
    EXPECT_EQ(four.text(four.set(kSerial, uint64_t{1})), "info item is read only");
    EXPECT_EQ(four.text(four.setScene("moon")), "scene must be flat, spot, star or phantom");
    four.need(four.setScene("spot\n"));
    EXPECT_STREQ(four.get<char>(kScene).data(), "spot");
    EXPECT_EQ(four.get<double>(kFlux).at(0), 1000.0);
}

TEST_F(SimulatorTest, analogValuesFollowTheSelectedDac) {
    const uint32_t codes[] = {11, 8, 3, 11}, wrong[] = {11, 8, 77, 11};
    double volts[2] = {};
    EXPECT_EQ(four.text(table->hwReadAnalog(four.id, 0, volts)), "no DAC was selected for reading");
    EXPECT_EQ(four.text(table->hwSetDacs(four.id, four.dacs.data(), 255, 0, wrong)), "sense code selects no DAC");
    for (uint32_t chip = 0; chip < 4; ++chip) {
        for (uint32_t end : {0, 1}) {
            four.setVthL(static_cast<uint8_t>(255 * end));
            four.need(table->hwSetDacs(four.id, four.dacs.data(), 255, 0, codes));
            four.need(table->hwReadAnalog(four.id, chip, &volts[end]));
        }
        EXPECT_NEAR(volts[1] - volts[0], codes[chip] == 11 ? 1.2 : 0.0, 1e-9) << "chip " << chip;
    }
}

// The picture of four chips, two by two pixels summed, is the picture that one chip has of the same scene.
TEST_F(SimulatorTest, chipsLieSideBySide) {
    for (const Device* device : {&single, &four})
        device->need(device->setScene("phantom") | device->set(kFlux, 1e5));
    const Frame picture = single.expose(), tiles = four.expose();
    constexpr uint32_t kSide = QDL_CHIP_SIDE;
    double difference = 0.0, mirrored = 0.0;
    for (uint32_t y = 0; y < 2 * kSide; ++y)
        for (uint32_t x = 0; x < 2 * kSide; ++x) {
            const int tile = tiles[(y / kSide * 2 + x / kSide) * QDL_CHIP_PIXELS + y % kSide * kSide + x % kSide];
            difference += std::abs(tile - picture[y / 2 * kSide + x / 2]);
            mirrored += std::abs(tile - picture[y / 2 * kSide + kSide - 1 - x / 2]);
        }
    EXPECT_LT(difference, 0.6 * mirrored);
    EXPECT_LT(difference / four.pixels, 20.0) << "mean difference, of 100 counts";
}
}  // namespace
