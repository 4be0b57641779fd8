// SPDX-License-Identifier: MIT
#include "device.h"

#include <bit>
#include <cstring>
#include <filesystem>

#include "rounds.h"

namespace bench {
namespace {

struct MemoryFolder {
    std::string path = "/dev/shm/qdlbench-XXXXXX";

    MemoryFolder() {
        if (!mkdtemp(path.data())) fail("no folder in /dev/shm");
    }
    ~MemoryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

void loadLibrary() {
    uint32_t id = 0, count = 0;
    char hwName[QDL_NAME_TEXT_SIZE] = "";
    initQdlCtrl();
    must(getFirstQdl(&id, &count));
    getQuandelInfo(id, &count, &count, nullptr, hwName);
    if (std::strcmp(hwName, "Benchmark") != 0) fail("hwlibs holds other HW libraries than that of the benchmarks");
}

// The first use finds the devices; nothing of a run is kept on disk, since exitQdlCtrl is not called.
uint32_t deviceWithChips(uint32_t chips) {
    static const bool loaded = (loadLibrary(), true);
    (void)loaded;
    return static_cast<uint32_t>(std::countr_zero(chips));
}

}  // namespace

void must(int32_t result) {
    if (result >= 0) return;
    int32_t code = 0;
    const char* text = "";
    if (getInfoMsg(0, &code, &text)) text = "no text";
    fail("result " + std::to_string(result) + ": " + text);
}

Device::Device(uint32_t chips)
    : id(deviceWithChips(chips)), pixels(chips * QDL_CHIP_PIXELS), words((chips * QDL_CHIP_STREAM_BYTES + 1) / 2) {
    must(initQdlDevice(id, nullptr));
    must(freeBuffers(id));
    must(setAcqSpacing(id, 1));
    must(setHwTimer(id, HW_TIMER_AUTO));
    setWork(BENCH_COPY_BOTH);
    setStarts(0);
}

std::array<double, 2> Device::times() const {
    std::array<double, 2> seconds{};
    uint32_t bytes = sizeof seconds;
    InfoItem item{};
    item.data = seconds.data();
    must(getHwInfoItem(id, BENCH_TIMES, &item, &bytes));
    return seconds;
}

void Device::setItem(uint32_t index, const void* data, std::size_t bytes) const {
    must(setHwInfoItem(id, index, data, static_cast<uint32_t>(bytes)));
}

std::string memoryFile(const char* name) {
    static const MemoryFolder folder;
    return folder.path + "/" + name;
}

}  // namespace bench
