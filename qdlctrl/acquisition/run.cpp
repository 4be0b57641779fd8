// SPDX-License-Identifier: MIT
// What the acquisitions share.
#include "device/qdldevice.h"
#include "frames/pixelops.h"

int32_t QdlDevice::checkCanAcquire() {
    // A callback of the running acquisition holds the device lock too and would get through to here.
    if (acquiring) return reportDevMsg(msg::acquisitionInProgress);
    return checkInitialized();
}

void QdlDevice::beginAcq(int32_t type, int32_t count, double time) {
    acqCount = count;
    acqTime = time;
    acqType = type;
}

int32_t QdlDevice::resetMatrix() { return fromHw(funcs.hwResetMatrix(hwID), msg::resetFailed); }

// One exposure of sub-step k into `buffer`, made anew when its read-out is lost. A link that never comes back ends the
// run, as an abort if one was asked for.
int32_t QdlDevice::exposeSubStep(const RunPlan& plan, int32_t k, uint16_t* buffer) {
    constexpr int32_t maxRepeats = 100;
    for (int32_t repeats = 0; repeats <= maxRepeats; ++repeats) {
        if (plan.spacing > 1)
            if (int32_t r = setSpacingStep(SubGrid(plan.spacing, k))) return r;
        const int32_t r = exposeAndRead(buffer, streamFrameSize, plan.time);
        if (r != QDL_E_READOUT) return r;
        ++lostFrames;
    }
    return takeAbort() ? QDL_E_ABORTED : QDL_E_READOUT;
}

// An abort that was honoured is told here, once everything is put back in order.
int32_t QdlDevice::endRun(int32_t outcome) { return outcome == QDL_E_ABORTED ? reportDevMsg(msg::aborted) : outcome; }
