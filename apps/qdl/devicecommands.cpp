// SPDX-License-Identifier: MIT
// qdl list, qdl info
#include "commands.h"
#include "infoitems.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

// Initializes a device only if asked to, since that sends settings to the hardware.
std::string stateOf(Session& session, const Device& device, bool initialize) {
    if (!initialize) return "found";
    try {
        session.initialize(device);
        return "ready";
    } catch (const Failure& failure) {
        return "failed: " + describe(failure);
    }
}

void list(Context& context, bool initialize) {
    Session session(context);
    context.document["devices"] = Json::array();
    const std::vector<Device> devices = session.devices();
    if (!context.json && !devices.empty())
        std::printf("%3s  %-24s %-24s %5s  %s\n", "id", "hardware", "device", "chips", "state");
    for (const Device& device : devices) {
        const std::string state = stateOf(session, device, initialize);
        context.document["devices"].push_back(device.json());
        context.document["devices"].back()["state"] = state;
        if (!context.json)
            std::printf("%3u  %-24s %-24s %5u  %s\n", device.id, device.hwName.c_str(), device.devName.c_str(),
                        device.chips, state.c_str());
    }
    session.close(Saving::Changed);
    if (devices.empty()) throw Failure(ExitStatus::NoDevice, "no devices found");
}

Json itemJson(const InfoValue& item) {
    return {{"name", item.name}, {"value", item.summary()}, {"stored", item.stored}};
}

void printInfo(const Json& document, const Device& device) {
    std::printf("device %u\n  hardware    %s\n  name        %s\n  chips       %u (%zu pixels)\n  info value  %u\n",
                device.id, device.hwName.c_str(), device.devName.c_str(), device.chips, device.pixels(),
                device.infoValue);
    for (const char* kind : {"settings", "pixels"}) {
        const Json& file = document[kind];
        std::printf("  %-11s %s%s\n", kind, file["file"].get<std::string>().c_str(),
                    file["exists"] ? "" : " (none yet)");
    }
    for (const Json& item : document["items"])
        std::printf("  item        %-20s %s%s\n", item["name"].get<std::string>().c_str(),
                    textOf(item["value"]).c_str(), item["stored"] ? "  (stored)" : "");
}

void info(Context& context, uint32_t id) {
    Session session(context);
    const Device device = session.device(id);
    Json& document = context.document;
    document = device.json();
    std::error_code ignored;
    for (const auto& [kind, file] :
         {std::pair("settings", session.settingsFile(device)), {"pixels", session.pixelsFile(device)}})
        document[kind] = {{"file", file}, {"exists", std::filesystem::exists(file, ignored)}};
    document["items"] = Json::array();
    for (const InfoValue& item : readItems(session, device))
        document["items"].push_back(itemJson(item));
    if (!context.json) printInfo(document, device);
}

}  // namespace

void addListCommand(CLI::App& program, Context& context) {
    CLI::App* command = program.add_subcommand("list", "List the devices");
    auto initialize = std::make_shared<bool>(false);
    command->add_flag("--init", *initialize,
                      "Initialize each device and tell whether it is ready; this sends its settings");
    command->callback(
        [&context, initialize] { context.command = [&context, initialize] { list(context, *initialize); }; });
}

void addInfoCommand(CLI::App& program, Context& context) {
    CLI::App* command =
        program.add_subcommand("info", "Tell what a device is, and the values that its HW library publishes");
    auto id = std::make_shared<uint32_t>();
    command->add_option("id", *id, "Device id, as listed")->required()->type_name("ID");
    command->callback([&context, id] { context.command = [&context, id] { info(context, *id); }; });
}
