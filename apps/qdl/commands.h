// SPDX-License-Identifier: MIT
// The subcommands. Each one adds its arguments to the parser and leaves what to do in context.command.
#pragma once

#include "session.h"

namespace CLI {
class App;
}

void addListCommand(CLI::App& program, Context& context);
void addInfoCommand(CLI::App& program, Context& context);
void addAcquireCommand(CLI::App& program, Context& context);
void addShowCommand(CLI::App& program, Context& context);
void addConfigCommand(CLI::App& program, Context& context);
// The part of `qdl config` that deals with the pixel matrix of device `id`.
void addPixelsCommands(CLI::App& config, Context& context, const uint32_t& id);

// Initializes a device, works on it and ends the library, which saves the settings.
void withDevice(Context& context, uint32_t id, Saving saving,
                const std::function<void(Session& session, const Device& device)>& work);
