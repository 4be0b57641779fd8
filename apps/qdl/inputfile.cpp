// SPDX-License-Identifier: MIT
#include "inputfile.h"

#include "failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

std::string readFile(const std::string& file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) throw Failure(ExitStatus::File, file + " is a folder");
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw Failure(ExitStatus::File, formatted("cannot open %s: %s", file.c_str(), std::strerror(errno)));
    std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad()) throw Failure(ExitStatus::File, "cannot read " + file);
    return bytes;
}
