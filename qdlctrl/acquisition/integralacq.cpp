// SPDX-License-Identifier: MIT
#include "acquisition/runscope.h"
#include "frames/pixelops.h"

int32_t QdlDevice::performIntegralAcq(int32_t count, double time) {
    CsLock cslock(csDevice);
    if (int32_t r = checkCanAcquire()) return r;
    RunScope scope(*this);
    const RunPlan plan{count, time, acqSpacing, nullptr};
    resetAcqState();
    if (int32_t r = allocStreamBuff(streamFrameSize)) return r;
    if (int32_t r = allocFrameBuff(frameSize)) return r;
    if (int32_t r = allocIntegralBuff(frameSize)) return r;
    beginAcq(ACQ_INTEGRAL, count, time);
    if (int32_t r = resetMatrix()) return r;
    if (plan.spacing > 1)
        if (int32_t r = saveMatrix()) return r;
    return endSpacedRun(plan, takeIntegral(plan));
}

int32_t QdlDevice::takeIntegral(const RunPlan& plan) {
    for (int32_t i = 0; i < plan.count; ++i) {
        acqIndex = i;
        if (int32_t r = takeIntegralFrame(plan)) return r;
        integralBuff.filled.fetch_add(1, std::memory_order_release);
        notifyAcqComplete();
    }
    return QDL_OK;
}

int32_t QdlDevice::takeIntegralFrame(const RunPlan& plan) {
    uint16_t* const stream = streamBuff.dataUnderDeviceLock();
    for (int32_t k = 0; k < plan.subSteps(); ++k) {
        if (int32_t r = exposeSubStep(plan, k, stream)) return r;
        if (int32_t r = convertStream(stream, streamBuff.size(), frameBuff.dataUnderDeviceLock(), frameBuff.size()))
            return r;
        addExposure(plan.spacing, k);
        if (takeAbort()) return QDL_E_ABORTED;
    }
    return QDL_OK;
}

// Adds the decoded exposure in frameBuff to the sum, or with spacing assigns the pixels that were open. A reader sees
// the sum before or after, never in the middle.
void QdlDevice::addExposure(int32_t spacing, int32_t k) {
    const int16_t* const frame = frameBuff.dataUnderDeviceLock();
    CsLock cslockIntegral(integralBuff.cs);
    if (spacing > 1)
        pixelops::scatter(integralBuff.data(), frame, currentCfg.chipCount, SubGrid(spacing, k));
    else
        pixelops::addFrame(integralBuff.data(), frame, frameSize);
}
