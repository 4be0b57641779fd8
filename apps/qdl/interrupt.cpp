// SPDX-License-Identifier: MIT
#include "interrupt.h"

#include "failure.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<int> signals = 0;
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler may use it");

void onSignal(int) {
    if (++signals >= 3) _exit(static_cast<int>(ExitStatus::Interrupted));
}

void setHandler(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void maskSignals(int how) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(how, &set, nullptr);
}

}  // namespace

InterruptWatch::InterruptWatch() { setHandler(onSignal); }
InterruptWatch::~InterruptWatch() { setHandler(SIG_DFL); }

int InterruptWatch::count() { return signals; }

void InterruptWatch::check() {
    if (count() > 0) throw Failure(ExitStatus::Interrupted, "interrupted");
}

SignalsBlocked::SignalsBlocked() { maskSignals(SIG_BLOCK); }
SignalsBlocked::~SignalsBlocked() { maskSignals(SIG_UNBLOCK); }
