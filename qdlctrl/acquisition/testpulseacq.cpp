// SPDX-License-Identifier: MIT
#include "acquisition/runscope.h"
#include "frames/pixelops.h"

// Arguments for the HW library, not interpreted here.
struct QdlDevice::TestPulses {
    double arg1;
    double arg2;
    uint8_t arg3;
    uint16_t arg4;
};

int32_t QdlDevice::performTestPulseAcq(double pulseArg1, double pulseArg2, uint8_t pulseArg3, uint16_t pulseArg4) {
    CsLock cslock(csDevice);
    if (int32_t r = checkCanAcquire()) return r;
    RunScope scope(*this);
    const int32_t spacing = acqSpacing;
    resetAcqState();
    if (int32_t r = allocStreamBuff(streamFrameSize)) return r;
    if (int32_t r = allocFrameBuff(frameSize)) return r;
    if (int32_t r = allocIntegralBuff(frameSize)) return r;
    beginAcq(ACQ_INTEGRAL, 1, 1.0);
    acqIndex = 0;
    devInfo->hwTimerUsed = 0;
    currentCfg.setTestBit(0);
    int32_t outcome = spacing > 1 ? saveMatrix() : QDL_OK;
    const bool saved = spacing > 1 && outcome == QDL_OK;
    if (outcome == QDL_OK) outcome = takeTestPulses({pulseArg1, pulseArg2, pulseArg3, pulseArg4}, spacing);
    if (saved) putMatrixBack();
    currentCfg.setTestBit(1);
    if (int32_t r = sendAndEndRun(outcome)) return r;
    integralBuff.filled.store(1, std::memory_order_release);
    notifyAcqComplete();
    return QDL_OK;
}

int32_t QdlDevice::takeTestPulses(const TestPulses& pulses, int32_t spacing) {
    if (int32_t r = sendPixelsCfg()) return r;
    if (int32_t r = resetMatrix()) return r;
    uint16_t* const stream = streamBuff.dataUnderDeviceLock();
    for (int32_t k = 0; k < spacing * spacing; ++k) {
        if (spacing > 1)
            if (int32_t r = setSpacingStep(SubGrid(spacing, k))) return r;
        if (int32_t r = fromHw(funcs.hwTestPulses(hwID, pulses.arg1, pulses.arg2, pulses.arg3, pulses.arg4),
                               msg::testPulsesFailed))
            return r;
        // Unlike an exposure, pulses whose read-out is lost are not given again.
        if (int32_t r = fromHw(funcs.hwReadMatrix(hwID, stream, streamBuff.size()), msg::readoutFailed)) return r;
        if (int32_t r = convertStream(stream, streamBuff.size(), frameBuff.dataUnderDeviceLock(), frameBuff.size()))
            return r;
        addExposure(spacing, k);
        if (takeAbort()) return QDL_E_ABORTED;
    }
    return QDL_OK;
}
