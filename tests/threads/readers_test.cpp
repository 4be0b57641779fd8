// SPDX-License-Identifier: MIT
// What happens beside and inside a run: aborts, readers on a second thread, and callbacks that call back in.
// Codes and frames only: the text of a message changes under a reader on another thread, and no test reads it there.
#include <future>
#include <thread>

#include "runkinds.h"

namespace {

constexpr uint32_t pixels = QDL_CHIP_PIXELS;

// The runs of a test one after the other. Every pixel counts the number of its read-out, so that a frame tells which
// run, frame and sub-step each of its pixels is from.
struct PlannedRun {
    const RunKind* kind;
    int32_t count, spacing;
    const char* name = "";
    int64_t firstReadout = 0;

    // May frame `index`, read while the run goes on or afterwards, hold `value` in sub-grid k?
    bool allows(uint32_t index, int64_t k, int64_t value) const {
        const int64_t steps = kind->exposures(spacing);
        const auto readout = [&](int64_t frame) { return firstReadout + frame * steps + k; };
        if (kind->type != ACQ_INTEGRAL) return index < static_cast<uint32_t>(count) && value == readout(index);
        bool allowed = value == 0;  // nothing added yet
        for (int64_t frame = 0, sum = 0; frame < kind->frames(count); ++frame) {
            sum = steps == 1 ? sum + readout(frame) : readout(frame);
            allowed = allowed || value == sum;
        }
        return allowed;
    }

    template <class Element>
    bool allows(uint32_t index, const std::vector<Element>& frame) const {
        const uint32_t s = kind->spaced ? static_cast<uint32_t>(spacing) : 1;
        for (uint32_t i = 0; i < pixels; ++i) {
            const uint32_t x = i % 256 % s, y = i / 256 % s, first = y * 256 + x;
            if (i == first ? !allows(index, y * s + x, static_cast<int64_t>(frame[i])) : frame[i] != frame[first])
                return false;
        }
        return true;
    }
};

class RunsTest : public QdlTest {
 public:
    RunsTest() : hw(startDevice()) {
        hw.keepMatrices = false;
        hw.pixel = [](uint32_t, uint32_t, uint32_t, uint32_t readout) { return static_cast<int16_t>(readout); };
        hw.setHook(17, [this](Call&) { begun = current + 1; });  // from here on no frame of an earlier run is given out
    }

    // Carries the runs out; each finished frame waits until a reader beside it has read on.
    void carryOut(const std::function<void(uint32_t turn)>& read) {
        int64_t readouts = 0;
        for (PlannedRun& run : plan)
            run.firstReadout =
                std::exchange(readouts, readouts + run.kind->frames(run.count) * run.kind->exposures(run.spacing));
        onFrame = [this](int32_t) {
            for (const uint32_t seen = turns; turns - seen < 2;)
                std::this_thread::yield();
        };
        std::thread reader([&] {
            for (; !finished; ++turns)
                read(turns);
        });
        for (const PlannedRun& run : plan) {
            EXPECT_EQ(qdl.setAcqSpacing(0, run.spacing), 0);
            EXPECT_EQ(run.kind->run(*this, run.count, run.name), 0);
            ++current;
        }
        finished = true;
        reader.join();
        EXPECT_GT(framesRead, 0u);
    }
    // Reads a frame and holds it against the runs that it may be of: from the one begun last before the read to the one
    // that may now be about to call position 17.
    template <class Element>
    void readFrame(int32_t (*get)(uint32_t, Element*, uint32_t, uint32_t, char*), uint32_t index) {
        std::vector<Element> frame(pixels);
        const int from = std::max(begun.load(), 1) - 1;
        const int32_t code = get(0, frame.data(), pixels, index, nullptr);
        const int to = std::min(begun + 1, static_cast<int>(plan.size()));
        EXPECT_TRUE(code == 0 || code == -14 || code == -15) << code;
        bool allowed = code != 0;
        for (int run = from; run < to; ++run)
            allowed = allowed || plan[static_cast<size_t>(run)].allows(index, frame);
        EXPECT_TRUE(allowed) << "frame " << index << " is of none of the runs " << from << " to " << to - 1
                             << ", first pixel " << +frame[0];
        framesRead += code == 0;
    }
    void readFrameInAnyType(uint32_t turn) {
        const uint32_t index = turn / 3 % 4;
        if (turn % 3 == 0) readFrame(qdl.getFrame16, index);
        if (turn % 3 == 1) readFrame(qdl.getFrame32, index);
        if (turn % 3 == 2) readFrame(qdl.getFrameDouble, index);
    }

    ScriptedHw& hw;
    std::vector<PlannedRun> plan;
    int current = 0;  // of the acquiring thread
    std::atomic<int> begun{0};
    std::atomic<bool> finished{false};
    std::atomic<uint32_t> turns{0}, framesRead{0};
};

TEST_F(RunsTest, ReadersBesideRunsOfAllKinds) {
    for (int round = 0; round < 3; ++round)
        for (const int32_t spacing : {1, 2})
            for (const RunKind& kind : runKinds)
                for (const int32_t count : {3, 3, 2})  // with the buffer of the run before, and with another one
                    plan.push_back({&kind, count, spacing, "run.txt"});
    hw.failAlways(24);  // a message with each exposure, and no more
    carryOut([this](uint32_t turn) {
        readFrameInAnyType(turn);
        double seconds = 0;
        const int32_t code = qdl.getFrameInfo(0, FRAME_INFO_TIME, turn % 4, &seconds, 8, nullptr);
        EXPECT_TRUE(code == 0 || code == -14) << code;
        uint32_t value = 0;
        for (const auto get : {qdl.getPolarity, qdl.getCST, qdl.getExternalShutter, qdl.getHwTimer, qdl.getSpareFSR})
            EXPECT_EQ(get(0, &value), 0);
        int32_t number = 0;
        EXPECT_EQ(qdl.getAcqSpacing(0, &number), 0);
        EXPECT_EQ(qdl.getHwInfoCount(0, &number), 0);
        const char* text = nullptr;
        EXPECT_EQ(qdl.getInfoMsg(0, &number, &text), 0);
        EXPECT_TRUE((number == -6 || number == -24) && text) << number;  // -6: no pixel file at the start
    });
}

TEST_F(RunsTest, ReadersOfFilesThatAreReplaced) {
    for (int round = 0; round < 4; ++round)
        for (const RunKind* kind : {&frameFiles, &fastFiles})
            for (const char* name : {"a.txt", "a.txt", "long-name-of-another-file.txt", "a.txt"})
                for (const int32_t spacing : {1, 2})
                    plan.push_back({kind, 3, spacing, name});
    carryOut([this](uint32_t turn) { readFrameInAnyType(turn); });
}

class BesideARun : public QdlTest, public testing::WithParamInterface<RunKind> {
 public:
    void expectClean() {
        onFrame = onMessage = nullptr;
        restart(*this, hw);
        EXPECT_QDL(0, "", kind.run(*this, 2));
        for (int32_t i = 0; i < kind.frames(2); ++i)
            EXPECT_FRAME(kind.result(hw, 1, 2, i), frame32(*this, i));
    }
    const RunKind kind = GetParam();
    ScriptedHw& hw = startDevice();
};

enum Place { hwCall, firstFrame, lastFrame, message };

TEST_P(BesideARun, AbortsFromEverywhere) {
    for (const Place place : {hwCall, firstFrame, lastFrame, message})
        for (const bool elsewhere : {false, true}) {
            SCOPED_TRACE(testing::Message() << "place " << place << ", another thread " << elsewhere);
            int countdown = place == lastFrame ? kind.frames(2) : 1;
            const auto abort = [&](const auto&) {
                if (--countdown != 0) return;
                elsewhere ? std::thread([this] { qdl.abortOperation(0); }).join() : (void)qdl.abortOperation(0);
            };
            restart(*this, hw);
            if (place == hwCall) hw.setHook(18, abort);
            if (place == firstFrame || place == lastFrame) onFrame = abort;
            if (place == message) onMessage = abort, hw.failAt(18, 1);
            // After the last look at the flag it waits for the next run; raw frames are kept before that look.
            const bool late = place == lastFrame ? kind.spaced : place != hwCall && kind.pulses;
            const int kept = place == lastFrame ? kind.frames(2) : place == firstFrame || !kind.spaced ? 1 : 0;
            EXPECT_EQ(kind.run(*this, 2), !late ? -29 : place == message ? -25 : 0);
            EXPECT_EQ(framesDone().size(), static_cast<size_t>(kept));
            EXPECT_EQ(late ? kind.run(*this, 2) : -29, -29);
            EXPECT_EQ(stored(0), (Message{0, -29, "Acquisition aborted."}));
            expectClean();
        }
}

TEST_P(BesideARun, CallbacksCannotBeginAnotherRun) {
    onFrame = [this](int32_t) {
        constexpr const char* refused = "Cannot perform command, acquisition is in progress.";
        for (const RunKind& other : runKinds)
            EXPECT_QDL(-2, refused, other.run(*this, 1));
        EXPECT_QDL(-2, refused, qdl.initQdlDevice(0, nullptr));
    };
    EXPECT_EQ(kind.run(*this, 2), 0);
    EXPECT_CALLS(hw.log(), kind.calls(1, 2));
    EXPECT_EQ(acqInfo(*this), (AcqInfo{0, kind.frames(2) - 1, kind.frames(2), kind.type}));
    for (int32_t i = 0; i < kind.frames(2); ++i)
        EXPECT_FRAME(kind.result(hw, 1, 2, i), frame32(*this, i));
    expectClean();
}

TEST_P(BesideARun, AnotherThreadsRunWaitsItsTurn) {
    std::thread other;
    hw.setHook(18, [&](Call& call) {
        if (call.nth == 1) other = std::thread([&] { EXPECT_EQ(frames.run(*this, 2), 0); });
    });
    EXPECT_EQ(kind.run(*this, 2), 0);
    other.join();
    EXPECT_CALLS(hw.log(), kind.calls(1, 2) + " " + frames.calls(1, 2));
}

TEST_P(BesideARun, FreesFromTheCallbackWaitForTheEnd) {
    for (const auto release : {qdl.freeBuffers, qdl.freeStreamBuff, qdl.freeFrameBuff, qdl.freeIntegralBuff}) {
        restart(*this, hw);
        onFrame = [&](int32_t) {
            EXPECT_QDL(0, "", release(0));
            for (int32_t i = 0; i < static_cast<int32_t>(framesDone().size()) && kind.type != ACQ_INTEGRAL; ++i)
                EXPECT_FRAME(kind.result(hw, 1, 2, i), frame32(*this, i));
        };
        EXPECT_EQ(kind.run(*this, 2), 0);
        std::vector<int16_t> frame(pixels);
        const auto own = kind.type == ACQ_INTEGRAL ? qdl.freeIntegralBuff
                         : kind.spaced             ? qdl.freeFrameBuff
                                                   : qdl.freeStreamBuff;
        const int32_t expected = release != own && release != qdl.freeBuffers ? 0 : kind.toFile() ? -15 : -14;
        EXPECT_EQ(qdl.getFrame16(0, frame.data(), pixels, 0, nullptr), expected);
        expectClean();
    }
}

TEST_P(BesideARun, CallbacksSaveReadAndConfigure) {
    int32_t done = 0;
    onFrame = [&](int32_t id) {
        const auto device = static_cast<uint32_t>(id);
        EXPECT_EQ(acqInfo(*this), (AcqInfo{0, done, kind.frames(2), kind.type}));
        EXPECT_FRAME(kind.result(hw, 1, done + 1, done), frame32(*this, done));
        const std::string name = path("saved" + std::to_string(done));
        EXPECT_QDL(0, "", qdl.saveFrame(device, name.c_str(), static_cast<uint32_t>(done), SAVE_BINARY));
        EXPECT_EQ(std::filesystem::file_size(name), kind.type == ACQ_INTEGRAL ? 4 * pixels : 2 * pixels);
        EXPECT_QDL(0, "", qdl.setPolarity(device, 0));
        EXPECT_QDL(0, "", qdl.setAcqSpacing(device, 3));
        EXPECT_QDL(0, "", qdl.refreshDACs(device));
        EXPECT_QDL(0, "", qdl.resetPixelsCfg(device, 0));
        EXPECT_QDL(0, "", qdl.loadQdlCfg(device, path("own.qcf").c_str()));
        ++done;
    };
    EXPECT_QDL(0, "", qdl.saveQdlCfg(0, path("own.qcf").c_str()));
    EXPECT_EQ(kind.run(*this, 2), 0);
    EXPECT_EQ(done, kind.frames(2));
    EXPECT_EQ(hw.log({18}).size(), static_cast<size_t>(done));  // the spacing is that of the start
    EXPECT_EQ(hw.log({14}).size(), static_cast<size_t>(done));
    EXPECT_EQ(qdl.setAcqSpacing(0, 1), 0);
    expectClean();
}

TEST_F(QdlTest, AMatrixFromTheCallbackDoesNotReachASpacedRun) {
    ScriptedHw& hw = startDevice();
    EXPECT_QDL(0, "", qdl.setAcqSpacing(0, 2));
    onFrame = [this](int32_t) { EXPECT_EQ(qdl.resetPixelsCfg(0, 0), 0); };
    for (const RunKind& kind : {frames, frameFiles, integral}) {
        EXPECT_QDL(0, "", qdl.setPixelsCfg(0, userMatrix(1).data(), 0));
        restart(*this, hw);
        EXPECT_QDL(0, "", kind.run(*this, 2));
        const auto sends = hw.log({16});
        for (size_t k = 0; k < 4; ++k)
            EXPECT_TRUE(sends.at(5 + k).data == sends[k].data);
        EXPECT_TRUE(sends.back().data == userMatrix(1));
    }
}

TEST_F(QdlTest, ANewRunWaitsForAReaderInTheMiddle) {
    ScriptedHw& hw = startDevice();
    EXPECT_QDL(0, "", fast.run(*this, 2));
    std::promise<void> reading;
    std::atomic<bool> overtaken{false};
    hw.setHook(18, [&](Call&) { overtaken = true; });
    hw.setHook(25, [&](Call&) {
        reading.set_value();
        for (int i = 0; i < 50 && !overtaken; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_FALSE(overtaken);
    });
    std::thread reader([&] { EXPECT_FRAME(fast.result(hw, 1, 2, 1), frame32(*this, 1)); });
    reading.get_future().wait();
    EXPECT_QDL(0, "", fast.run(*this, 2));
    reader.join();
}

TEST_F(RunsTest, LongWaitsEndWithAnAbort) {
    for (const bool byLibrary : {true, false}) {
        EXPECT_QDL(0, "", qdl.setHwTimer(0, byLibrary ? HW_TIMER_NEVER : HW_TIMER_ALWAYS));
        for (const double seconds : {0.05, 1e6}) {
            hw.devices[0].busyLine.assign(1000, 1);
            std::thread aborter;
            hw.setHook(8, [&](Call&) { aborter = std::thread([this] { qdl.abortOperation(0); }); });
            hw.setHook(9, [&](Call&) { aborter.join(); });
            EXPECT_QDL(-29, "Acquisition aborted.", qdl.performFrameAcq(0, 3, seconds, 0, nullptr));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, BesideARun, testing::ValuesIn(runKinds),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
