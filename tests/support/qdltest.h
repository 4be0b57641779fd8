// SPDX-License-Identifier: MIT
// Tests of the control library through its exported functions, with scripted HW libraries (scriptedhw.h).
//
//     TEST_F(QdlTest, FrameRunSurvivesALostReadout) {
//         ScriptedHw& hw = startDevice(2);  // HW library "a" with one device of 2 chips; device 0 is initialized
//         hw.failAt(18, 1);                 // the first call of position 18 fails, its text is failText(18)
//         EXPECT_QDL(0, HasSubstr(failText(18)), qdl.performFrameAcq(0, 2, 0.0, 0, nullptr));
//         EXPECT_CALLS(hw.log(), "17 8 24* 9 18 23 (8 24* 9 18 25 27)x2");
//         EXPECT_FRAME(expectedFrame(hw, 2), frame(1));  // read-out 0 was lost, so frame 1 is read-out 2
//     }
//
// - Every test has a scratch folder with its own copy of the library, loaded and with both callbacks registered, and
//   ends with exitQdlCtrl. `qdl` holds all exported functions; `folder` is where `hwlibs` and `configs` are.
// - hwLibrary("b") puts hwlibs/b.so there and gives its script; do this and addDevice before initQdlCtrl.
//   startDevice is the short way for one device, initialized or not, and leaves messages and log empty.
// - EXPECT_QDL(code, text, call) checks the result and the text of the last message that the call gave: the one behind
//   the info callback, or else what the call wrote to the fixture's `msg`. "" is: none at all; a matcher will do.
//   A negative result must also be the stored code, but for -1. `messages()` are all since clearMessages().
//   It looks at one thread's call at a time; on a second thread compare plain results.
// - onMessage and onFrame run inside the two callbacks; framesDone() are the ids that the acquisition callback got.
// - EXPECT_CALLS(log, pattern) compares a whole sequence of positions: "24*" any number, "(16 17 8)x4" four
//   times. The log of chosen positions: hw.log({16, 17}); their arguments: hw.log({8})[0].seconds.
// - Times of 0 need no wait; a busy line that stays busy for two polls: hw.devices[0].busyLine = {1, 1}.
// - To act inside a HW call (abort, block on a latch, call back): hw.setHook(8, [&](Call& call) { ... }).
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

#include "qdlctrl.h"
#include "scriptedhw.h"

// All exported functions, bound by name.
struct Api {
#define QDL_EXPORT(name) decltype(&::name) name = nullptr;
#include QDL_EXPORTS
#undef QDL_EXPORT
};

// One loaded copy of the library; different files are different instances. `file` goes to the loader as it is.
class QdlLibrary {
 public:
    explicit QdlLibrary(const std::filesystem::path& file);
    ~QdlLibrary();
    QdlLibrary(const QdlLibrary&) = delete;
    QdlLibrary& operator=(const QdlLibrary&) = delete;
    void* symbol(const std::string& name) const;  // null if there is none

    Api api;

 private:
    void* handle_;
};

struct Message {
    int32_t id, code;
    std::string text;
    bool operator==(const Message&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Message& message);

class QdlTest : public testing::Test {
 public:
    QdlTest();
    ~QdlTest() override;

    ScriptedHw& hwLibrary(const std::string& name = "a");
    ScriptedHw& startDevice(uint32_t chips = 1, bool initialize = true);
    // Gives up the test's own hold on the HW libraries; their scripts are gone when the library unloads them.
    void releaseHwLibraries();

    std::vector<Message> messages();
    std::vector<int32_t> framesDone();
    void clearMessages();  // also framesDone
    Message stored(uint32_t id);
    std::string path(const std::string& relative) const { return (folder / relative).string(); }

    // Frame `index` of a device, by getFrame16.
    std::vector<int16_t> frame(uint32_t index, uint32_t id = 0);

    testing::AssertionResult check(int32_t code, const testing::Matcher<const std::string&>& text,
                                   const char* expression, const std::function<int32_t()>& call);

    // What is registered as the two callbacks.
    static void messageArrived(int32_t id);
    static void frameArrived(int32_t id);

    const std::filesystem::path folder;
    QdlLibrary library;
    const Api& qdl = library.api;
    char msg[QDL_TEXT_SIZE] = "";
    std::function<void(int32_t id)> onMessage, onFrame;

 private:
    static QdlTest* current_;
    std::mutex mutex_;
    std::vector<Message> messages_;
    std::vector<int32_t> framesDone_;
    std::map<std::string, void*> hwLibraries_;
};

#define EXPECT_QDL(code, text, call) EXPECT_TRUE(check(code, text, #call, [&] { return call; }))
#define EXPECT_CALLS(log, pattern) EXPECT_TRUE(sameCalls(log, pattern))
#define EXPECT_FRAME(expected, actual) EXPECT_TRUE(sameFrame(expected, actual))

testing::AssertionResult sameCalls(const std::vector<Call>& log, const std::string& pattern);

// The counts of one read-out of a device, or of the read-out that `readoutOf` names for each x and y.
std::vector<int16_t> expectedFrame(const ScriptedHw& hw,
                                   const std::function<uint32_t(uint32_t x, uint32_t y)>& readoutOf, size_t device = 0);
std::vector<int16_t> expectedFrame(const ScriptedHw& hw, uint32_t readout, size_t device = 0);

// Names the first pixel that differs. Signed 16-bit counts widen as the library widens them.
template <class Expected, class Actual>
testing::AssertionResult sameFrame(const std::vector<Expected>& expected, const std::vector<Actual>& actual) {
    static_assert(sizeof(Actual) >= sizeof(Expected));
    if (expected.size() != actual.size())
        return testing::AssertionFailure() << actual.size() << " pixels instead of " << expected.size();
    size_t wrong = 0, first = 0;
    for (size_t i = expected.size(); i-- > 0;)
        if (static_cast<Actual>(expected[i]) != actual[i]) ++wrong, first = i;
    if (wrong == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << wrong << " pixels differ, first chip " << first / QDL_CHIP_PIXELS << " x "
                                       << first % 256 << " y " << first / 256 % 256 << ": " << +actual[first]
                                       << " instead of " << +static_cast<Actual>(expected[first]);
}
