// SPDX-License-Identifier: MIT
#include "library.h"

#include "failure.h"

#include <dlfcn.h>

#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr const char* libraryName = "libqdlctrl.so";

std::vector<fs::path> candidates(const std::string& path) {
    std::error_code ignored;
    if (!path.empty()) {
        const fs::path given = fs::absolute(path);
        return {fs::is_directory(given, ignored) ? given / libraryName : given};
    }
    const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    return {folder / libraryName, (folder / ".." / "lib" / libraryName).lexically_normal()};
}

}  // namespace

Library::Library(const std::string& path) {
    std::string tried;
    for (const fs::path& file : candidates(path)) {
        std::error_code ignored;
        if (fs::exists(file, ignored)) {
            open(file);
            return;
        }
        tried += (tried.empty() ? "" : ", ") + file.string();
    }
    throw Failure(ExitStatus::Library, "control library not found; tried " + tried +
                                           (path.empty() ? "; --library PATH names another place" : ""));
}

void Library::open(const fs::path& file) {
    handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw Failure(ExitStatus::Library, formatted("cannot load the control library: %s", dlerror()));
    libraryFolder = file.parent_path();
    try {
        bind(file);
    } catch (...) {
        dlclose(handle);
        throw;
    }
}

void Library::bind(const fs::path& file) {
    const auto find = [&](const char* name) {
        void* symbol = dlsym(handle, name);
        if (!symbol)
            throw Failure(ExitStatus::Library,
                          formatted("%s is no control library: it has no function %s", file.c_str(), name));
        return symbol;
    };
#define QDL_FIND_FUNCTION(name) functions.name = reinterpret_cast<decltype(functions.name)>(find(#name));
    QDL_USED_FUNCTIONS(QDL_FIND_FUNCTION)
#undef QDL_FIND_FUNCTION
}

Library::~Library() {
    if (handle) dlclose(handle);
}
