// SPDX-License-Identifier: MIT
#include "run.h"

#include "interrupt.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto drawInterval = std::chrono::milliseconds(100);
// A device that takes longer than that to stop after a time-out is given up.
constexpr double secondsToStop = 10;

// What the acquiring thread shares with the watching one. The thread owns its part of it: it may outlive the run.
struct SharedRun {
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    int32_t code = 0;
};

int32_t perform(const Api& api, uint32_t id, const RunRequest& request) {
    const int32_t frames = static_cast<int32_t>(request.frames);
    const bool toFiles = !request.toFiles.empty();
    switch (request.mode) {
        case Mode::Frame:
            return api.performFrameAcq(id, frames, request.seconds, toFiles, request.toFiles.c_str());
        case Mode::Fast:
            return api.performFastAcq(id, frames, request.seconds, toFiles, request.toFiles.c_str());
        case Mode::Integral:
            return api.performIntegralAcq(id, frames, request.seconds);
        case Mode::TestPulse:
            return api.performTestPulseAcq(id, request.pulse1, request.pulse2, request.pulse3, request.pulse4);
    }
    return QDL_E_ARGUMENT;
}

class Watch {
 public:
    Watch(Session& runSession, const Device& runDevice, const RunRequest& runRequest, double runTimeout)
        : session(runSession), device(runDevice), request(runRequest), timeout(runTimeout) {}

    RunResult run() {
        Inbox::instance().startRun();
        start = Clock::now();
        startThread();
        while (!waitForEnd())
            look();
        result.progress = state();
        if (result.stuck) thread.detach();
        if (!result.stuck) thread.join(), result.code = shared->code;
        line.erase();
        return result;
    }

 private:
    void startThread() {
        const SignalsBlocked blocked;
        thread = std::thread([state = shared, api = session.api(), id = device.id, wanted = request] {
            const int32_t code = perform(api, id, wanted);
            const std::lock_guard lock(state->mutex);
            state->code = code;
            state->done = true;
            state->ended.notify_one();
        });
    }

    bool waitForEnd() {
        if (result.stuck) return true;
        std::unique_lock lock(shared->mutex);
        return shared->ended.wait_for(lock, drawInterval, [this] { return shared->done; });
    }

    void look() {
        // The newest message may be that of the result, which is still to come.
        if (Inbox::instance().waiting() > 1) line.erase(), session.printMessages(1);
        if (InterruptWatch::count() > 0) interrupt();
        if (timeout > 0 && elapsed() > timeout) timeOut();
        line.draw(state());
    }

    void interrupt() {
        if (!result.interrupted) {
            line.erase();
            std::fputs("qdl: interrupted, stopping the run (Ctrl-C twice more ends at once)\n", stderr);
            session.api().abortOperation(device.id);
        }
        result.interrupted = true;
    }

    void timeOut() {
        if (result.timedOut.empty()) {
            const uint32_t frame = std::min(Inbox::instance().frames() + 1, request.frames);
            result.timedOut =
                formatted("timed out after %.1f s: waited for frame %u of %u", elapsed(), frame, request.frames);
            line.erase();
            std::fputs("qdl: time is up, stopping the run\n", stderr);
            abortedAt = elapsed();
            session.api().abortOperation(device.id);
        } else if (elapsed() - abortedAt > secondsToStop) {
            std::fprintf(stderr, "qdl: device %u did not stop within %.0f s and is left alone\n", device.id,
                         secondsToStop);
            result.stuck = true;
        }
    }

    double elapsed() const { return std::chrono::duration<double>(Clock::now() - start).count(); }

    ProgressState state() const {
        return {Inbox::instance().frames(), request.frames, Inbox::instance().lostReadouts(), elapsed(),
                request.expectedSeconds()};
    }

    Session& session;
    const Device& device;
    const RunRequest& request;
    const double timeout;
    std::shared_ptr<SharedRun> shared = std::make_shared<SharedRun>();
    std::thread thread;
    ProgressLine line;
    RunResult result;
    Clock::time_point start;
    double abortedAt = 0;
};

}  // namespace

uint32_t RunRequest::exposuresPerFrame() const {
    return mode == Mode::Fast ? 1 : static_cast<uint32_t>(spacing * spacing);
}

double RunRequest::expectedSeconds() const { return seconds * frames * exposuresPerFrame(); }

double RunRequest::defaultTimeout() const { return 2 * expectedSeconds() + 0.5 * frames * exposuresPerFrame() + 10; }

RunResult runAcquisition(Session& session, const Device& device, const RunRequest& request, double timeout) {
    return Watch(session, device, request, timeout).run();
}
