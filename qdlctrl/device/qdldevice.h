// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdio>
#include <string>

#include "acquisition/acqbuffer.h"
#include "device/cslock.h"
#include "device/devicecfg.h"
#include "frames/framefiles.h"
#include "qdlhw.h"
#include "registry/messages.h"

struct SubGrid;

// One detector that a HW library reported. Public operations are those of the exported functions of the same name
// (qdlctrl.h tells what they do); they lock, and answer with the result. Private steps say what they need. The members
// lie in one source file for each subject, in the order of the blocks below.
class QdlDevice {
 public:
    QdlDevice(uint32_t hwID, const MandatoryFuncs& funcs, uint32_t index, cbInfoMsgFn cbInfoMsg,
              cbAcqComplFn cbAcqCompl, const std::string& baseDir);
    ~QdlDevice();
    QdlDevice(const QdlDevice&) = delete;
    QdlDevice& operator=(const QdlDevice&) = delete;

    // device/qdldevice.cpp
    int32_t getQuandelInfo(uint32_t* chipCount, uint32_t* infoValue, char* devName, char* hwName);
    void setPolarity(uint32_t value);
    void setCST(uint32_t value);
    void setExternalShutter(uint32_t value);
    void setSpareFSR(uint32_t value);
    void setHwTimer(uint32_t mode);
    uint32_t getPolarity() const { return static_cast<uint32_t>(flags().polarity); }
    uint32_t getCST() const { return static_cast<uint32_t>(flags().cst); }
    uint32_t getExternalShutter() const { return static_cast<uint32_t>(flags().extShutter); }
    uint32_t getSpareFSR() const { return static_cast<uint32_t>(flags().spareFSR); }
    uint32_t getHwTimer() const { return static_cast<uint32_t>(flags().hwTimer); }
    void abortOperation() { abortFlag = 1; }
    void getInfoMsg(int32_t* code, const char** text) const;

    // device/deviceinit.cpp
    int32_t initQdlDevice(const char* cfgFileName);

    // config/dacs.cpp
    int32_t setChipDACs(const ChipDacs* dacs, int32_t chip);
    int32_t getChipDACs(ChipDacs* dacs, int32_t chip);
    int32_t setAllChipsDACs(const ChipDacs* dacs, int32_t chips);
    int32_t getAllChipsDACs(ChipDacs* dacs, int32_t chips);
    int32_t refreshDACs();
    int32_t getAllChipsDACsAnalog(double* values, int32_t chips);
    int32_t getAllChipsSingleDacAnalog(double* values, const int32_t* dacIndex, int32_t chips);

    // config/pixelmatrix.cpp
    int32_t setPixelsCfg(const uint8_t* pixels, int32_t chip);
    int32_t getPixelsCfg(uint8_t* pixels, int32_t chip);
    int32_t resetPixelsCfg(int32_t chip);
    int32_t refreshPixelsCfg();
    int32_t setAllChipsPixelsCfg(const uint8_t* pixels, int32_t chips);
    int32_t getAllChipsPixelsCfg(uint8_t* pixels, int32_t chips);
    int32_t resetAllChipsPixelsCfg(int32_t chips);

    // config/pixelfiles.cpp
    int32_t loadPixelsCfg(const char* fileName);
    int32_t savePixelsCfg(const char* fileName);
    int32_t loadPixelsCfgAscii(const char* maskFile, const char* testFile, const char* adjustLowFile,
                               const char* adjustHighFile);
    int32_t savePixelsCfgAscii(const char* maskFile, const char* testFile, const char* adjustLowFile,
                               const char* adjustHighFile);

    // config/configfile.cpp
    int32_t loadQdlCfg(const char* fileName);
    int32_t saveQdlCfg(const char* fileName);

    // config/hwinfo.cpp
    int32_t getHwInfoCount() const { return funcs.hwGetItemCount(); }
    int32_t getHwInfoItem(uint32_t index, InfoItem* item, uint32_t* size);
    int32_t setHwInfoItem(uint32_t index, const void* data, uint32_t size);

    // acquisition/frameacq.cpp, fastacq.cpp, integralacq.cpp, testpulseacq.cpp
    int32_t performFrameAcq(int32_t count, double time, bool saveToFile, const char* fileName);
    int32_t performFastAcq(int32_t count, double time, bool saveToFile, const char* fileName);
    int32_t performIntegralAcq(int32_t count, double time);
    int32_t performTestPulseAcq(double pulseArg1, double pulseArg2, uint8_t pulseArg3, uint16_t pulseArg4);

    // acquisition/spacing.cpp
    int32_t setAcqSpacing(int32_t spacing);
    int32_t getAcqSpacing() const { return acqSpacing; }

    // acquisition/buffers.cpp
    int32_t getAcqInfo(int32_t* index, int32_t* count, int32_t* type);
    void freeBuffers();
    void freeStreamBuff();
    void freeFrameBuff();
    void freeIntegralBuff();

    // frames/frameaccess.cpp
    int32_t getFrame16(int16_t* buffer, uint32_t size, uint32_t frameIndex, char* msg);
    int32_t getFrame32(uint32_t* buffer, uint32_t size, uint32_t frameIndex, char* msg);
    int32_t getFrameDouble(double* buffer, uint32_t size, uint32_t frameIndex, char* msg);
    int32_t getFrameInfo(int32_t infoType, uint32_t frameIndex, void* buffer, int32_t size, char* msg) const;
    int32_t stream2Frame(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const;

    // frames/savingframes.cpp
    int32_t saveFrame(const char* fileName, uint32_t frameIndex, int32_t flags);

 private:
    // What a run decides once, at its start.
    struct RunPlan {
        int32_t count;
        double time;
        int32_t spacing;       // 1: every sub-step is a whole frame
        const char* fileName;  // base name of the numbered files, null for a run in memory

        int32_t subSteps() const { return spacing * spacing; }
    };

    // Bits that name the buffers to free.
    enum : unsigned { streamBuffer = 1, frameBuffer = 2, integralBuffer = 4, spacingBuffer = 8, allBuffers = 15 };

    // Marks the device as acquiring, and at the end of the run frees what callbacks wanted freed meanwhile.
    class RunScope;

    // A numbered file of the last or running acquisition, with what was true when its name was made.
    struct RunFile {
        FileName name;
        bool finished;
        uint32_t runNumber;
    };

    // Reporters: every message of the device goes through here. Gives the code of the message.
    template <class... Args>
    int32_t reportDevMsg(const Message<Args...>& message, std::type_identity_t<Args>... args) REQUIRES(csDevice) {
        messages.store(message, args...);
        if (cbInfoMsg) cbInfoMsg(static_cast<int32_t>(index));
        return message.code;
    }
    // Turns the answer of a table position into stored text and returned code; 0 stays 0.
    int32_t fromHw(int32_t answer, const Message<const char*>& message) REQUIRES(csDevice) {
        return answer ? reportDevMsg(message, hwErrorText()) : QDL_OK;
    }
    HwText hwErrorText() const { return HwText(funcs.hwDevError(hwID)); }
    void notifyAcqComplete() REQUIRES(csDevice) {
        if (cbAcqCompl) cbAcqCompl(static_cast<int32_t>(index));
    }

    // device/qdldevice.cpp
    std::string defaultFile(const char* extension) const;
    void setFlag(std::atomic<int32_t> DeviceCfg::*field, uint32_t DevInfo::*shared, uint32_t value);
    // Only the atomic flags are read through this, which need no lock.
    const DeviceCfg& flags() const NO_THREAD_SAFETY_ANALYSIS { return currentCfg; }
    int32_t checkInitialized() REQUIRES(csDevice);
    int32_t checkChip(int32_t chip) REQUIRES(csDevice);
    int32_t chipCount() const REQUIRES(csDevice) { return static_cast<int32_t>(currentCfg.chipCount); }

    // device/deviceinit.cpp
    int32_t setFrameSizes(uint32_t chips) REQUIRES(csDevice);
    void shareFlags() REQUIRES(csDevice);

    // config/dacs.cpp
    int32_t sendDacs(uint8_t first, uint8_t second, const uint32_t* codes) REQUIRES(csDevice);
    int32_t checkAnalogRead(int32_t chips) REQUIRES(csDevice);
    int32_t readSingleDac(double* values, const int32_t* dacIndex) REQUIRES(csDevice);

    // config/pixelmatrix.cpp
    int32_t checkMatrix() REQUIRES(csDevice);
    int32_t checkPlane(int32_t chip) REQUIRES(csDevice);
    int32_t checkAllPlanes(int32_t chips) REQUIRES(csDevice);
    int32_t sendPixelsCfg() REQUIRES(csDevice);

    // config/pixelfiles.cpp
    using Scratch = std::unique_ptr<int16_t[]>;
    Scratch allocPlane() REQUIRES(csDevice);
    int32_t loadMatrix(const char* fileName) REQUIRES(csDevice);
    int32_t saveMatrixTo(const char* fileName) REQUIRES(csDevice);

    // config/configfile.cpp
    void setDefaultCfg() REQUIRES(csDevice);
    int32_t loadCfg(const char* fileName) REQUIRES(csDevice);
    int32_t saveCfg(const char* fileName) REQUIRES(csDevice);
    bool writeSections(std::FILE* file) REQUIRES(csDevice);

    // config/hwinfo.cpp
    int32_t loadInterfaceCfg(std::FILE* file) REQUIRES(csDevice);
    int32_t saveInterfaceCfg(std::FILE* file) REQUIRES(csDevice);

    // acquisition/buffers.cpp
    template <class Element>
    int32_t allocBuff(AcqBuffer<Element>& buff, int64_t elements) REQUIRES(csDevice);
    int32_t allocStreamBuff(int64_t words) REQUIRES(csDevice);
    int32_t allocFrameBuff(int64_t pixels) REQUIRES(csDevice);
    int32_t allocIntegralBuff(int64_t pixels) REQUIRES(csDevice);
    int32_t allocSpacingFrame() REQUIRES(csDevice);
    void resetAcqState() REQUIRES(csDevice);
    void setAcqFileName(const char* fileName) REQUIRES(csDevice);
    RunFile runFile(int32_t type, const std::atomic<uint32_t>& filled, uint32_t frameIndex);
    bool isStale(const RunFile& file) const { return file.runNumber != runNumber; }
    void freeAll(unsigned buffers) REQUIRES(csDevice);
    void freeOrDefer(unsigned buffers);

    // acquisition/exposure.cpp
    int32_t exposeAndRead(uint16_t* buffer, uint32_t words, double time) REQUIRES(csDevice);
    void waitExposureEnd(double time) REQUIRES(csDevice);
    int32_t convert(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) const;
    int32_t convertStream(const uint16_t* stream, uint32_t words, int16_t* frame, uint32_t pixels) REQUIRES(csDevice);

    // acquisition/run.cpp: what the acquisitions share
    int32_t checkCanAcquire() REQUIRES(csDevice);
    void beginAcq(int32_t type, int32_t count, double time) REQUIRES(csDevice);
    int32_t resetMatrix() REQUIRES(csDevice);
    int32_t exposeSubStep(const RunPlan& plan, int32_t k, uint16_t* buffer) REQUIRES(csDevice);
    bool takeAbort() { return abortFlag.exchange(0) != 0; }
    int32_t endRun(int32_t outcome) REQUIRES(csDevice);

    // acquisition/spacing.cpp
    int32_t saveMatrix() REQUIRES(csDevice);
    int32_t setSpacingStep(SubGrid grid) REQUIRES(csDevice);
    void putMatrixBack() REQUIRES(csDevice);
    int32_t sendAndEndRun(int32_t outcome) REQUIRES(csDevice);
    int32_t endSpacedRun(const RunPlan& plan, int32_t outcome) REQUIRES(csDevice);

    // acquisition/frameacq.cpp, fastacq.cpp, integralacq.cpp, testpulseacq.cpp
    int32_t takeFrames(const RunPlan& plan) REQUIRES(csDevice);
    int32_t takeFrame(const RunPlan& plan, int16_t* target) REQUIRES(csDevice);
    int32_t takeFastFrames(const RunPlan& plan) REQUIRES(csDevice);
    int32_t takeIntegral(const RunPlan& plan) REQUIRES(csDevice);
    int32_t takeIntegralFrame(const RunPlan& plan) REQUIRES(csDevice);
    void addExposure(int32_t spacing, int32_t k) REQUIRES(csDevice);
    struct TestPulses;
    int32_t takeTestPulses(const TestPulses& pulses, int32_t spacing) REQUIRES(csDevice);

    // frames/frameaccess.cpp
    template <class Element>
    int32_t readFrame(Element* buffer, uint32_t size, uint32_t frameIndex, char* msg);
    template <class Element>
    int32_t readDecoded(Element* buffer, uint32_t frameIndex, char* msg);
    template <class Element>
    int32_t readStream(Element* buffer, uint32_t frameIndex, char* msg);
    template <class Element>
    int32_t readIntegral(Element* buffer, char* msg);
    template <class Element>
    int32_t readTextFile(Element* buffer, uint32_t frameIndex, char* msg);
    template <class Element>
    int32_t readRawFile(Element* buffer, uint32_t size, uint32_t frameIndex, char* msg);
    template <class Element>
    int32_t finishFileRead(int32_t result, const RunFile& file, Element* buffer, uint32_t frameIndex, char* msg);
    int32_t loadFrameAscii(const char* path, int16_t* buffer, char* msg) const;
    int32_t loadFrameStream(const char* path, int16_t* buffer, uint32_t size, char* msg) const;
    struct RunState;
    RunState runState() const;
    int32_t frameNotReady(uint32_t frameIndex, uint32_t filled, char* msg) const;
    int32_t streamNotReady(uint32_t frameIndex, uint32_t filled, char* msg) const;

    // frames/framefiles.cpp
    int32_t readBinFile(const char* path, void* buffer, std::size_t bytes) REQUIRES(csDevice);
    int32_t writeBinFile(const char* path, const void* buffer, std::size_t bytes, bool append) REQUIRES(csDevice);
    int32_t readAsciiFile(const char* path, int16_t* buffer, uint32_t items) REQUIRES(csDevice);
    template <class Item>
    int32_t writeAsciiFile(const char* path, const Item* buffer, std::size_t items, bool append) REQUIRES(csDevice);
    int32_t writeAscii16(const char* path, const int16_t* buffer, std::size_t items, bool append) REQUIRES(csDevice);
    int32_t writeAscii32(const char* path, const uint32_t* buffer, std::size_t items, bool append) REQUIRES(csDevice);

    // frames/savingframes.cpp
    struct SavePlan;
    int32_t saveIntegral(const SavePlan& plan) REQUIRES(csDevice);
    int32_t saveBufferFrames(const SavePlan& plan) REQUIRES(csDevice);
    int32_t saveStreamFrames(const SavePlan& plan) REQUIRES(csDevice);
    int32_t saveFrames(const SavePlan& plan, uint32_t filled) REQUIRES(csDevice);
    int32_t saveOneFrame(const SavePlan& plan, uint32_t i, const char* target, bool append) REQUIRES(csDevice);
    int32_t fetchFrame(uint32_t i, int16_t*& pixels) REQUIRES(csDevice);
    int32_t fetchStream(uint32_t i, uint16_t*& stream) REQUIRES(csDevice);
    int32_t writePixels(const SavePlan& plan, const char* target, const int16_t* pixels, bool append)
        REQUIRES(csDevice);

    const uint32_t hwID;   // the HW library's number of the device
    const uint32_t index;  // the device id of the exported functions
    const MandatoryFuncs& funcs;
    DevInfo* const devInfo;  // shared with the HW library, which owns it; its fields belong to csDevice
    const cbInfoMsgFn cbInfoMsg;
    const cbAcqComplFn cbAcqCompl;
    const std::string configsDir;
    const std::string defaultCfgFile;
    const std::string defaultPixelsFile;

    AcqBuffer<uint16_t> streamBuff;    // frame i from word i * streamFrameSize on
    AcqBuffer<int16_t> frameBuff;      // frame i from pixel i * frameSize on
    AcqBuffer<uint32_t> integralBuff;  // one frame of sums
    CriticalSection csRunFiles;
    CriticalSection csDevice ACQUIRED_BEFORE(streamBuff.cs, frameBuff.cs, integralBuff.cs, csRunFiles);

    MessageStore messages;
    DeviceCfg currentCfg GUARDED_BY(csDevice);
    DeviceCfg backupCfg GUARDED_BY(csDevice);                      // the user's pixel matrix during a spaced run
    std::unique_ptr<int16_t[]> spacingFrame GUARDED_BY(csDevice);  // one sub-step of a spaced frame acquisition
    bool initialized GUARDED_BY(csDevice) = false;
    bool acquiring GUARDED_BY(csDevice) = false;
    unsigned deferredFrees GUARDED_BY(csDevice) = 0;
    uint32_t lostFrames GUARDED_BY(csDevice) = 0;  // failed read-outs of the run; no function reports it
    int32_t acqIndex GUARDED_BY(csDevice) = -1;
    int32_t acqCount GUARDED_BY(csDevice) = -1;

    std::string acqFileName GUARDED_BY(csRunFiles);

    // Read without a lock.
    std::atomic<int32_t> abortFlag{0};  // cleared only by the run that honours it
    std::atomic<int32_t> acqType{ACQ_NONE};
    std::atomic<uint32_t> runNumber{0};  // rises between the end of one run's results and the start of the next one's
    std::atomic<double> acqTime{0.0};
    std::atomic<int32_t> acqSpacing{1};
    std::atomic<uint32_t> streamFrameSize{0};  // words
    std::atomic<uint32_t> frameSize{0};        // pixels
};
