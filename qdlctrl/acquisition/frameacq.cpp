// SPDX-License-Identifier: MIT
#include "acquisition/runscope.h"
#include "frames/framefiles.h"
#include "frames/pixelops.h"

int32_t QdlDevice::performFrameAcq(int32_t count, double time, bool saveToFile, const char* fileName) {
    CsLock cslock(csDevice);
    if (int32_t r = checkCanAcquire()) return r;
    // Refused before anything changes: the frames of the last run stay readable.
    if (saveToFile && isEmpty(fileName)) return reportDevMsg(msg::frameFileNameMissing);
    RunScope scope(*this);
    const RunPlan plan{count, time, acqSpacing, saveToFile ? fileName : nullptr};
    resetAcqState();
    setAcqFileName(plan.fileName);
    if (int32_t r = allocStreamBuff(streamFrameSize)) return r;
    if (int32_t r = allocFrameBuff(int64_t{frameSize} * (saveToFile ? 1 : count))) return r;
    beginAcq(saveToFile ? ACQ_FRAMES_TO_FILE : ACQ_FRAMES, count, time);
    if (plan.spacing > 1) {
        if (int32_t r = allocSpacingFrame()) return r;
        if (int32_t r = saveMatrix()) return r;
    }
    if (int32_t r = resetMatrix()) return r;
    return endSpacedRun(plan, takeFrames(plan));
}

int32_t QdlDevice::takeFrames(const RunPlan& plan) {
    int16_t* target = frameBuff.dataUnderDeviceLock();
    for (int32_t i = 0; i < plan.count; ++i) {
        acqIndex = i;
        if (int32_t r = takeFrame(plan, target)) return r;
        if (!plan.fileName)
            target += frameSize;
        else if (int32_t r =
                     writeAscii16(numberedName(plan.fileName, static_cast<uint32_t>(i)), target, frameSize, false))
            return r;
        frameBuff.filled.fetch_add(1, std::memory_order_release);
        notifyAcqComplete();
    }
    return QDL_OK;
}

int32_t QdlDevice::takeFrame(const RunPlan& plan, int16_t* target) {
    uint16_t* const stream = streamBuff.dataUnderDeviceLock();
    const bool spaced = plan.spacing > 1;
    for (int32_t k = 0; k < plan.subSteps(); ++k) {
        if (int32_t r = exposeSubStep(plan, k, stream)) return r;
        if (int32_t r = convertStream(stream, streamBuff.size(), spaced ? spacingFrame.get() : target, frameSize))
            return r;
        if (spaced) pixelops::scatter(target, spacingFrame.get(), currentCfg.chipCount, SubGrid(plan.spacing, k));
        if (takeAbort()) return QDL_E_ABORTED;
    }
    return QDL_OK;
}
