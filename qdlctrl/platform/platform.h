// SPDX-License-Identifier: MIT
// Everything the library needs from the system. One source file per system has these functions, in this order; a port
// adds one and touches nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "platform/threadsafety.h"

namespace platform {

// What stands between the folders of a path, and the pattern that names the modules of a folder in messages.
extern const char* const separator;
extern const char* const modulePattern;

// Absolute path of the module file that holds this code, as it was loaded: links are not followed. Empty if unknown.
std::string modulePath();

// Makes one folder; a folder that exists, or cannot be made, is no failure here.
void makeFolder(const std::string& path);

// Names, without folder, of the entries that match modulePattern, in ascending byte order: device ids follow it.
// A folder that is missing or cannot be read is empty.
std::vector<std::string> listModules(const std::string& folder);

// Loads a module with its symbols bound at once and kept to itself. Null on failure; *error is then the system's error
// number, 0 where the system left none.
void* loadModule(const std::string& path, unsigned* error);

// Address of an export, null if there is none; *error as above.
void* findExport(void* module, const char* name, int* error);

void unloadModule(void* module);

// A clock that never goes back, seconds since an arbitrary origin, of the finest resolution there is.
double monotonicSeconds();

// Gives the processor up for at least this long, also when a signal arrives meanwhile.
void sleepMilliseconds(unsigned milliseconds);

// Memory for frames, undefined contents; null if there is none, or for 0 bytes. Blocks start at a cache line, so that
// wide loads do not straddle two. Large ones ask for large pages, so that a first run into fresh memory does not pay
// for each page of 4 KiB.
void* allocateBlock(std::size_t bytes);
void freeBlock(void* block);

// strtod as in the "C" locale, whatever locale the host has set.
double parseDouble(const char* text, char** end);

// Re-entrant for the thread that holds it. The standard's recursive mutex is the system's own on every platform.
class CAPABILITY("critical section") CriticalSection {
 public:
    void enter() ACQUIRE() { mutex.lock(); }
    void leave() RELEASE() { mutex.unlock(); }

 private:
    std::recursive_mutex mutex;
};

}  // namespace platform
