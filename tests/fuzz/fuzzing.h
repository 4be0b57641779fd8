// SPDX-License-Identifier: MIT
// What the fuzz targets share. A target decides by require() whether the library answered as it must.
#pragma once

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "qdlctrl.h"
#include "scriptedhw.h"

#define require(condition) ((condition) ? void() : (std::fprintf(stderr, "not so: %s\n", #condition), std::abort()))

// A file in memory that has a path.
struct MemoryFile {
    void write(const std::string& text) const {
        require(ftruncate(descriptor, 0) == 0);
        require(pwrite(descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    }
    // What fscanf takes from it, until `wanted` items are there or none comes.
    std::vector<int16_t> scan(size_t wanted) const {
        std::vector<int16_t> items;
        std::FILE* const file = std::fopen(path.c_str(), "r");
        for (int16_t item; items.size() < wanted && std::fscanf(file, "%hd", &item) == 1;)
            items.push_back(item);
        std::fclose(file);
        return items;
    }

    const int descriptor = memfd_create("fuzz", 0);
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
};

// Device 0, of one chip, initialized, with the scripted HW library that stands in `hwlibs` beside the program.
inline ScriptedHw& startDevice(std::vector<ScriptedItem> items) {
    void* const module = dlopen(QDL_FUZZ_HW, RTLD_NOW);
    require(module);
    ScriptedHw& hw = *reinterpret_cast<ScriptedControlFn>(dlsym(module, "scriptedControl"))();
    hw.addDevice();
    hw.items = std::move(items);
    require(initQdlCtrl() == 0 && initQdlDevice(0, nullptr) == 0);
    std::atexit([] { exitQdlCtrl(); });
    return hw;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
