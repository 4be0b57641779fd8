// SPDX-License-Identifier: MIT
// Every call that a run makes fails once: for all kinds of run and several spacings, what the host is told, what stays
// readable, and that the device is fit for the next run.
#include <cstring>
#include <future>
#include <set>

#include "runkinds.h"

namespace fs = std::filesystem;

namespace {

using Positions = std::vector<int>;
constexpr int32_t count = 2;

using Meaning = std::pair<int32_t, const char*>;  // code and text of a failing position
const std::map<int, Meaning> meanings = {{8, {-22, "Cannot start acquisition: "}},
                                         {9, {-23, "Error occurred while stopping acquisition: "}},
                                         {13, {-30, "Test pulses failed: "}},
                                         {16, {-31, "Pixel mask setting failed: "}},
                                         {17, {-34, "Resetting pixel matrix failed: "}},
                                         {18, {-25, "Error occurred while reading-out matrix: "}},
                                         {24, {-24, "Error occurred while checking busy line: "}},
                                         {25, {-26, "Stream conversion error: "}},
                                         {27, {-27, "Conversion from pseudo-random values error: "}}};

enum Extent { once, forEver, onceAndTheRestoreToo };
struct Fault {
    int position, nth;
    Extent extent;
};

struct Outcome {
    int32_t code = 0;
    int32_t framesDone = 0, lastIndex = 0;
    bool restored = false;
    Positions calls;
};

void append(Positions& calls, const Positions& more) { calls.insert(calls.end(), more.begin(), more.end()); }

class FaultWalk : public QdlTest, public testing::WithParamInterface<std::tuple<RunKind, int32_t>> {
 public:
    FaultWalk() : kind(std::get<0>(GetParam())), spacing(std::get<1>(GetParam())), hw(startDevice()) {
        EXPECT_EQ(qdl.setAcqSpacing(0, spacing), 0);
        prepare();
    }

    void prepare() {
        hw.clearScript();
        EXPECT_QDL(0, "", qdl.setAllChipsPixelsCfg(0, user.data(), 1));
        hw.clearLog();
        clearMessages();
    }
    Positions positions() {
        Positions calls;
        for (const Call& call : hw.log())
            calls.push_back(call.position);
        return calls;
    }

    // What a fault makes of the calls of a clean run.
    Outcome expect(const Positions& clean, const Fault& fault) const {
        size_t at = 0;
        for (int seen = 0; (seen += clean[at] == fault.position) < fault.nth;)
            ++at;
        const Positions before(&clean[0], &clean[at] + 1), rest(&clean[at] + 1, &clean[0] + clean.size());
        const bool repeats = fault.position == 18 && !kind.pulses;
        const bool goesOn = fault.position == 24 || (repeats && fault.extent == once);
        Outcome outcome{goesOn ? 0 : meanings.at(fault.position).first, 0, 0, false, before};
        outcome.calls.push_back(23);
        if (repeats) {
            const auto first = std::find(before.rbegin(), before.rend(), kind.spaced && spacing > 1 ? 16 : 8);
            const Positions again(first.base() - 1, before.end());
            for (int repeat = 0; repeat < (fault.extent == forEver ? 100 : 1); ++repeat) {
                append(outcome.calls, again);
                if (fault.extent == forEver) outcome.calls.push_back(23);
            }
        }
        if (goesOn) append(outcome.calls, rest);
        const bool matrixChanged = std::count(before.begin(), before.end(), 16) > 0;
        outcome.restored = !goesOn && matrixChanged && !(fault.position == 16 && rest.empty());
        if (outcome.restored) outcome.calls.push_back(16);
        countFrames(outcome, goesOn ? clean : Positions(before.begin(), before.end() - 1), goesOn);
        return outcome;
    }
    void countFrames(Outcome& outcome, const Positions& calls, bool complete) const {
        const auto exposed = std::count(calls.begin(), calls.end(), std::strstr(kind.exposure, "27") ? 27 : 18);
        outcome.framesDone = static_cast<int32_t>(exposed) / kind.exposures(spacing);
        const bool began = calls.size() > (kind.pulses ? 1 : 0);
        outcome.lastIndex = !began || kind.pulses ? kind.frames(count) - 1 : std::min(outcome.framesDone, count - 1);
        if (kind.pulses && !complete) outcome.framesDone = 0;
    }

    void walk(const Positions& clean, const Fault& fault) {
        SCOPED_TRACE("call " + std::to_string(fault.nth) + " of position " + std::to_string(fault.position) +
                     " fails, extent " + std::to_string(fault.extent));
        const Outcome expected = expect(clean, fault);
        prepare();
        hw.addFailure({fault.position, fault.nth, fault.extent == forEver ? INT_MAX : fault.nth, -1, ""});
        if (fault.extent == onceAndTheRestoreToo)
            hw.failFrom(16, static_cast<int>(std::count(expected.calls.begin(), expected.calls.end(), 16)));
        EXPECT_EQ(kind.run(*this, count), expected.code);

        const Meaning& meaning = meanings.at(fault.position);
        const Message told{0, meaning.first, meaning.second + failText(fault.position)};
        EXPECT_EQ(messages(), std::vector<Message>(fault.extent == forEver ? 101 : 1, told));
        EXPECT_EQ(stored(0), told);
        Positions calls = positions();
        if (fault.extent == onceAndTheRestoreToo && calls.back() == 23) calls.pop_back();
        EXPECT_EQ(calls, expected.calls);
        EXPECT_EQ(framesDone(), std::vector<int32_t>(static_cast<size_t>(expected.framesDone), 0));
        checkState(expected, fault);
        checkNextRun();
    }

    void checkState(const Outcome& expected, const Fault& fault) {
        const auto seen = std::async(std::launch::async, [this] { return acqInfo(*this); }).get();
        EXPECT_EQ(seen, (AcqInfo{0, expected.lastIndex, kind.frames(count), kind.type}));
        EXPECT_EQ(currentMatrix(*this, 1), left);
        const auto sends = hw.log({16});
        EXPECT_TRUE(sends.empty() || sends.back().data == left);
        const bool oneLost = fault.position == 18 && expected.code == 0;
        checkFrames(expected, oneLost ? static_cast<uint32_t>(fault.nth - 1) : UINT32_MAX);
    }
    void checkFrames(const Outcome& expected, uint32_t lost) {
        std::vector<int16_t> pixels(QDL_CHIP_PIXELS);
        double seconds = 0;
        const auto beyond = static_cast<uint32_t>(expected.framesDone);
        if (kind.type == ACQ_INTEGRAL) {
            const double each = kind.pulses ? 1.0 : exposureSeconds;
            EXPECT_EQ(qdl.getFrameInfo(0, FRAME_INFO_TIME, 0, &seconds, 8, nullptr), beyond ? 0 : -14);
            EXPECT_EQ(seconds, beyond * each);
            if (expected.code != 0) return;
        } else {
            const int32_t refused = kind.toFile() ? -15 : -14;
            EXPECT_EQ(qdl.getFrame16(0, pixels.data(), QDL_CHIP_PIXELS, beyond, nullptr), refused);
        }
        for (int32_t i = 0; i < expected.framesDone; ++i)
            EXPECT_FRAME(kind.result(hw, spacing, count, i, lost), frame32(*this, i));
    }
    void checkNextRun() {
        prepare();
        EXPECT_QDL(0, "", kind.run(*this, count));
        EXPECT_CALLS(hw.log(), kind.calls(spacing, count));
        EXPECT_EQ(framesDone().size(), static_cast<size_t>(kind.frames(count)));
        EXPECT_FRAME(kind.result(hw, spacing, count, kind.frames(count) - 1), frame32(*this, kind.frames(count) - 1));
        EXPECT_EQ(currentMatrix(*this, 1), left);
    }

    const RunKind kind;
    const int32_t spacing;
    const std::vector<uint8_t> user = userMatrix(1), left = kind.pulses ? withTestBits(user, true) : user;
    ScriptedHw& hw;
};

TEST_P(FaultWalk, EveryCallOfARun) {
    EXPECT_QDL(0, "", kind.run(*this, count));
    EXPECT_CALLS(hw.log(), kind.calls(spacing, count));
    const Positions clean = positions();
    for (const int position : std::set<int>(clean.begin(), clean.end())) {
        const auto total = static_cast<int>(std::count(clean.begin(), clean.end(), position));
        for (const int nth : std::set<int>{1, total / 2 + 1, total}) {
            walk(clean, {position, nth, once});
            if (position == 18 && !kind.pulses)
                walk(clean, {position, nth, forEver});
            else if (expect(clean, {position, nth, once}).restored)
                walk(clean, {position, nth, onceAndTheRestoreToo});
        }
    }
}

class RestoreFault : public FaultWalk {};
class FileFault : public FaultWalk {};

TEST_P(RestoreFault, AtAnAbort) {
    prepare();
    hw.setHook(18, [this](Call&) { qdl.abortOperation(0); });
    hw.failAt(16, kind.pulses && spacing > 1 ? 3 : 2);
    EXPECT_QDL(-31, "Pixel mask setting failed: position 16 failed", kind.run(*this, count));
    EXPECT_EQ(messages().size(), 1u);
    EXPECT_CALLS(hw.log(), std::string(kind.pulses ? "16 " : "") + "17 " + (spacing > 1 ? "16 17 " : "") +
                               kind.exposure + " 16 23");
    EXPECT_EQ(currentMatrix(*this, 1), left);
    checkNextRun();
}

TEST_P(FileFault, ASecondFileThatCannotBeWritten) {
    ASSERT_TRUE(fs::is_character_file("/dev/full"));
    const fs::path second = path("run1.txt");
    const std::string name = "\"" + second.string() + "\"";
    const std::string opening = "Cannot open file " + name + " for writing: " + strerror(EISDIR) + ".";
    const std::string writing = "Error occurred while writing to file " + name + ": " + strerror(ENOSPC) + ".";
    for (const bool full : {false, true}) {
        prepare();
        fs::remove(second);
        full ? fs::create_symlink("/dev/full", second) : (void)fs::create_directory(second);
        EXPECT_QDL(full ? -5 : -4, full ? writing : opening, kind.run(*this, 3));
        EXPECT_CALLS(hw.log(), kind.calls(spacing, 2));
        EXPECT_EQ(framesDone().size(), 1u);
        EXPECT_EQ(acqInfo(*this), (AcqInfo{0, 1, 3, kind.type}));
        EXPECT_FRAME(kind.result(hw, spacing, 3, 0), frame32(*this, 0));
        EXPECT_EQ(currentMatrix(*this, 1), user);
        fs::remove(second);
        checkNextRun();
    }
}

const auto nameOfCase = [](const auto& info) {
    return std::get<0>(info.param).name + std::to_string(std::get<1>(info.param));
};
using testing::Combine;
using testing::Values;
INSTANTIATE_TEST_SUITE_P(Kinds, FaultWalk, Combine(testing::ValuesIn(runKinds), Values(1, 2, 3)), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Spaced, RestoreFault, Combine(Values(frames, frameFiles, integral, testPulses), Values(2, 3)),
                         nameOfCase);
INSTANTIATE_TEST_SUITE_P(Unspaced, RestoreFault, Combine(Values(testPulses), Values(1)), nameOfCase);
INSTANTIATE_TEST_SUITE_P(Kinds, FileFault, Combine(Values(frameFiles, fastFiles), Values(1, 2, 3)), nameOfCase);

}  // namespace
