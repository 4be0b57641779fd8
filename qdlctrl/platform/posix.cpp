// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/platform.h"

namespace platform {

const char* const separator = "/";
const char* const modulePattern = "*.so";

std::string modulePath() {
    static const char anchor = 0;
    Dl_info info;
    if (!dladdr(&anchor, &info) || !info.dli_fname) return {};
    std::error_code failure;
    const std::filesystem::path path = std::filesystem::absolute(info.dli_fname, failure);
    return failure ? info.dli_fname : path.string();
}

void makeFolder(const std::string& path) { mkdir(path.c_str(), 0777); }

std::vector<std::string> listModules(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code failure;
    std::filesystem::directory_iterator entry(folder, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
        std::string name = entry->path().filename().string();
        if (name.ends_with(".so")) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

void* loadModule(const std::string& path, unsigned* error) {
    errno = 0;
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    *error = static_cast<unsigned>(errno);
    return module;
}

void* findExport(void* module, const char* name, int* error) {
    errno = 0;
    void* const address = dlsym(module, name);
    *error = errno;
    return address;
}

void unloadModule(void* module) { dlclose(module); }

double monotonicSeconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void sleepMilliseconds(unsigned milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

void* allocateBlock(std::size_t bytes) {
    constexpr std::size_t cacheLine = 64, largePage = std::size_t{2} << 20;
    const std::size_t alignment = bytes < 2 * largePage ? cacheLine : largePage;
    if (bytes == 0 || bytes > SIZE_MAX - largePage) return nullptr;
    const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
    void* const block = aligned_alloc(alignment, rounded);
    if (block && alignment == largePage) madvise(block, rounded, MADV_HUGEPAGE);
    return block;
}

void freeBlock(void* block) { free(block); }

double parseDouble(const char* text, char** end) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return plain ? strtod_l(text, end, plain) : strtod(text, end);
}

}  // namespace platform
