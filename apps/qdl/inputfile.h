// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// All bytes of a file. Throws the Failure of one that cannot be read.
std::string readFile(const std::string& file);
