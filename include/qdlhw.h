/* SPDX-License-Identifier: MIT */
/* The HW library contract: what a module in the `hwlibs` folder offers to the control library.
 *
 * A HW library drives one kind of device. It is a shared module with one export, getMandatoryFuncs, that gives a
 * table of function pointers, valid while the module is loaded. Conventions of the table:
 *
 * 1. Devices. `id` is the HW library's own number of a device, as hwFirstDevice and hwNextDevice gave it.
 * 2. Results. 0 is success and any other value is failure, but for hwNextDevice. After a failure the control library
 *    asks hwDevError (hwLibError after hwFirstDevice and hwNextDevice) for the text that it hands to its host.
 * 3. Ownership. Texts and DevInfo records belong to the HW library and stay valid while it is loaded; the control
 *    library reads a text before its next call. Buffers belong to the caller and are valid during the call only.
 * 4. Threads. Calls for one device come one at a time, under the lock of that device, from whatever thread the host
 *    uses; calls for different devices may overlap. hwStreamToFrame, hwPseudoToCounts and hwDevError may also be
 *    entered from a second thread while another call for the same device runs, and hwGetItemCount from any thread.
 * 5. Units. Times are seconds, streams are counted in 16-bit words, frames in pixels, item values in bytes.
 *
 * Valid C11 and C++17. hwlibs/template is the smallest legal HW library: copy it to write your own.
 */
#ifndef QDLHW_H
#define QDLHW_H

#include "qdltypes.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define QDLHW_API __declspec(dllexport)
#else
#define QDLHW_API __attribute__((visibility("default")))
#endif

#define QDL_NAME_SIZE 64

/* What a HW library and the control library share about one device. Owned by the HW library. */
typedef struct DevInfo {
    uint32_t polarity;           /* written by the control library: flag, positive polarity */
    uint32_t cst;                /* written: flag CST */
    uint32_t extShutter;         /* written: flag, an external shutter ends the exposure */
    uint32_t hwTimerUsed;        /* written before hwStartAcq: 1, the hardware times the exposure; 0, the host does */
    uint32_t chipCount;          /* read: number of chips, constant while the module is loaded */
    uint32_t infoValue;          /* read: a number for the host, not interpreted */
    uint32_t reserved[2];        /* neither read nor written */
    uint32_t spareFSR;           /* written: flag */
    char devName[QDL_NAME_SIZE]; /* read: name of this device, such as a serial number */
    const char* hwName;          /* read: name of the kind of hardware, never null */
} DevInfo;

/* The table. Positions count from 0; the reserved ones are never called and may be null. */
typedef struct MandatoryFuncs {
    void (*reserved0)(void);

    /* 1: writes the number of the first device. Any failure means that there is none, and is reported. */
    int32_t (*hwFirstDevice)(uint32_t* hwID);

    /* 2: writes the number of the device after the one given out last. Above 0: no more devices; below 0: failure. */
    int32_t (*hwNextDevice)(uint32_t* hwID);

    /* 3: gives the record of a device, never null. Called once, when the device is made known. */
    DevInfo* (*hwGetDevInfo)(uint32_t id);

    void (*reserved4)(void);

    /* 5: gives the number of info items, the same for all devices of the library. */
    int32_t (*hwGetItemCount)(void);

    /* 6: fills the record of item `index` (0-based) and writes its value to item->data, an area of *size bytes.
     * Too small an area: failure, with *size set to the bytes needed. Failure with *size unchanged: no such value. */
    int32_t (*hwGetItem)(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size);

    /* 7: takes a value of `size` bytes for item `index`. */
    int32_t (*hwSetItem)(uint32_t id, uint32_t index, const void* data, uint32_t size);

    /* 8: begins an exposure. With DevInfo.hwTimerUsed 1 the hardware ends it after `time` seconds and tells so on the
     * busy line; with 0 the control library waits and calls hwStopAcq. */
    int32_t (*hwStartAcq)(uint32_t id, double time);

    /* 9: ends the exposure, also one that was aborted early. */
    int32_t (*hwStopAcq)(uint32_t id);

    void (*reserved10)(void);
    void (*reserved11)(void);
    void (*reserved12)(void);

    /* 13: gives test pulses to the pixels whose test bit is 0. The four arguments come from the host unchanged. */
    int32_t (*hwTestPulses)(uint32_t id, double arg1, double arg2, uint8_t arg3, uint16_t arg4);

    /* 14: takes the DAC values of all chips, 13 bytes for each chip, chip 0 first.
     * first 0, second 0, codes null: plain sending. first 255, second 0: `codes` holds one sense code for each chip,
     * which selects the DAC whose analog value hwReadAnalog reads next. */
    int32_t (*hwSetDacs)(uint32_t id, const uint8_t* dacs, uint8_t first, uint8_t second, const uint32_t* codes);

    /* 15: writes the analog value of the DAC selected on `chip` (0-based), after a sensing hwSetDacs. */
    int32_t (*hwReadAnalog)(uint32_t id, uint32_t chip, double* value);

    /* 16: takes the pixel matrix, one configuration byte for each pixel, [chip][y][x], always of all chips. */
    int32_t (*hwSetPixels)(uint32_t id, const uint8_t* pixels);

    /* 17: clears the counters of the pixel matrix, without an exposure. */
    int32_t (*hwResetMatrix)(uint32_t id);

    /* 18: reads all chips out into `words` 16-bit words, (chips * 114689 + 1) / 2 of them. A host repeats an exposure
     * whose read-out failed. */
    int32_t (*hwReadMatrix)(uint32_t id, uint16_t* buffer, uint32_t words);

    void (*reserved19)(void);
    void (*reserved20)(void);

    /* 21: prepares the device for the configuration that follows. The result is ignored. */
    int32_t (*hwPrepare)(uint32_t id);

    /* 22: gives the text of the last failed hwFirstDevice or hwNextDevice. */
    const char* (*hwLibError)(void);

    /* 23: gives the text of the last failure of a device. */
    const char* (*hwDevError)(uint32_t id);

    /* 24: writes the state of the busy line, 0 when the exposure is over. Polled every 0.02 s. */
    int32_t (*hwBusyLine)(uint32_t id, int16_t* state);

    /* 25: takes a stream apart into one 16-bit value for each pixel, [chip][y][x], still in the code of the counters.
     * `pixels` is the room in `frame` and may exceed the pixels of the device. Must not change device state. */
    int32_t (*hwStreamToFrame)(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels);

    void (*reserved26)(void);

    /* 27: turns counter codes into counts, in place. `one` is always 1. Must not change device state. */
    int32_t (*hwPseudoToCounts)(uint32_t id, int16_t* frame, uint32_t pixels, uint32_t one);
} MandatoryFuncs;

/* The one export of a HW library. */
QDLHW_API const MandatoryFuncs* getMandatoryFuncs(void);

QDL_STATIC_ASSERT(offsetof(DevInfo, chipCount) == 16 && offsetof(DevInfo, spareFSR) == 32, "DevInfo: 32-bit fields");
QDL_STATIC_ASSERT(offsetof(DevInfo, devName) == 36, "DevInfo: nine 32-bit words, then the name");
QDL_STATIC_ASSERT(offsetof(DevInfo, hwName) == (sizeof(void*) == 8 ? 104 : 100), "DevInfo: the pointer is last");

#define QDL_AT_POSITION(name, position)                                                      \
    QDL_STATIC_ASSERT(offsetof(MandatoryFuncs, name) == (position) * sizeof(void (*)(void)), \
                      #name " stands at position " #position)
QDL_AT_POSITION(hwFirstDevice, 1);
QDL_AT_POSITION(hwNextDevice, 2);
QDL_AT_POSITION(hwGetDevInfo, 3);
QDL_AT_POSITION(hwGetItemCount, 5);
QDL_AT_POSITION(hwGetItem, 6);
QDL_AT_POSITION(hwSetItem, 7);
QDL_AT_POSITION(hwStartAcq, 8);
QDL_AT_POSITION(hwStopAcq, 9);
QDL_AT_POSITION(hwTestPulses, 13);
QDL_AT_POSITION(hwSetDacs, 14);
QDL_AT_POSITION(hwReadAnalog, 15);
QDL_AT_POSITION(hwSetPixels, 16);
QDL_AT_POSITION(hwResetMatrix, 17);
QDL_AT_POSITION(hwReadMatrix, 18);
QDL_AT_POSITION(hwPrepare, 21);
QDL_AT_POSITION(hwLibError, 22);
QDL_AT_POSITION(hwDevError, 23);
QDL_AT_POSITION(hwBusyLine, 24);
QDL_AT_POSITION(hwStreamToFrame, 25);
QDL_AT_POSITION(hwPseudoToCounts, 27);
#undef QDL_AT_POSITION

#ifdef __cplusplus
}
#endif

#endif /* QDLHW_H */
