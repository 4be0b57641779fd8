// SPDX-License-Identifier: MIT
// Reading results back. Nothing here takes the device lock or touches the message store: getters run beside runs.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "device/qdldevice.h"
#include "frames/framefiles.h"
#include "frames/pixelops.h"

namespace {

// A decoded frame, in the element type asked for.
void deliver(const int16_t* pixels, int16_t* buffer, std::size_t count) { std::copy_n(pixels, count, buffer); }
void deliver(const int16_t* pixels, uint32_t* buffer, std::size_t count) { pixelops::widen(pixels, buffer, count); }
void deliver(const int16_t* pixels, double* buffer, std::size_t count) { pixelops::widen(pixels, buffer, count); }

// A frame of sums, likewise.
void deliver(const uint32_t* counts, int16_t* buffer, std::size_t count) { pixelops::narrow(counts, buffer, count); }
void deliver(const uint32_t* counts, uint32_t* buffer, std::size_t count) { std::copy_n(counts, count, buffer); }
void deliver(const uint32_t* counts, double* buffer, std::size_t count) { pixelops::toDouble(counts, buffer, count); }

// Pixels that were decoded or loaded into the caller's own buffer.
void widenFrame(int16_t*, std::size_t) {}
void widenFrame(uint32_t* buffer, std::size_t count) { pixelops::widenInPlace(buffer, count); }
void widenFrame(double* buffer, std::size_t count) { pixelops::widenInPlace(buffer, count); }

template <class Element>
int16_t* asPixels(Element* buffer) {
    return reinterpret_cast<int16_t*>(buffer);
}

}  // namespace

int32_t QdlDevice::getFrame16(int16_t* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return readFrame(buffer, size, frameIndex, msg);
}

int32_t QdlDevice::getFrame32(uint32_t* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return readFrame(buffer, size, frameIndex, msg);
}

int32_t QdlDevice::getFrameDouble(double* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    return readFrame(buffer, size, frameIndex, msg);
}

template <class Element>
int32_t QdlDevice::readFrame(Element* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    if (size < frameSize)
        return formatToBuffer(msg, msg::bufferTooSmall, static_cast<int32_t>(size),
                              static_cast<int32_t>(frameSize.load()));
    switch (acqType) {
        case ACQ_FRAMES:
            return readDecoded(buffer, frameIndex, msg);
        case ACQ_STREAM:
            return readStream(buffer, frameIndex, msg);
        case ACQ_INTEGRAL:
            return readIntegral(buffer, msg);
        case ACQ_FRAMES_TO_FILE:
            return readTextFile(buffer, frameIndex, msg);
        case ACQ_STREAM_TO_FILE:
            return readRawFile(buffer, size, frameIndex, msg);
        default:
            return formatToBuffer(msg, msg::noAcquisition);
    }
}

template <class Element>
int32_t QdlDevice::readDecoded(Element* buffer, uint32_t frameIndex, char* msg) {
    CsLock cslockFrame(frameBuff.cs);
    // A run of another kind may have begun since the branch was chosen, and its count means other frames.
    const uint32_t filled = acqType == ACQ_FRAMES ? frameBuff.filled.load(std::memory_order_acquire) : 0;
    if (frameIndex >= filled) return frameNotReady(frameIndex, filled, msg);
    deliver(frameBuff.data() + std::size_t{frameIndex} * frameSize, buffer, frameSize);
    return QDL_OK;
}

template <class Element>
int32_t QdlDevice::readStream(Element* buffer, uint32_t frameIndex, char* msg) {
    CsLock cslocsStream(streamBuff.cs);
    const uint32_t filled = acqType == ACQ_STREAM ? streamBuff.filled.load(std::memory_order_acquire) : 0;
    if (frameIndex >= filled) return streamNotReady(frameIndex, filled, msg);
    const uint16_t* const stream = streamBuff.data() + std::size_t{frameIndex} * streamFrameSize;
    const int32_t r = convert(stream, streamFrameSize, asPixels(buffer), frameSize);
    if (r == QDL_OK)
        widenFrame(buffer, frameSize);
    else if (msg)
        formatToBuffer(msg, r == QDL_E_STREAM ? msg::streamFailedInFrame : msg::pseudoFailedInFrame,
                       static_cast<int32_t>(frameIndex), hwErrorText());
    return r;
}

template <class Element>
int32_t QdlDevice::readIntegral(Element* buffer, char* msg) {
    CsLock cslockIntegral(integralBuff.cs);
    if (integralBuff.size() == 0) return formatToBuffer(msg, msg::integralEmpty);
    deliver(integralBuff.data(), buffer, frameSize);
    return QDL_OK;
}

template <class Element>
int32_t QdlDevice::readTextFile(Element* buffer, uint32_t frameIndex, char* msg) {
    const RunFile file = runFile(ACQ_FRAMES_TO_FILE, frameBuff.filled, frameIndex);
    if (!file.finished) return formatToBuffer(msg, msg::frameFileNotReady, static_cast<int32_t>(frameIndex));
    return finishFileRead(loadFrameAscii(file.name, asPixels(buffer), msg), file, buffer, frameIndex, msg);
}

template <class Element>
int32_t QdlDevice::readRawFile(Element* buffer, uint32_t size, uint32_t frameIndex, char* msg) {
    const RunFile file = runFile(ACQ_STREAM_TO_FILE, streamBuff.filled, frameIndex);
    if (!file.finished) return formatToBuffer(msg, msg::frameFileNotReady, static_cast<int32_t>(frameIndex));
    return finishFileRead(loadFrameStream(file.name, asPixels(buffer), size, msg), file, buffer, frameIndex, msg);
}

// A run that began meanwhile may have replaced the file under the read.
template <class Element>
int32_t QdlDevice::finishFileRead(int32_t result, const RunFile& file, Element* buffer, uint32_t frameIndex,
                                  char* msg) {
    if (isStale(file)) return formatToBuffer(msg, msg::frameFileNotReady, static_cast<int32_t>(frameIndex));
    if (result == QDL_OK) widenFrame(buffer, frameSize);
    return result;
}

int32_t QdlDevice::loadFrameAscii(const char* path, int16_t* buffer, char* msg) const {
    const File file = openUnbuffered(path, "r");
    if (!file) return formatToBuffer(msg, msg::openForReadingFailed, path, std::strerror(errno));
    return readItems(file.get(), buffer, frameSize) ? QDL_OK : formatToBuffer(msg, msg::readFrameFailed, path);
}

int32_t QdlDevice::loadFrameStream(const char* path, int16_t* buffer, uint32_t size, char* msg) const {
    const uint32_t words = streamFrameSize;
    const std::unique_ptr<uint16_t[]> scratch(new (std::nothrow) uint16_t[words]);
    if (!scratch)
        return formatToBuffer(msg, msg::allocationFailed, int64_t{words} * static_cast<int64_t>(sizeof(uint16_t)));
    const File file = openUnbuffered(path, "rb");
    if (!file) return formatToBuffer(msg, msg::openForReadingFailed, path, std::strerror(errno));
    if (std::fread(scratch.get(), sizeof(uint16_t), words, file.get()) < words)
        return formatToBuffer(msg, msg::readFrameFailed, path);
    if (int32_t r = convert(scratch.get(), words, buffer, size))
        return formatToBuffer(msg, r == QDL_E_STREAM ? msg::streamFailedInFile : msg::pseudoFailedInFile, path);
    return QDL_OK;
}

// What getFrameInfo tells of the last or running acquisition.
struct QdlDevice::RunState {
    int32_t type;
    uint32_t frames, rawFrames, summed;
    double time;
};

// All of one run, without a lock: read again if a run began meanwhile.
QdlDevice::RunState QdlDevice::runState() const {
    for (;;) {
        const uint32_t number = runNumber;
        const RunState state{acqType, frameBuff.filled, streamBuff.filled, integralBuff.filled, acqTime};
        if (number == runNumber) return state;
    }
}

int32_t QdlDevice::getFrameInfo(int32_t infoType, uint32_t frameIndex, void* buffer, int32_t size, char* msg) const {
    static constexpr std::array<int32_t, 1> frameInfoSizes{sizeof(double)};
    const RunState run = runState();
    if (run.type == ACQ_INTEGRAL && run.summed == 0) return formatToBuffer(msg, msg::integralEmpty);
    if ((run.type == ACQ_FRAMES || run.type == ACQ_FRAMES_TO_FILE) && frameIndex >= run.frames)
        return frameNotReady(frameIndex, run.frames, msg);
    if ((run.type == ACQ_STREAM || run.type == ACQ_STREAM_TO_FILE) && frameIndex >= run.rawFrames)
        return streamNotReady(frameIndex, run.rawFrames, msg);
    if (infoType < 0 || infoType >= static_cast<int32_t>(frameInfoSizes.size()))
        return formatToBuffer(msg, msg::invalidInfoType, infoType);
    const int32_t required = frameInfoSizes[static_cast<std::size_t>(infoType)];
    if (size < required) return formatToBuffer(msg, msg::invalidInfoSize, required, size);
    const double seconds = run.type == ACQ_INTEGRAL ? run.summed * run.time : run.time;
    std::memcpy(buffer, &seconds, sizeof seconds);
    return QDL_OK;
}

int32_t QdlDevice::frameNotReady(uint32_t frameIndex, uint32_t filled, char* msg) const {
    const uint32_t pixels = frameSize;
    return formatToBuffer(msg, msg::frameNotReady, static_cast<int32_t>(frameIndex),
                          static_cast<int32_t>(pixels ? frameBuff.size() / pixels : 0), static_cast<int32_t>(filled));
}

int32_t QdlDevice::streamNotReady(uint32_t frameIndex, uint32_t filled, char* msg) const {
    const uint32_t words = streamFrameSize;
    return formatToBuffer(msg, msg::streamFrameNotReady, static_cast<int32_t>(frameIndex),
                          static_cast<int32_t>(words ? streamBuff.size() / words : 0), static_cast<int32_t>(filled));
}

int32_t QdlDevice::stream2Frame(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const {
    return convert(stream, words, frame, pixels);
}
