// SPDX-License-Identifier: MIT
#include "acquisition/runscope.h"
#include "frames/framefiles.h"

int32_t QdlDevice::performFastAcq(int32_t count, double time, bool saveToFile, const char* fileName) {
    CsLock cslock(csDevice);
    if (int32_t r = checkCanAcquire()) return r;
    RunScope scope(*this);
    // Unlike a frame acquisition, one that is refused for its name has dropped the last run already.
    resetAcqState();
    if (saveToFile && isEmpty(fileName)) return reportDevMsg(msg::fastFileNameMissing);
    constexpr int32_t noSpacing = 1;
    const RunPlan plan{count, time, noSpacing, saveToFile ? fileName : nullptr};
    setAcqFileName(plan.fileName);
    if (int32_t r = allocStreamBuff(int64_t{streamFrameSize} * (saveToFile ? 1 : count))) return r;
    beginAcq(saveToFile ? ACQ_STREAM_TO_FILE : ACQ_STREAM, count, time);
    if (int32_t r = resetMatrix()) return r;
    return endRun(takeFastFrames(plan));
}

// Between two exposures stand the callback and the checks, and in the file variant the write.
int32_t QdlDevice::takeFastFrames(const RunPlan& plan) {
    uint16_t* target = streamBuff.dataUnderDeviceLock();
    for (int32_t i = 0; i < plan.count; ++i) {
        acqIndex = i;
        if (int32_t r = exposeSubStep(plan, 0, target)) return r;
        if (!plan.fileName)
            target += streamFrameSize;
        else if (int32_t r = writeBinFile(numberedName(plan.fileName, static_cast<uint32_t>(i)), target,
                                          streamFrameSize * sizeof(uint16_t), false))
            return r;
        streamBuff.filled.fetch_add(1, std::memory_order_release);
        notifyAcqComplete();
        // After the frame is counted: a raw frame that was read out is never thrown away.
        if (takeAbort()) return QDL_E_ABORTED;
    }
    return QDL_OK;
}
