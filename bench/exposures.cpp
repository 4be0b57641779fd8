// SPDX-License-Identifier: MIT
// What the library adds to the time of an exposure that it times itself.
#include "device.h"
#include "rounds.h"

namespace bench {
namespace {

// Two exposures as the HW library sees them, seconds beyond the time asked for: from start to stop, and from one start
// to the next. The copies are in the second one: a HW library that delivers data cannot do less.
std::array<double, 2> excess(uint32_t chips, int milliseconds) {
    const Device device(chips);
    device.setWork(BENCH_COPY_BOTH | BENCH_TIME);
    must(setHwTimer(device.id, HW_TIMER_NEVER));
    must(performFrameAcq(device.id, 2, 0.0, 0, nullptr));
    must(performFrameAcq(device.id, 2, milliseconds * 1e-3, 0, nullptr));
    const auto [exposure, cycle] = device.times();
    return {exposure - milliseconds * 1e-3, cycle - milliseconds * 1e-3};
}

}  // namespace

void addRows() {
    for (const int milliseconds : {1, 2, 5, 10, 20, 50, 100})
        addNumber("overshoot of " + std::to_string(milliseconds) + " ms", 5.0, milliseconds < 20 ? 51 : 15,
                  [=] { return excess(1, milliseconds)[0] * 1e6; });
    for (const uint32_t chips : {1u, 4u, 16u})
        for (const int milliseconds : {1, 10, 100})
            addNumber("dead time/" + std::to_string(chips) + " chips/" + std::to_string(milliseconds) + " ms", 0,
                      milliseconds < 100 ? 51 : 15, [=] { return excess(chips, milliseconds)[1] * 1e6; });
}

}  // namespace bench
