// SPDX-License-Identifier: MIT
// Whole runs in memory. Exposures last 0 s, so that what is left is the way of the data.
#include <cstring>
#include <memory>

#include "device.h"
#include "limits.h"
#include "plain.h"
#include "rounds.h"

namespace bench {
namespace {

// The limit's own memory, as much as the library has for the run, and from where the HW library would copy.
struct Copies {
    Copies(const Device& device, int streams, int frames)
        : words(device.words),
          pixels(device.pixels),
          stream(words * sizeof(uint16_t)),
          frame(pixels * sizeof(int16_t)),
          streams(streams * words * sizeof(uint16_t)),
          frames(frames * pixels * sizeof(int16_t)) {}

    void copyStream(std::size_t i) const {
        std::memcpy(streams.as<uint16_t>(i * words), stream.as<uint16_t>(), words * sizeof(uint16_t));
    }
    void copyFrame(std::size_t i) const {
        std::memcpy(frames.as<int16_t>(i * pixels), frame.as<int16_t>(), pixels * sizeof(int16_t));
    }

    const std::size_t words, pixels;
    const Area stream, frame, streams, frames;
};

Contest frameRun(uint32_t chips, int count) {
    const Device device(chips);
    const auto copies = std::make_shared<Copies>(device, 1, count);
    return {.ours = [device, count] { must(performFrameAcq(device.id, count, 0.0, 0, nullptr)); },
            .limit =
                [copies, count] {
                    for (int i = 0; i < count; ++i) {
                        copies->copyStream(0);
                        copies->copyFrame(static_cast<std::size_t>(i));
                    }
                },
            .frames = count};
}

Contest fastRun(uint32_t chips, int count) {
    const Device device(chips);
    const auto copies = std::make_shared<Copies>(device, count, 1);
    return {.ours = [device, count] { must(performFastAcq(device.id, count, 0.0, 0, nullptr)); },
            .limit =
                [copies, count] {
                    for (int i = 0; i < count; ++i)
                        copies->copyStream(static_cast<std::size_t>(i));
                },
            .frames = count};
}

// The first run into fresh memory beside the next one into the same.
Contest freshBuffer() {
    constexpr int count = 1000;
    const Device device(1);
    const Call run = [device] { must(performFrameAcq(device.id, count, 0.0, 0, nullptr)); };
    return {.ours = run, .limit = run, .before = [device] { must(freeBuffers(device.id)); }, .frames = count};
}

// The HW library delivers nothing here, so the run is the sum alone.
Contest sum() {
    constexpr int32_t exposures = 200;
    const Device device(1);
    device.setWork(0);
    const auto sums = std::make_shared<Area>(device.pixels * sizeof(uint32_t));
    const auto frame = std::make_shared<Area>(device.pixels * sizeof(int16_t));
    const auto repeat = [sums, frame, pixels = device.pixels](auto add) {
        return [=] {
            for (int32_t i = 0; i < exposures; ++i)
                add(sums->as<uint32_t>(), frame->as<int16_t>(), pixels);
        };
    };
    return {.ours = [device] { must(performIntegralAcq(device.id, exposures, 0.0)); },
            .limit = repeat(streamAndAdd),
            .plain = repeat(plain::addFrame),
            .frames = exposures};
}

// One frame of `subSteps` sub-steps, after which the HW library refuses to go on if that is not all of it.
Contest spacedRun(uint32_t chips, int32_t spacing, int32_t subSteps) {
    const Device device(chips);
    must(setAcqSpacing(device.id, spacing));
    const bool whole = subSteps == spacing * spacing;
    const auto copies = std::make_shared<Copies>(device, 1, 1);
    const auto matrix = std::make_shared<Area>(device.pixels), masked = std::make_shared<Area>(device.pixels);
    const auto target = std::make_shared<Area>(device.pixels * sizeof(int16_t));
    return {.ours =
                [=] {
                    device.setStarts(whole ? 0 : static_cast<uint32_t>(subSteps));
                    const int32_t result = performFrameAcq(device.id, 1, 0.0, 0, nullptr);
                    if (whole || result != QDL_E_START) must(result);
                },
            .limit =
                [=] {
                    for (int32_t k = 0; k < subSteps; ++k) {
                        std::memcpy(masked->as<uint8_t>(), matrix->as<uint8_t>(), device.pixels);
                        copies->copyStream(0);
                        copies->copyFrame(0);
                    }
                },
            .plain =
                [=] {
                    for (int32_t k = 0; k < subSteps; ++k) {
                        plain::maskSubGrid(masked->as<uint8_t>(), matrix->as<uint8_t>(), device.pixels, spacing, k);
                        copies->copyStream(0);
                        copies->copyFrame(0);
                        plain::scatter(target->as<int16_t>(), copies->frames.as<int16_t>(), device.pixels, spacing, k);
                    }
                }};
}

void addSpacedRows() {
    for (const int32_t spacing : {2, 3, 4, 16, 256})
        addRow("spaced run, s = " + std::to_string(spacing) + (spacing == 256 ? ", 4096 sub-steps" : ""), {2.2, 4},
               spacing < 16    ? 300
               : spacing == 16 ? 100
                               : 10,
               [=] { return spacedRun(1, spacing, std::min(spacing * spacing, 4096)); });
}

// How cost grows, one frame each: the points of the plot.
void addScaling() {
    for (const int chips : {1, 2, 4, 8, 16})
        addRow("scale/chips/" + std::to_string(chips), {}, 60, [=] { return frameRun(chips, 20); });
    for (const int frames : {1, 10, 100, 1000})
        addRow("scale/frames/" + std::to_string(frames), {}, frames < 1000 ? 60 : 10,
               [=] { return frameRun(1, frames); });
    for (const int spacing : {2, 4, 8, 16, 32})
        addRow("scale/spacing/" + std::to_string(spacing), {}, spacing < 16 ? 30 : 10,
               [=] { return spacedRun(1, spacing, spacing * spacing); });
}

}  // namespace

void addRows() {
    addRow("sum of one exposure", {1.25, 5}, 60, sum);
    addSpacedRows();
    for (const int count : {1, 100, 1000})
        addRow("frame run of " + std::to_string(count), {1.1},
               count == 1     ? 600
               : count == 100 ? 200
                              : 30,
               [=] { return frameRun(1, count); });
    addRow("first run of 1000 frames, fresh buffer", {2}, 15, freshBuffer);
    addRow("fast run of 1000", {1.1}, 30, [] { return fastRun(1, 1000); });
    addScaling();
}

}  // namespace bench
