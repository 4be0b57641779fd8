// SPDX-License-Identifier: MIT
// The clock of software-timed exposures.
#pragma once

#include <atomic>
#include <cstdint>

double getTimeSec();

// Gives the processor up; the time is cut to whole milliseconds.
void sleepSec(double seconds);

// Waits for the time, or until the flag is set. The last 0.02 s are spent looking at the clock without a pause, since
// a sleep can end late by milliseconds and an exposure must not.
void waitSec(double seconds, const std::atomic<int32_t>& flag);
