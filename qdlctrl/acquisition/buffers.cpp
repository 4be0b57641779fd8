// SPDX-License-Identifier: MIT
// The memory of results and the state of the last or running acquisition.
#include <algorithm>
#include <new>

#include "device/qdldevice.h"

int32_t QdlDevice::getAcqInfo(int32_t* index, int32_t* count, int32_t* type) {
    CsLock cslock(csDevice);
    if (acqType < 0) return QDL_E_FAILED;
    *index = acqIndex;
    *count = acqCount;
    *type = acqType;
    return QDL_OK;
}

void QdlDevice::freeBuffers() { freeOrDefer(allBuffers); }
void QdlDevice::freeStreamBuff() { freeOrDefer(streamBuffer); }
void QdlDevice::freeFrameBuff() { freeOrDefer(frameBuffer); }
void QdlDevice::freeIntegralBuff() { freeOrDefer(integralBuffer); }

void QdlDevice::freeOrDefer(unsigned buffers) {
    CsLock cslock(csDevice);
    if (acquiring)
        deferredFrees |= buffers;  // a callback of the run, which still writes to them
    else
        freeAll(buffers);
}

void QdlDevice::freeAll(unsigned buffers) {
    const auto free = [](auto& buff) {
        CsLock lock(buff.cs);
        buff.release();
    };
    if (buffers & streamBuffer) free(streamBuff);
    if (buffers & frameBuffer) free(frameBuff);
    if (buffers & integralBuffer) free(integralBuff);
    if (buffers & spacingBuffer) spacingFrame.reset();
}

template <class Element>
int32_t QdlDevice::allocBuff(AcqBuffer<Element>& buff, int64_t elements) {
    if (buff.size() == elements) return QDL_OK;
    {
        CsLock lock(buff.cs);
        if (buff.replace(elements)) return QDL_OK;
    }
    return reportDevMsg(msg::allocationFailed, elements * static_cast<int64_t>(sizeof(Element)));
}

int32_t QdlDevice::allocStreamBuff(int64_t words) { return allocBuff(streamBuff, words); }

int32_t QdlDevice::allocFrameBuff(int64_t pixels) { return allocBuff(frameBuff, pixels); }

int32_t QdlDevice::allocIntegralBuff(int64_t pixels) {
    if (int32_t r = allocBuff(integralBuff, pixels)) return r;
    CsLock lock(integralBuff.cs);
    std::fill_n(integralBuff.data(), integralBuff.size(), 0u);
    return QDL_OK;
}

int32_t QdlDevice::allocSpacingFrame() {
    if (!spacingFrame) spacingFrame.reset(new (std::nothrow) int16_t[frameSize]);
    if (spacingFrame) return QDL_OK;
    return reportDevMsg(msg::allocationFailed, int64_t{frameSize} * static_cast<int64_t>(sizeof(int16_t)));
}

void QdlDevice::resetAcqState() {
    acqType = ACQ_NONE;
    // Under the locks, so that a getter that is copying a frame of the last run ends before this one overwrites it.
    const auto reset = [](auto& buff) {
        CsLock lock(buff.cs);
        buff.filled = 0;
    };
    reset(streamBuff);
    reset(frameBuff);
    reset(integralBuff);
    lostFrames = 0;
    acqCount = 0;
    CsLock lock(csRunFiles);
    ++runNumber;
}

void QdlDevice::setAcqFileName(const char* fileName) {
    CsLock lock(csRunFiles);
    acqFileName = fileName ? fileName : "";
}

// Not finished if the last run is of another kind by now.
QdlDevice::RunFile QdlDevice::runFile(int32_t type, const std::atomic<uint32_t>& filled, uint32_t frameIndex) {
    CsLock lock(csRunFiles);
    const bool finished = acqType == type && frameIndex < filled.load(std::memory_order_acquire);
    return {numberedName(acqFileName.c_str(), frameIndex), finished, runNumber};
}
