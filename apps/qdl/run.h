// SPDX-License-Identifier: MIT
// One acquisition: the library call on a thread of its own, watched for its end, for Ctrl-C and for the time-out.
#pragma once

#include "session.h"
#include "terminal.h"

enum class Mode { Frame, Integral, Fast, TestPulse };
constexpr const char* modeNames[] = {"frame", "integral", "fast", "testpulse"};

struct RunRequest {
    Mode mode = Mode::Frame;
    uint32_t frames = 1;
    double seconds = 0;  // of each exposure
    int32_t spacing = 1;
    std::string toFiles;  // base name, or empty: frames stay in memory
    double pulse1 = 0, pulse2 = 0;
    uint8_t pulse3 = 0;
    uint16_t pulse4 = 0;

    uint32_t exposuresPerFrame() const;
    double expectedSeconds() const;
    // Twice the exposure time, half a second for each read-out, and ten seconds.
    double defaultTimeout() const;
};

struct RunResult {
    int32_t code = 0;        // of the library
    ProgressState progress;  // at the end
    bool interrupted = false;
    std::string timedOut;  // what it waited for; empty: in time
    bool stuck = false;    // the call has not come back, not even after an abort
};

// `timeout` in seconds, 0: none.
RunResult runAcquisition(Session& session, const Device& device, const RunRequest& request, double timeout);
