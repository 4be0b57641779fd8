// SPDX-License-Identifier: MIT
// One exposure from start to read-out, and the way from a stream to a frame.
#include "acquisition/clock.h"
#include "device/qdldevice.h"

int32_t QdlDevice::exposeAndRead(uint16_t* buffer, uint32_t words, double time) {
    constexpr double autoTimerLimitSeconds = 60.0;
    const int32_t mode = currentCfg.hwTimer;
    const bool hwTimes = mode == HW_TIMER_AUTO ? time < autoTimerLimitSeconds : mode == HW_TIMER_ALWAYS;
    devInfo->hwTimerUsed = hwTimes ? 1 : 0;
    if (int32_t r = fromHw(funcs.hwStartAcq(hwID, time), msg::startFailed)) return r;
    waitExposureEnd(time);
    if (int32_t r = fromHw(funcs.hwStopAcq(hwID), msg::stopFailed)) return r;
    return fromHw(funcs.hwReadMatrix(hwID, buffer, words), msg::readoutFailed);
}

void QdlDevice::waitExposureEnd(double time) {
    constexpr double pollSeconds = 0.02;
    if (!devInfo->hwTimerUsed && !devInfo->extShutter) {
        waitSec(time, abortFlag);
        return;
    }
    // A busy line that cannot be read ends the wait, not the exposure: stop and read-out still follow.
    int16_t busyLineState = 0;
    while (!fromHw(funcs.hwBusyLine(hwID, &busyLineState), msg::busyLineFailed) && busyLineState && !abortFlag)
        sleepSec(pollSeconds);
}

int32_t QdlDevice::convert(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const {
    if (funcs.hwStreamToFrame(hwID, stream, words, frame, pixels)) return QDL_E_STREAM;
    return funcs.hwPseudoToCounts(hwID, frame, pixels, 1) ? QDL_E_PSEUDO_RANDOM : QDL_OK;
}

int32_t QdlDevice::convertStream(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) {
    const int32_t r = convert(stream, words, frame, pixels);
    return fromHw(r, r == QDL_E_STREAM ? msg::streamFailed : msg::pseudoFailed);
}
