// SPDX-License-Identifier: MIT
// The kinds of acquisition as one table, for tests that walk them: how each is run, which calls a clean run makes, and
// what it leaves behind. Exposures are of 0.5 s and timed by the hardware, so that nobody waits.
#pragma once

#include "qdltest.h"

constexpr double exposureSeconds = 0.5;

struct RunKind {
    const char* name;
    int32_t type;          // as getAcqInfo tells it
    bool spaced;           // acquisition spacing applies
    bool pulses;           // a test pulse run, always of one frame
    const char* exposure;  // calls of one exposure
    int32_t (*perform)(const Api& qdl, int32_t count, const char* fileName);

    int32_t run(QdlTest& test, int32_t count, const std::string& fileName = "run.txt") const {
        return perform(test.qdl, count, test.path(fileName).c_str());
    }

    int32_t exposures(int32_t spacing) const { return spaced ? spacing * spacing : 1; }
    int32_t frames(int32_t count) const { return pulses ? 1 : count; }
    bool toFile() const { return type == ACQ_FRAMES_TO_FILE || type == ACQ_STREAM_TO_FILE; }

    std::string calls(int32_t spacing, int32_t count) const {
        const bool masks = spaced && spacing > 1;
        return std::string(pulses ? "16 17 (" : "17 (") + (masks ? "16 17 " : "") + exposure + ")x" +
               std::to_string(frames(count) * exposures(spacing)) + (masks || pulses ? " 16" : "");
    }

    // What getFrame32 gives for frame `index` of a finished run whose first read-out was number 0 and which lost
    // read-out `lost`. A sum is that of `count` frames, with spacing the last one.
    std::vector<uint32_t> result(const ScriptedHw& hw, int32_t spacing, int32_t count, int32_t index,
                                 uint32_t lost = UINT32_MAX) const {
        const bool sum = type == ACQ_INTEGRAL && exposures(spacing) == 1;
        const int32_t last = type == ACQ_INTEGRAL ? frames(count) - 1 : index;
        const auto step = static_cast<uint32_t>(spaced ? spacing : 1);
        std::vector<uint32_t> pixels(hw.devices.at(0).info.chipCount * QDL_CHIP_PIXELS);
        for (int32_t frame = sum ? 0 : std::max(last, 0); frame <= last; ++frame) {
            const auto decoded = expectedFrame(hw, [=](uint32_t x, uint32_t y) {
                const uint32_t readout = static_cast<uint32_t>(frame) * step * step + y % step * step + x % step;
                return readout < lost ? readout : readout + 1;
            });
            for (size_t i = 0; i < decoded.size(); ++i)
                pixels[i] += static_cast<uint32_t>(decoded[i]);
        }
        return pixels;
    }
};

inline std::ostream& operator<<(std::ostream& out, const RunKind& kind) { return out << kind.name; }

inline const RunKind runKinds[] = {
    {"Frames", ACQ_FRAMES, true, false, "8 24 9 18 25 27",
     [](const Api& qdl, int32_t count, const char*) {
         return qdl.performFrameAcq(0, count, exposureSeconds, 0, nullptr);
     }},
    {"FrameFiles", ACQ_FRAMES_TO_FILE, true, false, "8 24 9 18 25 27",
     [](const Api& qdl, int32_t count, const char* fileName) {
         return qdl.performFrameAcq(0, count, exposureSeconds, 1, fileName);
     }},
    {"Integral", ACQ_INTEGRAL, true, false, "8 24 9 18 25 27",
     [](const Api& qdl, int32_t count, const char*) { return qdl.performIntegralAcq(0, count, exposureSeconds); }},
    {"Fast", ACQ_STREAM, false, false, "8 24 9 18",
     [](const Api& qdl, int32_t count, const char*) {
         return qdl.performFastAcq(0, count, exposureSeconds, 0, nullptr);
     }},
    {"FastFiles", ACQ_STREAM_TO_FILE, false, false, "8 24 9 18",
     [](const Api& qdl, int32_t count, const char* fileName) {
         return qdl.performFastAcq(0, count, exposureSeconds, 1, fileName);
     }},
    {"TestPulses", ACQ_INTEGRAL, true, true, "13 18 25 27",
     [](const Api& qdl, int32_t, const char*) { return qdl.performTestPulseAcq(0, 1.5, -2.5, 200, 60000); }},
};
inline const RunKind &frames = runKinds[0], &frameFiles = runKinds[1], &integral = runKinds[2], &fast = runKinds[3],
                     &fastFiles = runKinds[4], &testPulses = runKinds[5];

// Forgets script, calls and messages so far.
inline void restart(QdlTest& test, ScriptedHw& hw) {
    hw.clearScript();
    hw.clearLog();
    test.clearMessages();
}

// One frame or sum of device 0, by getFrame32.
inline std::vector<uint32_t> frame32(QdlTest& test, int32_t index) {
    uint32_t chips = 0, infoValue = 0;
    test.qdl.getQuandelInfo(0, &chips, &infoValue, nullptr, nullptr);
    std::vector<uint32_t> pixels(chips * QDL_CHIP_PIXELS);
    char text[QDL_TEXT_SIZE] = "";
    const auto size = static_cast<uint32_t>(pixels.size());
    EXPECT_EQ(test.qdl.getFrame32(0, pixels.data(), size, static_cast<uint32_t>(index), text), 0) << text;
    return pixels;
}

// A matrix in which pixels are masked, test bits are mixed, and no two neighbours, rows or chips are alike.
inline std::vector<uint8_t> userMatrix(uint32_t chips) {
    std::vector<uint8_t> matrix(chips * QDL_CHIP_PIXELS);
    for (size_t i = 0; i < matrix.size(); ++i)
        matrix[i] = static_cast<uint8_t>(i * 37 + i / 256 * 11 + i / QDL_CHIP_PIXELS * 5);
    return matrix;
}

inline std::vector<uint8_t> withTestBits(std::vector<uint8_t> matrix, bool set) {
    for (uint8_t& pixel : matrix)
        pixel = static_cast<uint8_t>(set ? pixel | QDL_PIXEL_TEST_BIT : pixel & ~QDL_PIXEL_TEST_BIT);
    return matrix;
}

inline std::vector<uint8_t> currentMatrix(QdlTest& test, uint32_t chips) {
    std::vector<uint8_t> matrix(chips * QDL_CHIP_PIXELS);
    EXPECT_EQ(test.qdl.getAllChipsPixelsCfg(0, matrix.data(), static_cast<int32_t>(chips)), 0);
    return matrix;
}

struct AcqInfo {
    int32_t code = 0, index = -77, count = -77, type = -77;
    bool operator==(const AcqInfo&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const AcqInfo& info) {
    return out << "{" << info.code << ", " << info.index << ", " << info.count << ", " << info.type << "}";
}
inline AcqInfo acqInfo(QdlTest& test) {
    AcqInfo info;
    info.code = test.qdl.getAcqInfo(0, &info.index, &info.count, &info.type);
    return info;
}
constexpr AcqInfo noAcq = {-1};
