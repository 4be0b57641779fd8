// SPDX-License-Identifier: MIT
// Runs of the four kinds: what they ask of the hardware and in which order, what they refuse, and what they leave.
#include <filesystem>
#include <limits>

#include "runkinds.h"

namespace fs = std::filesystem;
using testing::IsEmpty;

namespace {

constexpr const char* aborted = "Acquisition aborted.";
constexpr const char* readoutLost = "Error occurred while reading-out matrix: position 18 failed";
constexpr uint32_t onePixels = QDL_CHIP_PIXELS;

class AcquisitionTest : public QdlTest {
 public:
    void space(int32_t spacing) { EXPECT_QDL(0, "", qdl.setAcqSpacing(0, spacing)); }
    void setMatrix(const std::vector<uint8_t>& matrix) {
        const auto chips = static_cast<int32_t>(matrix.size() / QDL_CHIP_PIXELS);
        EXPECT_QDL(0, "", qdl.setAllChipsPixelsCfg(0, matrix.data(), chips));
    }
    int32_t readFrame(uint32_t index) {
        std::vector<int16_t> pixels(onePixels);
        return qdl.getFrame16(0, pixels.data(), onePixels, index, msg);
    }
    double frameSeconds() {
        double seconds = -1;
        return qdl.getFrameInfo(0, FRAME_INFO_TIME, 0, &seconds, 8, msg) ? -1 : seconds;
    }
};

// On 1, 2 and 4 chips, so that spaced results are assembled of all chips.
TEST_F(AcquisitionTest, CallsAndResultsOfAllKinds) {
    for (const uint32_t chips : {1u, 2u, 4u}) {
        hwLibrary().devices.clear();
        ScriptedHw& hw = startDevice(chips);
        EXPECT_EQ(acqInfo(*this), noAcq);
        for (const RunKind& kind : runKinds)
            for (const auto& test : {std::pair{1, 3}, {2, 2}, {3, 1}, {1, 0}, {2, 0}}) {
                const int32_t spacing = test.first, count = test.second;
                SCOPED_TRACE(kind.name + (" of " + std::to_string(count)) + ", spacing " + std::to_string(spacing));
                space(spacing);
                setMatrix(userMatrix(chips));
                restart(*this, hw);
                EXPECT_QDL(0, "", kind.run(*this, count));
                EXPECT_CALLS(hw.log(), kind.calls(spacing, count));
                EXPECT_TRUE(kind.pulses || currentMatrix(*this, chips) == userMatrix(chips));
                const int32_t taken = kind.frames(count);
                const bool sum = kind.type == ACQ_INTEGRAL;
                EXPECT_EQ(framesDone(), std::vector<int32_t>(static_cast<size_t>(taken), 0));
                EXPECT_EQ(acqInfo(*this), (AcqInfo{0, taken ? taken - 1 : acqInfo(*this).index, taken, kind.type}));
                for (int32_t i = 0; i < (sum ? 1 : taken); ++i)
                    EXPECT_FRAME(kind.result(hw, spacing, count, i), frame32(*this, i));
                EXPECT_EQ(frameSeconds(), !taken ? -1 : kind.pulses ? 1.0 : sum ? taken * 0.5 : 0.5);
            }
        EXPECT_QDL(0, "", integral.run(*this, -1));
        EXPECT_QDL(0, "", frameFiles.run(*this, -1));
        qdl.exitQdlCtrl();
    }
}

TEST_F(AcquisitionTest, ChoosesTimerAndWait) {
    ScriptedHw& hw = startDevice();
    const struct {
        uint32_t mode, extShutter, hwTimerUsed;
        double seconds;
    } cases[] = {{2, 0, 1, 59.999}, {2, 0, 0, 60.0}, {2, 1, 0, 60.0},  {0, 0, 1, 1e6}, {1, 0, 0, 0.0},
                 {1, 0, 0, -2.0},   {1, 5, 0, 1e6},  {1, 0, 0, 0.021}, {7, 0, 0, 0.0}, {~0u, 0, 0, 0.0}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.seconds);
        restart(*this, hw);
        hw.devices[0].busyLine = {1, -1, 0};
        EXPECT_QDL(0, "", qdl.setHwTimer(0, test.mode));
        EXPECT_QDL(0, "", qdl.setExternalShutter(0, test.extShutter));
        const bool waitsLong = test.hwTimerUsed + test.extShutter == 0 && test.seconds >= 60;
        if (waitsLong) hw.setHook(8, [this](Call&) { qdl.abortOperation(0); });
        EXPECT_EQ(qdl.performFastAcq(0, 1, test.seconds, 0, nullptr), waitsLong ? -29 : 0);
        EXPECT_CALLS(hw.log(), test.hwTimerUsed + test.extShutter ? "17 8 24 24 24 9 18" : "17 8 9 18");
        EXPECT_EQ(hw.log({8})[0].hwTimerUsed, test.hwTimerUsed);
        EXPECT_EQ(hw.log({8})[0].seconds, test.seconds);
        EXPECT_EQ(frameSeconds(), test.seconds);
    }
}

TEST_F(AcquisitionTest, InitializationAndFileNamesAreNeeded) {
    ScriptedHw& hw = hwLibrary();
    hw.addDevice();
    qdl.initQdlCtrl();
    hw.clearLog();
    for (const RunKind& kind : runKinds)
        EXPECT_QDL(-21, "Cannot perform command, Quandel was not initialized.", kind.run(*this, 1));
    EXPECT_THAT(hw.log(), IsEmpty());
    EXPECT_EQ(acqInfo(*this), noAcq);
    qdl.initQdlDevice(0, nullptr);
    for (const char* name : {"", static_cast<const char*>(nullptr)}) {
        restart(*this, hw);
        EXPECT_QDL(0, "", qdl.performFrameAcq(0, 2, 0.5, 0, name));
        EXPECT_QDL(-2, "Filename must be supplied.", qdl.performFrameAcq(0, 9, 0.5, 7, name));
        EXPECT_EQ(acqInfo(*this), (AcqInfo{0, 1, 2, ACQ_FRAMES}));
        EXPECT_FRAME(expectedFrame(hw, 1), frame(1));

        EXPECT_QDL(0, "", qdl.performFastAcq(0, 1, 0.5, 0, name));
        EXPECT_FRAME(expectedFrame(hw, 2), frame(0));
        EXPECT_QDL(-2, "Filename has to be supplied.", qdl.performFastAcq(0, 9, 0.5, -1, name));
        EXPECT_EQ(acqInfo(*this), noAcq);
        EXPECT_QDL(-15, "No acquisition finished or in progress, cannot get frame.", readFrame(0));
    }
}

TEST_F(AcquisitionTest, CountsThatNoMemoryHolds) {
    ScriptedHw& hw = startDevice();
    const int32_t most = std::numeric_limits<int32_t>::max(), least = std::numeric_limits<int32_t>::min();
    for (const RunKind& kind : {frames, fast})
        for (const int32_t count : {-1, kind.spaced ? 65538 : 74899, 74900, most, least}) {
            const int64_t frameBytes = kind.spaced ? 131072 : 114690;
            EXPECT_QDL(0, "", kind.run(*this, 2));
            hw.clearLog();
            EXPECT_QDL(-3, "Allocation of " + std::to_string(frameBytes * count) + " bytes failed.",
                       kind.run(*this, count));
            EXPECT_THAT(hw.log(), IsEmpty());
            EXPECT_EQ(acqInfo(*this), noAcq);
            EXPECT_EQ(readFrame(0), -15);
        }
}

TEST_F(AcquisitionTest, BuffersFollowTheRuns) {
    ScriptedHw& hw = startDevice();
    for (const auto release : {qdl.freeBuffers, qdl.freeFrameBuff, qdl.freeStreamBuff, qdl.freeIntegralBuff})
        EXPECT_QDL(0, "", release(0));  // also of nothing
    const auto notReady = [](int index, const char* what, int size, int filled) {
        return "Frame " + std::to_string(index) + " is not ready, " + what + " buffer size: " + std::to_string(size) +
               " frames, filled: " + std::to_string(filled) + " frames.";
    };
    onFrame = [&](int32_t) {
        const auto done = static_cast<int>(framesDone().size());
        EXPECT_EQ(readFrame(static_cast<uint32_t>(done)), -14);
        EXPECT_EQ(std::exchange(msg[0], '\0') + std::string(msg + 1), notReady(done, "frame", 3, done));
    };
    EXPECT_QDL(0, "", frames.run(*this, 3));
    onFrame = nullptr;
    EXPECT_QDL(0, "", qdl.freeFrameBuff(0));
    EXPECT_QDL(-14, notReady(0, "frame", 0, 0), readFrame(0));
    EXPECT_EQ(acqInfo(*this), (AcqInfo{0, 2, 3, ACQ_FRAMES}));
    EXPECT_QDL(0, "", fast.run(*this, 2));
    EXPECT_QDL(-14, notReady(2, "stream", 2, 2), readFrame(2));
    EXPECT_QDL(0, "", qdl.freeStreamBuff(0));
    EXPECT_QDL(-14, notReady(0, "stream", 0, 0), readFrame(0));

    space(2);
    for (const RunKind& kind : {frames, integral}) {
        restart(*this, hw);
        EXPECT_QDL(0, "", kind.run(*this, 1));
        EXPECT_FRAME(kind.result(hw, 2, 1, 0), frame32(*this, 0));
        EXPECT_QDL(0, "", qdl.freeBuffers(0));
    }
    EXPECT_QDL(-14, "Integral buffer is empty, cannot get frame.", readFrame(0));
}

TEST_F(AcquisitionTest, RunsToFilesNumberTheirNames) {
    ScriptedHw& hw = startDevice();
    EXPECT_QDL(0, "", frameFiles.run(*this, 2, "run.1.txt"));
    EXPECT_QDL(0, "", fastFiles.run(*this, 11, "raw"));
    EXPECT_TRUE(fs::exists(path("run.10.txt")) && fs::exists(path("run.11.txt")));
    EXPECT_EQ(fs::file_size(path("raw10")), 114690u);
    EXPECT_FALSE(fs::exists(path("raw11")) || fs::exists(path("raw")));
    EXPECT_FRAME(expectedFrame(hw, 12), frame(10));
}

TEST_F(AcquisitionTest, SpacingIsFrom1To256) {
    startDevice();
    int32_t spacing = 0;
    for (const int32_t value : {1, 256, 4, 0, -1, 257, std::numeric_limits<int32_t>::min()}) {
        const bool good = value > 0 && value <= 256;
        const std::string text = "Invalid acquisition spacing: " + std::to_string(value);
        EXPECT_QDL(good ? 0 : -2, good ? "" : text + ", spacing has to be [1, 256].", qdl.setAcqSpacing(0, value));
        EXPECT_EQ(qdl.getAcqSpacing(0, &spacing), 0);
        EXPECT_EQ(spacing, good ? value : 4);
    }
}

TEST_F(AcquisitionTest, SubStepsOpenEachPixelOnce) {
    ScriptedHw& hw = startDevice(2);
    const auto user = userMatrix(2);
    for (const RunKind& kind : {frames, integral, testPulses})
        for (const size_t s : {2, 3, 7, 256}) {
            SCOPED_TRACE(kind.name + (", spacing " + std::to_string(s)));
            space(static_cast<int32_t>(s));
            setMatrix(user);
            restart(*this, hw);
            const bool whole = s < 256;  // of 65536 sub-steps those that reach the second row
            hw.setHook(18, [&](Call& call) {
                if (!whole && call.nth == 258) qdl.abortOperation(0);
            });
            EXPECT_QDL(whole ? 0 : -29, whole ? "" : aborted, kind.run(*this, 1));
            const std::vector<Call> sends = hw.log({16});
            const auto start = kind.pulses ? withTestBits(user, false) : user;
            const size_t steps = whole ? s * s : 258, first = kind.pulses ? 1 : 0;
            ASSERT_EQ(sends.size(), first + steps + 1);
            EXPECT_TRUE(sends.back().data == (kind.pulses ? withTestBits(user, true) : user));
            EXPECT_TRUE(currentMatrix(*this, 2) == sends.back().data);
            EXPECT_TRUE(!kind.pulses || sends[0].data == start);
            for (size_t k = 0; k < steps; ++k) {
                auto mask = start;
                for (size_t i = 0; i < mask.size(); ++i) {
                    const bool open = i % 256 % s == k % s && i / 256 % 256 % s == k / s;
                    mask[i] = static_cast<uint8_t>((mask[i] & ~QDL_PIXEL_MASK_BIT) | (open ? QDL_PIXEL_MASK_BIT : 0));
                }
                ASSERT_TRUE(sends[first + k].data == mask) << k;
            }
        }
}

TEST_F(AcquisitionTest, ReadOutsThatDoNotComeBack) {
    ScriptedHw& hw = startDevice();
    for (const RunKind& kind : {frames, integral, fast}) {
        restart(*this, hw);
        hw.addFailure({18, 1, 100, -1, ""});
        hw.addFailure({18, 102, 201, -1, ""});
        EXPECT_QDL(0, readoutLost, kind.run(*this, 2));  // a success starts the count of repeats anew
        EXPECT_EQ(messages().size(), 200u);
        EXPECT_EQ(framesDone().size(), 2u);

        restart(*this, hw);
        hw.failAlways(18);
        hw.setHook(18, [this](Call& call) {
            if (call.nth == 5) qdl.abortOperation(0);
        });
        EXPECT_QDL(-29, aborted, kind.run(*this, 2));
        EXPECT_EQ(hw.log({18}).size(), 101u);
        EXPECT_THAT(framesDone(), IsEmpty());
        hw.clearScript();
        EXPECT_QDL(0, readoutLost, (hw.clearLog(), hw.failAt(18, 1), kind.run(*this, 1)));  // the abort is used up
    }
}

TEST_F(AcquisitionTest, AnAbortWaitsForTheNextRun) {
    ScriptedHw& hw = startDevice();
    for (const RunKind& kind : runKinds)
        for (const int32_t spacing : {1, 2}) {
            SCOPED_TRACE(kind.name + (", spacing " + std::to_string(spacing)));
            space(spacing);
            setMatrix(userMatrix(1));
            EXPECT_QDL(0, "", qdl.abortOperation(0));
            EXPECT_QDL(0, "", kind.pulses ? 0 : kind.run(*this, 0));
            restart(*this, hw);
            hw.devices[0].busyLine = {1};
            EXPECT_QDL(-29, aborted, kind.run(*this, 2));
            const bool masks = kind.spaced && spacing > 1;
            EXPECT_CALLS(hw.log(), std::string(kind.pulses ? "16 17 " : "17 ") + (masks ? "16 17 " : "") +
                                       kind.exposure + (masks || kind.pulses ? " 16" : ""));
            const bool counted = !kind.spaced;  // raw frames are kept before the abort is looked at
            EXPECT_EQ(framesDone().size(), counted ? 1u : 0u);
            EXPECT_EQ(acqInfo(*this), (AcqInfo{0, 0, kind.frames(2), kind.type}));
            EXPECT_EQ(frameSeconds(), counted ? 0.5 : -1);
            EXPECT_TRUE(kind.type != ACQ_INTEGRAL || masks || frame32(*this, 0) == kind.result(hw, 1, 1, 0));
            EXPECT_TRUE(currentMatrix(*this, 1) == withTestBits(userMatrix(1), true) || !kind.pulses);
            EXPECT_QDL(0, "", kind.run(*this, 2));
        }
}

TEST_F(AcquisitionTest, SumsWrapAndKeepTheSign) {
    ScriptedHw& hw = startDevice();
    hw.pixel = [](uint32_t, uint32_t x, uint32_t, uint32_t) -> int16_t { return x % 2 ? int16_t{-1} : int16_t{30000}; };
    std::vector<double> wide(onePixels);
    for (int run = 0; run < 2; ++run) {
        EXPECT_QDL(0, "", integral.run(*this, 3));
        EXPECT_EQ(frame32(*this, 7)[0], 90000u);
        EXPECT_EQ(frame32(*this, 0)[255], 4294967293u);
        EXPECT_EQ(frame(0)[0], 90000 - 65536);
        EXPECT_QDL(0, "", qdl.getFrameDouble(0, wide.data(), onePixels, 0, msg));
        EXPECT_EQ(wide[255], 4294967293.0);
    }
    space(2);
    EXPECT_QDL(0, "", integral.run(*this, 3));
    EXPECT_EQ(frame32(*this, 0)[0], 30000u);
    EXPECT_EQ(frame32(*this, 0)[255], 4294967295u);
}

TEST_F(AcquisitionTest, TestPulsesGetTheirArguments) {
    ScriptedHw& hw = startDevice();
    EXPECT_QDL(0, "", fast.run(*this, 1));
    EXPECT_EQ(hw.devices[0].info.hwTimerUsed, 1u);
    space(2);
    EXPECT_QDL(0, "", testPulses.run(*this, 1));
    ASSERT_EQ(hw.log({13}).size(), 4u);
    for (const Call& call : hw.log({13}))
        EXPECT_EQ(std::tuple(call.pulse1, call.pulse2, call.pulse3, call.pulse4, call.hwTimerUsed),
                  std::tuple(1.5, -2.5, 200u, 60000u, 0u));
    EXPECT_EQ(hw.devices[0].info.hwTimerUsed, 0u);
}

}  // namespace
