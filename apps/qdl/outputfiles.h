// SPDX-License-Identifier: MIT
// Names of the files that a command will write, checked before anything happens.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// The number before the last dot of the whole string, or at its end: the control library names its files so.
std::string numberedName(const std::string& name, uint32_t number);

class OutputFiles {
 public:
    explicit OutputFiles(bool mayOverwrite) : overwrite(mayOverwrite) {}

    // Throws the Failure of a name that exists already (unless it may be replaced), whose folder is missing or cannot
    // be written to, or that is asked for twice.
    void plan(const std::string& file);
    // The same for the numbers 0 to count - 1. The numbers must stand in the name of the file, not of a folder.
    void planNumbered(const std::string& name, uint32_t count);

 private:
    struct Entry {
        std::filesystem::path folder;
        std::string stem;  // all of the name if it is not numbered
        std::string extension;
        uint32_t count;  // 0: not numbered
        bool covers(const std::string& fileName) const;
    };

    void add(const std::string& name, const Entry& entry);
    void requireFree(const std::filesystem::path& file) const;

    bool overwrite;
    std::vector<Entry> planned;
};
