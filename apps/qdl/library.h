// SPDX-License-Identifier: MIT
// The control library, loaded at run time: a missing library is then a clear message, and --library can name another.
#pragma once

#include <qdlctrl.h>

#include <filesystem>
#include <string>

// The one list of the functions that the program uses.
// clang-format off
#define QDL_USED_FUNCTIONS(FUNCTION) \
    FUNCTION(initQdlCtrl) FUNCTION(exitQdlCtrl) FUNCTION(getFirstQdl) FUNCTION(getNextQdl) FUNCTION(setCbInfoMsg) \
    FUNCTION(setCbAcqCompl) FUNCTION(initQdlDevice) FUNCTION(loadQdlCfg) FUNCTION(saveQdlCfg) \
    FUNCTION(getQuandelInfo) FUNCTION(setPolarity) FUNCTION(getPolarity) FUNCTION(setCST) FUNCTION(getCST) \
    FUNCTION(setExternalShutter) FUNCTION(getExternalShutter) FUNCTION(setHwTimer) FUNCTION(getHwTimer) \
    FUNCTION(setSpareFSR) FUNCTION(getSpareFSR) FUNCTION(abortOperation) FUNCTION(setAllChipsDACs) \
    FUNCTION(getAllChipsDACs) FUNCTION(refreshDACs) FUNCTION(setAllChipsPixelsCfg) FUNCTION(getAllChipsPixelsCfg) \
    FUNCTION(loadPixelsCfg) FUNCTION(savePixelsCfg) FUNCTION(loadPixelsCfgAscii) FUNCTION(savePixelsCfgAscii) \
    FUNCTION(performFrameAcq) FUNCTION(performFastAcq) FUNCTION(performIntegralAcq) FUNCTION(performTestPulseAcq) \
    FUNCTION(setAcqSpacing) FUNCTION(getFrameDouble) FUNCTION(saveFrame) FUNCTION(getHwInfoCount) \
    FUNCTION(getHwInfoItem) FUNCTION(setHwInfoItem) FUNCTION(getInfoMsg)
// clang-format on

struct Api {
#define QDL_FUNCTION_POINTER(name) decltype(&::name) name = nullptr;
    QDL_USED_FUNCTIONS(QDL_FUNCTION_POINTER)
#undef QDL_FUNCTION_POINTER
};

class Library {
 public:
    // `path`: the library or its folder; empty: beside the program, then in ../lib. Throws Failure.
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    const Api& api() const { return functions; }
    // Folder of the library, where its `configs` folder lies.
    const std::filesystem::path& folder() const { return libraryFolder; }
    // Leaves the library in memory for good, for a thread that is still inside it.
    void keepLoaded() { handle = nullptr; }

 private:
    void open(const std::filesystem::path& file);
    void bind(const std::filesystem::path& file);

    void* handle = nullptr;
    Api functions;
    std::filesystem::path libraryFolder;
};
