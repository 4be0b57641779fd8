// SPDX-License-Identifier: MIT
#include "outputfiles.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "failure.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t longestName = 259;  // what the control library takes, with its number

void require(bool condition, const std::string& complaint) {
    if (!condition) throw Failure(ExitStatus::File, complaint);
}

fs::path folderOf(const std::string& file) { return fs::absolute(file).lexically_normal().parent_path(); }

}  // namespace

std::string numberedName(const std::string& name, uint32_t number) {
    const size_t dot = std::min(name.rfind('.'), name.size());
    return name.substr(0, dot) + std::to_string(number) + name.substr(dot);
}

bool OutputFiles::Entry::covers(const std::string& fileName) const {
    if (count == 0) return fileName == stem;
    if (fileName.size() <= stem.size() + extension.size() || !fileName.starts_with(stem) ||
        !fileName.ends_with(extension))
        return false;
    const std::string digits = fileName.substr(stem.size(), fileName.size() - stem.size() - extension.size());
    uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number < count && std::to_string(number) == digits;
}

void OutputFiles::plan(const std::string& file) {
    require(!file.empty(), "an empty file name was given");
    add(file, {folderOf(file), fs::path(file).filename().string(), "", 0});
    requireFree(file);
}

void OutputFiles::planNumbered(const std::string& name, uint32_t count) {
    require(!name.empty(), "an empty file name was given");
    const size_t dot = std::min(name.rfind('.'), name.size()), slash = name.rfind('/');
    require(slash == std::string::npos || slash < dot,
            formatted("the number would come before the last dot of %s, in a folder: add an extension", name.c_str()));
    const size_t start = slash + 1;  // 0 without a slash
    const Entry entry{folderOf(name), name.substr(start, dot - start), name.substr(dot), count};
    const std::string last = numberedName(name, count - 1);
    add(last, entry);
    requireFree(last);
    for (const fs::directory_entry& present : fs::directory_iterator(entry.folder))
        if (entry.covers(present.path().filename().string())) requireFree(present.path());
}

void OutputFiles::add(const std::string& name, const Entry& entry) {
    require(name.size() <= longestName,
            formatted("file name too long, at most %zu characters: %s", longestName, name.c_str()));
    std::error_code ignored;
    require(fs::is_directory(entry.folder, ignored),
            formatted("no folder %s for file %s", entry.folder.c_str(), name.c_str()));
    for (const Entry& other : planned) {
        const bool same = other.folder == entry.folder &&
                          (other.covers(fs::path(name).filename()) || entry.covers(other.stem + other.extension) ||
                           (other.stem == entry.stem && other.extension == entry.extension));
        require(!same, formatted("file %s would be written twice", name.c_str()));
    }
    planned.push_back(entry);
}

void OutputFiles::requireFree(const fs::path& file) const {
    std::error_code ignored;
    if (!fs::exists(file, ignored)) {
        require(access(folderOf(file).c_str(), W_OK) == 0, formatted("file %s cannot be written", file.c_str()));
        return;
    }
    require(!fs::is_directory(file, ignored), formatted("%s is a folder", file.c_str()));
    require(fs::is_regular_file(file, ignored), formatted("%s is no regular file", file.c_str()));
    require(overwrite, formatted("file %s exists already; --overwrite replaces it", file.c_str()));
    require(access(file.c_str(), W_OK) == 0, formatted("file %s cannot be written", file.c_str()));
}
