// SPDX-License-Identifier: MIT
#include "acquisition/clock.h"

#include "platform/platform.h"

double getTimeSec() { return platform::monotonicSeconds(); }

void sleepSec(double seconds) { platform::sleepMilliseconds(static_cast<unsigned>(seconds * 1000.0)); }

void waitSec(double seconds, const std::atomic<int32_t>& flag) {
    constexpr double spinSeconds = 0.02;
    constexpr double napSeconds = 0.01;
    const double start = getTimeSec();
    while (seconds - (getTimeSec() - start) > spinSeconds) {
        if (flag) return;
        sleepSec(napSeconds);
    }
    while (getTimeSec() - start < seconds && !flag) {
    }
}
