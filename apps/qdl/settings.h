// SPDX-License-Identifier: MIT
// The settings of a device by name: flags, timer mode, DACs and info items.
#pragma once

#include "session.h"

// The names in the order in which they are shown: polarity, cst, extShutter, spareFSR, hwTimer; the 13 DACs.
std::vector<std::string> flagKeys();
std::vector<std::string> dacKeys();

// `key` is one of these names or the name of an info item; a DAC may be followed by @ and a chip, without it has one
// value for each chip. Throw Failure, of usage for a key that there is not and for a value that does not fit.
Json readSetting(Session& session, const Device& device, const std::string& key);
// DACs and info items reach the device at once, flags with its next operation.
void writeSetting(Session& session, const Device& device, const std::string& key, const std::string& value);
