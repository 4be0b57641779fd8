/* SPDX-License-Identifier: MIT */
/* The smallest legal HW library: one device of one chip, without hardware behind it, so that its pixels count nothing.
 * Copy this folder, give module and device their names, and put your hardware where a comment says so. What each
 * function must do stands in qdlhw.h. */
#include <stdatomic.h>
#include <string.h>

#include "qdlhw.h"

enum { DEVICE_COUNT = 1, CHIPS = 1, COUNTER_BITS = 14, SENSING = 255 };

/* The control library writes the flags into this record and reads the rest. */
static DevInfo devInfo = {.polarity = 1, .chipCount = CHIPS, .devName = "TEMPLATE-1", .hwName = "Template"};

static uint32_t lastGiven;
/* Static texts only: hwDevError may come from a second thread. With several devices, keep one for each. */
static const char* const libFailure = "no failure";
static _Atomic(const char*) devFailure = "no failure";

static int32_t fail(const char* text) {
    devFailure = text;
    return -1;
}

/* Look for your devices here; failure means that there are none. */
static int32_t firstDevice(uint32_t* hwID) {
    *hwID = lastGiven = 0;
    return 0;
}

static int32_t nextDevice(uint32_t* hwID) {
    if (lastGiven + 1 >= DEVICE_COUNT) return 1;
    *hwID = ++lastGiven;
    return 0;
}

static DevInfo* getDevInfo(uint32_t id) {
    (void)id;
    return &devInfo;
}

/* Publish settings and readings of your interface as info items; this library has none. */
static int32_t getItemCount(void) { return 0; }

static int32_t getItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size) {
    (void)id, (void)index, (void)item, (void)size;
    return fail("no such info item");
}

static int32_t setItem(uint32_t id, uint32_t index, const void* data, uint32_t size) {
    (void)id, (void)index, (void)data, (void)size;
    return fail("no such info item");
}

/* Open the shutter. If devInfo.hwTimerUsed is 1, have the hardware close it after `time` seconds. */
static int32_t startAcq(uint32_t id, double time) {
    (void)id;
    return time >= 0.0 ? 0 : fail("exposure time must be 0 or more seconds");
}

/* Close the shutter, if it is open. */
static int32_t stopAcq(uint32_t id) {
    (void)id;
    return 0;
}

/* The meaning of the four arguments is yours. */
static int32_t testPulses(uint32_t id, double arg1, double arg2, uint8_t arg3, uint16_t arg4) {
    (void)id, (void)arg1, (void)arg2, (void)arg3, (void)arg4;
    return fail("device has no test pulses");
}

/* Send 13 bytes to each chip; with first == SENSING also select what readAnalog reads, by one code for each chip. */
static int32_t setDacs(uint32_t id, const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes) {
    (void)id, (void)dacs, (void)second;
    return first != SENSING || codes ? 0 : fail("no sense codes");
}

static int32_t readAnalog(uint32_t id, uint32_t chip, double* value) {
    (void)id, (void)chip, (void)value;
    return fail("device has no analog read-out");
}

/* Send one byte for each pixel. */
static int32_t setPixels(uint32_t id, const uint8_t* pixels) {
    (void)id, (void)pixels;
    return 0;
}

/* Clear the counters. */
static int32_t resetMatrix(uint32_t id) {
    (void)id;
    return 0;
}

/* Write what the chips send: 14 bits a pixel, and a closing byte for each chip. */
static int32_t readMatrix(uint32_t id, uint16_t* buffer, uint32_t words) {
    (void)id;
    if (words < (CHIPS * QDL_CHIP_STREAM_BYTES + 1) / 2) return fail("stream buffer is too small");
    memset(buffer, 0, words * sizeof *buffer);
    return 0;
}

static int32_t prepare(uint32_t id) {
    (void)id;
    return 0;
}

/* Report 1 while the shutter is open. */
static int32_t busyLine(uint32_t id, int16_t* state) {
    (void)id;
    *state = 0;
    return 0;
}

static const char* libError(void) { return libFailure; }

static const char* devError(uint32_t id) {
    (void)id;
    return devFailure;
}

static uint16_t pixelBits(const uint8_t* chip, uint32_t pixel) {
    uint16_t value = 0;
    for (uint32_t bit = 0; bit < COUNTER_BITS; ++bit) {
        const uint32_t at = pixel * COUNTER_BITS + bit;
        value |= (uint16_t)((chip[at / 8] >> at % 8 & 1) << bit);
    }
    return value;
}

/* Take the bits apart in the order in which your chips send them. */
static int32_t streamToFrame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) {
    (void)id;
    if (words < (CHIPS * QDL_CHIP_STREAM_BYTES + 1) / 2) return fail("stream is too short");
    if (pixels < CHIPS * QDL_CHIP_PIXELS) return fail("frame is too small");
    for (uint32_t chip = 0; chip < CHIPS; ++chip)
        for (uint32_t pixel = 0; pixel < QDL_CHIP_PIXELS; ++pixel)
            frame[chip * QDL_CHIP_PIXELS + pixel] =
                (int16_t)pixelBits((const uint8_t*)stream + chip * QDL_CHIP_STREAM_BYTES, pixel);
    return 0;
}

/* These counters count in binary. If yours are shift registers, look the counts up here. */
static int32_t pseudoToCounts(uint32_t id, int16_t* frame, uint32_t pixels, uint32_t one) {
    (void)id, (void)frame, (void)pixels, (void)one;
    return 0;
}

static const MandatoryFuncs table = {
    .hwFirstDevice = firstDevice,
    .hwNextDevice = nextDevice,
    .hwGetDevInfo = getDevInfo,
    .hwGetItemCount = getItemCount,
    .hwGetItem = getItem,
    .hwSetItem = setItem,
    .hwStartAcq = startAcq,
    .hwStopAcq = stopAcq,
    .hwTestPulses = testPulses,
    .hwSetDacs = setDacs,
    .hwReadAnalog = readAnalog,
    .hwSetPixels = setPixels,
    .hwResetMatrix = resetMatrix,
    .hwReadMatrix = readMatrix,
    .hwPrepare = prepare,
    .hwLibError = libError,
    .hwDevError = devError,
    .hwBusyLine = busyLine,
    .hwStreamToFrame = streamToFrame,
    .hwPseudoToCounts = pseudoToCounts,
};

const MandatoryFuncs* getMandatoryFuncs(void) { return &table; }
