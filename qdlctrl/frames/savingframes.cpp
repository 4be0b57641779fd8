// SPDX-License-Identifier: MIT
#include "device/qdldevice.h"
#include "frames/framefiles.h"

// What saveFrame was asked for.
struct QdlDevice::SavePlan {
    const char* fileName;
    uint32_t frameIndex;
    int32_t flags;

    bool has(int32_t flag) const { return (flags & flag) != 0; }
    bool oneFile() const { return has(SAVE_ONE_FILE); }
};

int32_t QdlDevice::saveFrame(const char* fileName, uint32_t frameIndex, int32_t flags) {
    CsLock cslock(csDevice);
    const SavePlan plan{fileName ? fileName : "", frameIndex, flags};
    const int32_t type = acqType;
    const bool fast = type == ACQ_STREAM || type == ACQ_STREAM_TO_FILE;
    if (plan.has(SAVE_RAW_STREAM) && !fast) return reportDevMsg(msg::noStreamToSave);
    if (type == ACQ_NONE || (type == ACQ_INTEGRAL && integralBuff.size() == 0)) return reportDevMsg(msg::nothingToSave);
    if (type == ACQ_INTEGRAL) return saveIntegral(plan);
    return fast ? saveStreamFrames(plan) : saveBufferFrames(plan);
}

int32_t QdlDevice::saveIntegral(const SavePlan& plan) {
    const uint32_t* const sum = integralBuff.dataUnderDeviceLock();
    if (plan.has(SAVE_BINARY)) return writeBinFile(plan.fileName, sum, frameSize * sizeof *sum, false);
    return writeAscii32(plan.fileName, sum, frameSize, false);
}

int32_t QdlDevice::saveBufferFrames(const SavePlan& plan) { return saveFrames(plan, frameBuff.filled); }

int32_t QdlDevice::saveStreamFrames(const SavePlan& plan) {
    const uint32_t filled = streamBuff.filled;
    if (!plan.has(SAVE_RAW_STREAM)) {
        // frameBuff is free after a fast acquisition and takes the frame in conversion.
        if (int32_t r = allocFrameBuff(frameSize)) return r;
    } else if (plan.has(SAVE_ALL_FRAMES) && plan.oneFile() && acqType == ACQ_STREAM) {
        return writeBinFile(plan.fileName, streamBuff.dataUnderDeviceLock(),
                            std::size_t{filled} * streamFrameSize * sizeof(uint16_t), false);
    }
    return saveFrames(plan, filled);
}

int32_t QdlDevice::saveFrames(const SavePlan& plan, uint32_t filled) {
    if (!plan.has(SAVE_ALL_FRAMES)) {
        if (plan.frameIndex >= filled)
            return reportDevMsg(msg::noSuchFrameToSave, static_cast<int32_t>(plan.frameIndex), filled);
        return saveOneFrame(plan, plan.frameIndex, plan.fileName, false);
    }
    for (uint32_t i = 0; i < filled; ++i) {
        const FileName numbered = numberedName(plan.fileName, i);
        const char* const target = plan.oneFile() ? plan.fileName : numbered.text;
        if (int32_t r = saveOneFrame(plan, i, target, plan.oneFile() && i > 0)) return r;
    }
    return QDL_OK;
}

int32_t QdlDevice::saveOneFrame(const SavePlan& plan, uint32_t i, const char* target, bool append) {
    if (acqType == ACQ_FRAMES || acqType == ACQ_FRAMES_TO_FILE) {
        int16_t* pixels = nullptr;
        if (int32_t r = fetchFrame(i, pixels)) return r;
        return writePixels(plan, target, pixels, append);
    }
    uint16_t* stream = nullptr;
    if (int32_t r = fetchStream(i, stream)) return r;
    if (plan.has(SAVE_RAW_STREAM)) return writeBinFile(target, stream, streamFrameSize * sizeof *stream, append);
    int16_t* const pixels = frameBuff.dataUnderDeviceLock();
    if (int32_t r = convertStream(stream, streamFrameSize, pixels, frameSize)) return r;
    return writePixels(plan, target, pixels, append);
}

// Frame i where it lies, or read back from its file. A frame that a spaced run is putting together must not be
// overwritten by that, should the info callback of the run save; the run's other buffer is free then.
int32_t QdlDevice::fetchFrame(uint32_t i, int16_t*& pixels) {
    pixels = frameBuff.dataUnderDeviceLock();
    if (acqType == ACQ_FRAMES) {
        pixels += std::size_t{i} * frameSize;
        return QDL_OK;
    }
    if (acquiring && spacingFrame) pixels = spacingFrame.get();
    return readAsciiFile(runFile(acqType, frameBuff.filled, i).name, pixels, frameSize);
}

int32_t QdlDevice::fetchStream(uint32_t i, uint16_t*& stream) {
    stream = streamBuff.dataUnderDeviceLock();
    if (acqType == ACQ_STREAM) {
        stream += std::size_t{i} * streamFrameSize;
        return QDL_OK;
    }
    return readBinFile(runFile(acqType, streamBuff.filled, i).name, stream, streamFrameSize * sizeof *stream);
}

int32_t QdlDevice::writePixels(const SavePlan& plan, const char* target, const int16_t* pixels, bool append) {
    if (plan.has(SAVE_BINARY)) return writeBinFile(target, pixels, frameSize * sizeof *pixels, append);
    return writeAscii16(target, pixels, frameSize, append);
}
