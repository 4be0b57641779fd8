// SPDX-License-Identifier: MIT
// Ctrl-C and SIGTERM while a run is on: the first two are only noted, the third ends the program at once.
#pragma once

class InterruptWatch {
 public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    static int count();
    // Throws the Failure of an interrupted program if there was a signal.
    static void check();
};

// While it lives, threads that are started do not take the two signals, so that no system call of theirs is disturbed.
class SignalsBlocked {
 public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
};
