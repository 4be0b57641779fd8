/* SPDX-License-Identifier: MIT */
/* Control library of pixel detectors: find, configure, acquire, read back, save.
 *
 * Conventions, said once:
 *
 * 1. Devices. `id` is a device id: 0, 1, 2 ... in the order of getFirstQdl and getNextQdl, valid from initQdlCtrl to
 *    exitQdlCtrl. Every function with an `id` answers QDL_E_DEVICE_ID for an id that names no device.
 * 2. Results. 0 is success, negative is failure. A failing function stores code and text and fires the info callback;
 *    getInfoMsg hands both out. A store keeps the last message only and a later success does not clear it.
 *    The functions with a `msg` argument store nothing: they write the text there, at most 4096 characters, and `msg`
 *    may be null. Where the list of results says "no text", only the result tells.
 * 3. Shapes. Pixels are [chip][y][x], row 0 on top (qdltypes.h). A frame is chips * 65536 pixels; its raw stream is
 *    (chips * 114689 + 1) / 2 words of 16 bits. Sizes count elements, never bytes, unless the name says so.
 * 4. Units. Times are seconds.
 * 5. Ownership. The library keeps no pointer that it is given, but for the two callbacks. Pointers must be valid and
 *    not null, unless told otherwise.
 * 6. Threads. Every call runs on the caller's thread and blocks until it is done. The tag says what a call waits for:
 *    [device lock] waits for other calls of the same device, a running acquisition among them; [buffer lock] waits
 *    only for the instant in which an acquisition touches that buffer; [no lock] never waits. Locks are re-entrant:
 *    a callback may call back in. initQdlCtrl and exitQdlCtrl must not overlap any other call.
 * 7. Names. Every function is exported under a second name too, with an underscore in front, at the same address.
 *
 * Valid C11 and C++17.
 */
#ifndef QDLCTRL_H
#define QDLCTRL_H

#include "qdltypes.h"

#if defined(QDL_BUILDING) && defined(_WIN32)
#define QDL_API __declspec(dllexport)
#elif defined(_WIN32)
#define QDL_API __declspec(dllimport)
#else
#define QDL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Results and codes of messages. */
enum {
    QDL_OK = 0,
    QDL_NO_MORE_DEVICES = 1,      /* getFirstQdl, getNextQdl: the enumeration is over */
    QDL_CFG_DEFAULTS = 1,         /* loadQdlCfg: read, with defaults for some keys */
    QDL_E_FAILED = -1,            /* library not initialized; no acquisition yet; a configuration write failed */
    QDL_E_ARGUMENT = -2,          /* invalid argument */
    QDL_E_MEMORY = -3,            /* allocation failed */
    QDL_E_OPEN_FOR_WRITING = -4,  /* file cannot be opened for writing */
    QDL_E_WRITE = -5,             /* write failed */
    QDL_E_OPEN_FOR_READING = -6,  /* file cannot be opened for reading */
    QDL_E_READ = -7,              /* read failed, or the file is too short */
    QDL_E_CFG_KEYS = -10,         /* message only: keys missing from a configuration file */
    QDL_E_CFG_OPEN = -11,         /* configuration file cannot be opened, defaults are in force */
    QDL_E_FRAME_NOT_READY = -14,  /* frame not available, or buffer too small */
    QDL_E_NOTHING_TO_READ = -15,  /* no acquisition, or frame file not there yet */
    QDL_E_ITEM_REFUSED = -16,     /* message only: stored info item refused by the HW library */
    QDL_E_NOT_INITIALIZED = -21,  /* initQdlCtrl or initQdlDevice has not run or failed */
    QDL_E_START = -22,            /* exposure cannot start */
    QDL_E_STOP = -23,             /* exposure cannot be stopped */
    QDL_E_BUSY_LINE = -24,        /* message only: busy line cannot be read, the exposure ends early */
    QDL_E_READOUT = -25,          /* read-out failed */
    QDL_E_STREAM = -26,           /* stream cannot be taken apart into pixels */
    QDL_E_PSEUDO_RANDOM = -27,    /* counter codes cannot be turned into counts */
    QDL_E_DACS = -28,             /* DACs cannot be sent */
    QDL_E_ABORTED = -29,          /* stopped by abortOperation */
    QDL_E_TEST_PULSES = -30,      /* test pulses failed */
    QDL_E_PIXELS = -31,           /* pixel matrix cannot be sent */
    QDL_E_ANALOG = -33,           /* analog DAC value cannot be read */
    QDL_E_RESET_MATRIX = -34,     /* pixel matrix cannot be reset */
    QDL_E_DEVICE_ID = -100,       /* unknown device id; no text */
    QDL_E_NO_HW_LIBRARY = -101,   /* message only: no module in the hwlibs folder */
    QDL_E_HW_LIBRARY_LOAD = -102, /* message only: a module does not load */
    QDL_E_HW_LIBRARY_INIT = -103, /* message only: a module is no HW library, or found no device */
    QDL_E_GET_ITEM = -104,        /* info item cannot be read */
    QDL_E_SET_ITEM = -105         /* info item cannot be set */
};

/* The id of the library itself, for getInfoMsg. */
#define QDL_CTRL_ID 0xFFFFFFFFu
/* Room that texts and `msg` areas need, and room for the names of getQuandelInfo. */
#define QDL_TEXT_SIZE 4096
#define QDL_NAME_TEXT_SIZE 64

/* Kinds of acquisition, as getAcqInfo tells them. */
enum {
    ACQ_NONE = -1,          /* none yet, or the last one failed before it had its buffers */
    ACQ_FRAMES = 0,         /* decoded frames in memory */
    ACQ_STREAM = 1,         /* raw frames in memory */
    ACQ_INTEGRAL = 2,       /* one frame of sums, also of test pulses */
    ACQ_FRAMES_TO_FILE = 3, /* decoded frames in numbered text files */
    ACQ_STREAM_TO_FILE = 4  /* raw frames in numbered binary files */
};

/* Modes of setHwTimer; any other value works as HW_TIMER_NEVER. */
enum {
    HW_TIMER_ALWAYS = 0,
    HW_TIMER_NEVER = 1,
    HW_TIMER_AUTO = 2 /* the hardware times exposures below 60 s, the library times longer ones */
};

/* The DACs of a chip, 13 values of 8 bits. Indices of the analog read-back follow this order; 13 is one more analog
 * value that belongs to no DAC. */
typedef struct ChipDacs {
    uint8_t VbiasDelayN;
    uint8_t VbiasDisc;
    uint8_t VbiasPreamp;
    uint8_t VbiasSetDisc;
    uint8_t VbiasThs;
    uint8_t VbiasIkrum;
    uint8_t VbiasABuffer;
    uint8_t VthH;
    uint8_t VthL;
    uint8_t Vfbk;
    uint8_t Vgnd;
    uint8_t VbiasLVDStx;
    uint8_t VrefLVDStx;
} ChipDacs;

QDL_STATIC_ASSERT(sizeof(ChipDacs) == QDL_CHIP_DACS, "ChipDacs is 13 bytes without gaps");

/* Information kinds of getFrameInfo. */
enum {
    FRAME_INFO_TIME = 0 /* one double: the measuring time of the frame, seconds */
};

/* Flags of saveFrame; other bits are ignored. */
enum {
    SAVE_RAW_STREAM = 1, /* the raw stream, unconverted and binary; after a fast acquisition only */
    SAVE_BINARY = 2,     /* pixels in binary; clear: in decimal text */
    SAVE_ALL_FRAMES = 8, /* all finished frames, `frameIndex` is not read; clear: frame `frameIndex` */
    SAVE_ONE_FILE = 16   /* with SAVE_ALL_FRAMES: one frame behind the other in one file */
};

/* Fired after a message was stored: with the device id, or -1 for a message of the library itself. The text that woke
 * it is there for getInfoMsg. Runs on the thread that failed, mostly inside the device lock. */
typedef void (*cbInfoMsgFn)(int32_t id);
/* Fired on the acquiring thread after each finished frame; after test pulses once, at the end.
 * From here getters, getAcqInfo, saveFrame and configuration calls work; freeing a buffer takes effect when the run
 * ends; a nested acquisition or initQdlDevice is refused with QDL_E_ARGUMENT. */
typedef void (*cbAcqComplFn)(int32_t id);

/* ---- Library ---------------------------------------------------------------------------------------------------- */

/* Loads every module of the `hwlibs` folder beside the library, in ascending byte order of the file names, and makes
 * their devices known. Devices of an earlier call end first, as in exitQdlCtrl.
 * Result: always 0. What went wrong, and how many devices each module gave, arrives through the info callback. */
QDL_API int32_t initQdlCtrl(void);

/* Ends all devices and unloads the HW libraries. An initialized device first saves its configuration and its pixel
 * matrix to its two files in the `configs` folder; a host that does not call this gets no save.
 * Result: always 0. */
QDL_API int32_t exitQdlCtrl(void);

/* Starts the enumeration: *id is the first device. `count`: number of devices, or null.  [no lock]
 * Result: 0; QDL_NO_MORE_DEVICES (there is none); QDL_E_FAILED (initQdlCtrl has not run). */
QDL_API int32_t getFirstQdl(uint32_t* id, uint32_t* count);

/* Goes on from *id to the next device.  [no lock]
 * Result: as getFirstQdl; after a non-zero result *id is one higher than it came. */
QDL_API int32_t getNextQdl(uint32_t* id);

/* Register the callbacks, or null for none. Call them before initQdlCtrl: a device takes its copies when it is made
 * known and keeps them.  [no lock]  Result: 0. */
QDL_API int32_t setCbInfoMsg(cbInfoMsgFn callback);
QDL_API int32_t setCbAcqCompl(cbAcqComplFn callback);

/* ---- Device ----------------------------------------------------------------------------------------------------- */

/* Makes a device ready to acquire: loads `cfgFileName` (null or empty: the device's default file) and the default
 * pixel file, with defaults where they are missing, and sends DACs and pixel matrix.  [device lock]
 * Result: 0; QDL_E_DACS; QDL_E_MEMORY; QDL_E_NOT_INITIALIZED (the HW library gave no record); QDL_E_ARGUMENT (from a
 * callback of a run). */
QDL_API int32_t initQdlDevice(uint32_t id, const char* cfgFileName);

/* Reads a configuration file into the library's copy; sends nothing but the stored info items (refreshDACs sends the
 * DACs).  [device lock]
 * Result: 0; QDL_CFG_DEFAULTS (some keys took their default; the store lists them); QDL_E_CFG_OPEN (all took their
 * default); QDL_E_NOT_INITIALIZED. */
QDL_API int32_t loadQdlCfg(uint32_t id, const char* fileName);

/* Writes the configuration file; null: the device's default file.  [device lock]
 * Result: 0; QDL_E_OPEN_FOR_WRITING; QDL_E_FAILED (a write failed; no text); QDL_E_NOT_INITIALIZED. */
QDL_API int32_t saveQdlCfg(uint32_t id, const char* fileName);

/* What the device is, also before initQdlDevice. The texts take 64 characters, longer names are cut to 63 and a
 * terminator; either may be null.  [device lock]
 * Result: 0; QDL_E_NOT_INITIALIZED (the HW library gave no record). */
QDL_API int32_t getQuandelInfo(uint32_t id, uint32_t* chipCount, uint32_t* infoValue, char* devName, char* hwName);

/* Flags and timer mode, in force from the next operation that uses them. Values are stored as given.
 * Setters [device lock], getters [no lock].  Result: 0. */
QDL_API int32_t setPolarity(uint32_t id, uint32_t value);
QDL_API int32_t getPolarity(uint32_t id, uint32_t* value);
QDL_API int32_t setCST(uint32_t id, uint32_t value);
QDL_API int32_t getCST(uint32_t id, uint32_t* value);
QDL_API int32_t setExternalShutter(uint32_t id, uint32_t value);
QDL_API int32_t getExternalShutter(uint32_t id, uint32_t* value);
QDL_API int32_t setHwTimer(uint32_t id, uint32_t mode); /* HW_TIMER_... */
QDL_API int32_t getHwTimer(uint32_t id, uint32_t* mode);
QDL_API int32_t setSpareFSR(uint32_t id, uint32_t value);
QDL_API int32_t getSpareFSR(uint32_t id, uint32_t* value);

/* Asks the running acquisition to stop; it ends with QDL_E_ABORTED and keeps its finished frames. Without a run the
 * request waits for the next one. May be called from any thread and from a callback.  [no lock]  Result: 0. */
QDL_API int32_t abortOperation(uint32_t id);

/* ---- DACs ------------------------------------------------------------------------------------------------------- */

/* All [device lock]. Results of all: 0; QDL_E_NOT_INITIALIZED; QDL_E_ARGUMENT (chip, chips or index out of range);
 * of those that send: QDL_E_DACS. A failed send leaves the new values in place for refreshDACs. */

/* One chip, 0-based. Setting sends the values of all chips. */
QDL_API int32_t setChipDACs(uint32_t id, const ChipDacs* dacs, int32_t chip);
QDL_API int32_t getChipDACs(uint32_t id, ChipDacs* dacs, int32_t chip);
/* All chips: `chips` records, exactly the chip count. */
QDL_API int32_t setAllChipsDACs(uint32_t id, const ChipDacs* dacs, int32_t chips);
QDL_API int32_t getAllChipsDACs(uint32_t id, ChipDacs* dacs, int32_t chips);
/* Sends the values held. */
QDL_API int32_t refreshDACs(uint32_t id);

/* Analog values of all DACs: values[chip * 13 + dac], in the HW library's unit. `chips`: at least the chip count.
 * Result: also QDL_E_ANALOG; values read before the failure are there. */
QDL_API int32_t getAllChipsDACsAnalog(uint32_t id, double* values, int32_t chips);
/* Analog value of one DAC per chip: values[chip] of the DAC dacIndex[chip], 0 to 13. `chips`, Result: as above. */
QDL_API int32_t getAllChipsSingleDacAnalog(uint32_t id, double* values, const int32_t* dacIndex, int32_t chips);

/* ---- Pixel configuration ---------------------------------------------------------------------------------------- */

/* All [device lock]. A plane is 65536 configuration bytes, [y][x] (QDL_PIXEL_... of qdltypes.h); every change sends
 * the matrix of all chips. Results of all: 0; QDL_E_NOT_INITIALIZED; QDL_E_ARGUMENT (chip or chips out of range); of
 * those that send: QDL_E_PIXELS. A failed send leaves the new values in place for refreshPixelsCfg. */

/* One chip, 0-based. Resetting writes QDL_PIXEL_DEFAULT. */
QDL_API int32_t setPixelsCfg(uint32_t id, const uint8_t* pixels, int32_t chip);
QDL_API int32_t getPixelsCfg(uint32_t id, uint8_t* pixels, int32_t chip);
QDL_API int32_t resetPixelsCfg(uint32_t id, int32_t chip);
/* Sends the matrix held. */
QDL_API int32_t refreshPixelsCfg(uint32_t id);
/* All chips: `chips` planes, at least the chip count; planes of further chips are not touched. */
QDL_API int32_t setAllChipsPixelsCfg(uint32_t id, const uint8_t* pixels, int32_t chips);
QDL_API int32_t getAllChipsPixelsCfg(uint32_t id, uint8_t* pixels, int32_t chips);
QDL_API int32_t resetAllChipsPixelsCfg(uint32_t id, int32_t chips);

/* The whole matrix as a binary image of chips * 65536 bytes. Loading sends it; a null name only sends.
 * Results: also QDL_E_OPEN_FOR_READING, QDL_E_READ; QDL_E_OPEN_FOR_WRITING, QDL_E_WRITE. A load that fails half way
 * leaves what it read in the library's copy, unsent. */
QDL_API int32_t loadPixelsCfg(uint32_t id, const char* fileName);
QDL_API int32_t savePixelsCfg(uint32_t id, const char* fileName);

/* Each field of the configuration byte as a text file of its own, chips * 65536 decimal numbers; a null name leaves
 * that field out. Results: as above, and QDL_E_MEMORY. */
QDL_API int32_t loadPixelsCfgAscii(uint32_t id, const char* maskFile, const char* testFile, const char* adjustLowFile,
                                   const char* adjustHighFile);
QDL_API int32_t savePixelsCfgAscii(uint32_t id, const char* maskFile, const char* testFile, const char* adjustLowFile,
                                   const char* adjustHighFile);

/* ---- Acquisition ------------------------------------------------------------------------------------------------ */

/* The four acquisitions block until the run is over, under the [device lock] from start to end. Frames finished before
 * a failure or an abort stay readable. A failed read-out is repeated, at most 100 times in a row; each one fires the
 * info callback. Results of all: 0; QDL_E_NOT_INITIALIZED; QDL_E_ARGUMENT; QDL_E_MEMORY; QDL_E_RESET_MATRIX;
 * QDL_E_READOUT; QDL_E_ABORTED; and as each names. The timed ones: QDL_E_START, QDL_E_STOP. Those that decode:
 * QDL_E_STREAM, QDL_E_PSEUDO_RANDOM. Those with spacing: QDL_E_PIXELS. */

/* Takes `count` decoded frames of `time` seconds each. saveToFile 0: they stay in memory and `fileName` is not read;
 * non-zero: each goes to a text file of its own, the number of the frame before the last dot of `fileName`.
 * With spacing s a frame is put together from s * s exposures of `time` each.
 * Result: also QDL_E_OPEN_FOR_WRITING, QDL_E_WRITE. */
QDL_API int32_t performFrameAcq(uint32_t id, int32_t count, double time, int32_t saveToFile, const char* fileName);

/* Takes `count` raw frames with nothing but the read-out between two exposures; they are decoded when read back.
 * Arguments as performFrameAcq, the files are binary; spacing is ignored.
 * Result: also QDL_E_OPEN_FOR_WRITING, QDL_E_WRITE. */
QDL_API int32_t performFastAcq(uint32_t id, int32_t count, double time, int32_t saveToFile, const char* fileName);

/* Sums `count` frames of `time` seconds each into one frame of 32-bit counts, that wrap. With spacing s > 1 the result
 * is the last frame, put together from s * s exposures, and no sum. */
QDL_API int32_t performIntegralAcq(uint32_t id, int32_t count, double time);

/* Gives test pulses instead of an exposure and keeps the result like a sum of one frame. The four arguments go to the
 * HW library unchanged. All test bits are 1 afterwards. A failed read-out is not repeated here.
 * Result: also QDL_E_TEST_PULSES. */
QDL_API int32_t performTestPulseAcq(uint32_t id, double pulseArg1, double pulseArg2, uint8_t pulseArg3,
                                    uint16_t pulseArg4);

/* Acquisition spacing s, 1 to 256: only every s-th pixel of every s-th row is open in an exposure, and s * s exposures
 * cover the matrix; 1 is no spacing.  Setter [device lock], getter [no lock].  Result: 0; setter: QDL_E_ARGUMENT. */
QDL_API int32_t setAcqSpacing(uint32_t id, int32_t spacing);
QDL_API int32_t getAcqSpacing(uint32_t id, int32_t* spacing);

/* The last or running acquisition: index of the current frame, frames asked for, ACQ_... kind.  [device lock]
 * Result: 0; QDL_E_FAILED (there is none; nothing is written; no text). */
QDL_API int32_t getAcqInfo(uint32_t id, int32_t* acqIndex, int32_t* acqCount, int32_t* acqType);

/* Give the memory of results back: all, raw frames, decoded frames, the sum.  [device lock]  Result: 0. */
QDL_API int32_t freeBuffers(uint32_t id);
QDL_API int32_t freeStreamBuff(uint32_t id);
QDL_API int32_t freeFrameBuff(uint32_t id);
QDL_API int32_t freeIntegralBuff(uint32_t id);

/* ---- Frames ----------------------------------------------------------------------------------------------------- */

/* Copy frame `frameIndex` (0-based) of the last or running acquisition to `buffer`, decoding or loading it if need be.
 * `size`: elements of `buffer`, at least those of a frame. 16-bit pixels widen with their sign; a sum gives its low 16
 * bits to getFrame16; for a sum `frameIndex` is not read.  [buffer lock], none for frames in files.
 * Result: 0; QDL_E_FRAME_NOT_READY; QDL_E_NOTHING_TO_READ; QDL_E_STREAM; QDL_E_PSEUDO_RANDOM; from files also
 * QDL_E_OPEN_FOR_READING, QDL_E_READ, QDL_E_MEMORY. After a failure `buffer` may hold a part of a frame. */
QDL_API int32_t getFrame16(uint32_t id, int16_t* buffer, uint32_t size, uint32_t frameIndex, char* msg);
QDL_API int32_t getFrame32(uint32_t id, uint32_t* buffer, uint32_t size, uint32_t frameIndex, char* msg);
QDL_API int32_t getFrameDouble(uint32_t id, double* buffer, uint32_t size, uint32_t frameIndex, char* msg);

/* Tells about a frame: `infoType` FRAME_INFO_..., `size` bytes at `buffer`.  [no lock]
 * Result: 0; QDL_E_FRAME_NOT_READY; QDL_E_ARGUMENT (kind or size). */
QDL_API int32_t getFrameInfo(uint32_t id, int32_t infoType, uint32_t frameIndex, void* buffer, int32_t size, char* msg);

/* Decodes a raw frame of the caller's.  [no lock]  Result: 0; QDL_E_STREAM, QDL_E_PSEUDO_RANDOM (no text). */
QDL_API int32_t stream2Frame(uint32_t id, const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels);

/* Writes results of the last acquisition to `fileName` as the SAVE_... flags say.  [device lock]
 * Result: 0; QDL_E_ARGUMENT (nothing to save, or no such frame); QDL_E_OPEN_FOR_WRITING; QDL_E_WRITE;
 * QDL_E_OPEN_FOR_READING, QDL_E_READ (frames in files); QDL_E_STREAM, QDL_E_PSEUDO_RANDOM, QDL_E_MEMORY (raw frames).
 * The first failure ends the save; files written before it stay. */
QDL_API int32_t saveFrame(uint32_t id, const char* fileName, uint32_t frameIndex, int32_t flags);

/* ---- HW info items ---------------------------------------------------------------------------------------------- */

/* Number of info items of the device's HW library.  [no lock]  Result: 0. */
QDL_API int32_t getHwInfoCount(uint32_t id, int32_t* count);

/* Fills `item` and the *size bytes at item->data.  [device lock]
 * Result: 0, also when the buffer was too small: then *size has changed to the bytes needed, and nothing was
 * delivered; QDL_E_GET_ITEM. */
QDL_API int32_t getHwInfoItem(uint32_t id, uint32_t index, InfoItem* item, uint32_t* size);

/* Hands a value of `size` bytes to the HW library.  [device lock]  Result: 0; QDL_E_SET_ITEM. */
QDL_API int32_t setHwInfoItem(uint32_t id, uint32_t index, const void* data, uint32_t size);

/* ---- Messages --------------------------------------------------------------------------------------------------- */

/* The last message of a device, or of the library with QDL_CTRL_ID. The text is the store itself, not a copy: it
 * changes with the next message and lives until exitQdlCtrl.  [no lock]  Result: 0. */
QDL_API int32_t getInfoMsg(uint32_t id, int32_t* code, const char** text);

#ifdef __cplusplus
}
#endif

#endif /* QDLCTRL_H */
