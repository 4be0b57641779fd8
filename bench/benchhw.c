/* SPDX-License-Identifier: MIT */
/* HW library of the benchmarks: it copies a prepared stream and a prepared frame, and does nothing else. */
#include "benchhw.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "qdlhw.h"

typedef struct Device {
    DevInfo info;
    uint16_t* stream;
    int16_t* frame;
    uint32_t pixels;
    uint32_t work;
    uint32_t startsLeft; /* 0: no bound; 1: none left */
    double begin, times[2];
} Device;

static Device devices[BENCH_DEVICES];
static uint32_t lastGiven;

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + 1e-9 * (double)time.tv_nsec;
}

static int32_t prepareDevice(uint32_t id) {
    Device* const device = &devices[id];
    const uint32_t chips = 1u << id;
    const uint32_t words = (chips * QDL_CHIP_STREAM_BYTES + 1) / 2;
    if (!device->stream) device->stream = aligned_alloc(64, (words * sizeof *device->stream + 63) / 64 * 64);
    if (!device->frame) device->frame = aligned_alloc(64, chips * QDL_CHIP_PIXELS * sizeof *device->frame);
    if (!device->stream || !device->frame) return -1;
    for (uint32_t word = 0; word < words; ++word)
        device->stream[word] = (uint16_t)(word * 40503u);
    device->pixels = chips * QDL_CHIP_PIXELS;
    for (uint32_t pixel = 0; pixel < device->pixels; ++pixel)
        device->frame[pixel] = (int16_t)(pixel * 40503u >> 8 & 63);
    device->info.chipCount = chips;
    device->info.hwName = "Benchmark";
    strcpy(device->info.devName, "BENCH");
    device->work = BENCH_COPY_BOTH;
    return 0;
}

static int32_t firstDevice(uint32_t* id) {
    *id = lastGiven = 0;
    return prepareDevice(0);
}

static int32_t nextDevice(uint32_t* id) {
    if (lastGiven + 1 == BENCH_DEVICES) return 1;
    *id = ++lastGiven;
    return prepareDevice(*id);
}

static DevInfo* getDevInfo(uint32_t id) { return &devices[id].info; }

static int32_t getItemCount(void) { return BENCH_ITEMS; }

static int32_t getItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size) {
    if (index != BENCH_TIMES || *size < sizeof devices[id].times) return -1;
    item->type = QDL_TYPE_DOUBLE;
    item->count = 2;
    item->name = "times";
    memcpy(item->data, devices[id].times, sizeof devices[id].times);
    return 0;
}

static int32_t setItem(uint32_t id, uint32_t index, const void* data, uint32_t size) {
    Device* const device = &devices[id];
    if (index == BENCH_FRAME && size == device->pixels * sizeof *device->frame)
        memcpy(device->frame, data, size);
    else if (index == BENCH_WORK && size == sizeof device->work)
        memcpy(&device->work, data, size);
    else if (index == BENCH_STARTS && size == sizeof device->startsLeft)
        device->startsLeft = *(const uint32_t*)data ? *(const uint32_t*)data + 1 : 0;
    else
        return -1;
    return 0;
}

static int32_t startAcq(uint32_t id, double time) {
    (void)time;
    Device* const device = &devices[id];
    if (device->startsLeft == 1) return -1;
    if (device->startsLeft) --device->startsLeft;
    if (!(device->work & BENCH_TIME)) return 0;
    const double before = device->begin;
    device->begin = now();
    device->times[1] = device->begin - before;
    return 0;
}

static int32_t stopAcq(uint32_t id) {
    if (devices[id].work & BENCH_TIME) devices[id].times[0] = now() - devices[id].begin;
    return 0;
}

static int32_t setDacs(uint32_t id, const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes) {
    (void)id, (void)dacs, (void)first, (void)second, (void)codes;
    return 0;
}

static int32_t setPixels(uint32_t id, const uint8_t* pixels) {
    (void)id, (void)pixels;
    return 0;
}

static int32_t doNothing(uint32_t id) {
    (void)id;
    return 0;
}

static int32_t readMatrix(uint32_t id, uint16_t* buffer, uint32_t words) {
    if (devices[id].work & BENCH_COPY_STREAM) memcpy(buffer, devices[id].stream, words * sizeof *buffer);
    return 0;
}

static int32_t busyLine(uint32_t id, int16_t* state) {
    (void)id;
    *state = 0;
    return 0;
}

static int32_t streamToFrame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) {
    (void)stream, (void)words, (void)pixels;
    if (devices[id].work & BENCH_COPY_FRAME) memcpy(frame, devices[id].frame, devices[id].pixels * sizeof *frame);
    return 0;
}

static int32_t pseudoToCounts(uint32_t id, int16_t* frame, uint32_t pixels, uint32_t one) {
    (void)id, (void)frame, (void)pixels, (void)one;
    return 0;
}

static const char* libError(void) { return "out of memory"; }

static const char* devError(uint32_t id) {
    (void)id;
    return "refused";
}

const MandatoryFuncs* getMandatoryFuncs(void) {
    static const MandatoryFuncs table = {
        .hwFirstDevice = firstDevice,
        .hwNextDevice = nextDevice,
        .hwGetDevInfo = getDevInfo,
        .hwGetItemCount = getItemCount,
        .hwGetItem = getItem,
        .hwSetItem = setItem,
        .hwStartAcq = startAcq,
        .hwStopAcq = stopAcq,
        .hwSetDacs = setDacs,
        .hwSetPixels = setPixels,
        .hwResetMatrix = doNothing,
        .hwReadMatrix = readMatrix,
        .hwPrepare = doNothing,
        .hwLibError = libError,
        .hwDevError = devError,
        .hwBusyLine = busyLine,
        .hwStreamToFrame = streamToFrame,
        .hwPseudoToCounts = pseudoToCounts,
    };
    return &table;
}
