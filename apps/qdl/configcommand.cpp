// SPDX-License-Identifier: MIT
// qdl config: settings of a device
#include "commands.h"
#include "infoitems.h"
#include "inputfile.h"
#include "outputfiles.h"
#include "settings.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>

namespace {

struct ConfigOptions {
    uint32_t id = 0;
    std::string file;
    std::string key;
    std::vector<std::string> values;
    bool overwrite = false;
};

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

void get(Context& context, const ConfigOptions& options) {
    withDevice(context, options.id, Saving::Unchanged, [&](Session& session, const Device& device) {
        const Json value = readSetting(session, device, options.key);
        context.document[options.key] = value;
        if (!context.json) std::printf("%s\n", textOf(value).c_str());
    });
}

void set(Context& context, const ConfigOptions& options) {
    withDevice(context, options.id, Saving::Changed, [&](Session& session, const Device& device) {
        const Json before = readSetting(session, device, options.key);
        writeSetting(session, device, options.key, joined(options.values));
        const Json after = readSetting(session, device, options.key);
        context.document[options.key] = {{"before", before}, {"after", after}};
        if (!context.json)
            std::printf("%s: %s -> %s\n", options.key.c_str(), textOf(before).c_str(), textOf(after).c_str());
    });
}

Json pixelCounts(Session& session, const Device& device) {
    std::vector<uint8_t> pixels(device.pixels());
    session.check(device,
                  session.api().getAllChipsPixelsCfg(device.id, pixels.data(), static_cast<int32_t>(device.chips)),
                  "cannot read the pixel matrix");
    Json chips = Json::array();
    for (auto plane = pixels.begin(); plane != pixels.end(); plane += QDL_CHIP_PIXELS) {
        const auto without = [plane](unsigned bit) {
            return std::count_if(plane, plane + QDL_CHIP_PIXELS, [bit](uint8_t pixel) { return (pixel & bit) == 0; });
        };
        chips.push_back({{"masked", without(QDL_PIXEL_MASK_BIT)}, {"testPulses", without(QDL_PIXEL_TEST_BIT)}});
    }
    return chips;
}

Json configJson(Session& session, const Device& device) {
    Json document = {
        {"device", device.json()}, {"flags", Json::object()}, {"dacs", Json::object()}, {"items", Json::object()}};
    for (const std::string& key : flagKeys())
        document["flags"][key] = readSetting(session, device, key);
    for (const std::string& key : dacKeys())
        document["dacs"][key] = readSetting(session, device, key);
    for (const InfoValue& item : readItems(session, device))
        document["items"][item.name] = item.summary();
    document["pixels"] = pixelCounts(session, device);
    return document;
}

void printValues(const char* title, const Json& values) {
    if (!values.empty()) std::printf("%s\n", title);
    for (const auto& [key, value] : values.items())
        std::printf("  %-16s %s\n", key.c_str(), textOf(value).c_str());
}

void printDacs(const Json& dacs, uint32_t chips) {
    std::printf("%-18s", "DACs");
    for (uint32_t chip = 0; chip < chips; ++chip)
        std::printf(" %8s", formatted("chip %u", chip).c_str());
    std::printf("\n");
    for (const auto& [key, value] : dacs.items()) {
        std::printf("  %-16s", key.c_str());
        for (uint32_t chip = 0; chip < chips; ++chip)
            std::printf(" %8d", (value.is_array() ? value[chip] : value).get<int>());
        std::printf("\n");
    }
}

void show(Context& context, const ConfigOptions& options) {
    withDevice(context, options.id, Saving::Unchanged, [&](Session& session, const Device& device) {
        context.document = configJson(session, device);
        if (context.json) return;
        std::printf("device %u: %s\n", device.id, device.title().c_str());
        printValues("flags", context.document["flags"]);
        printDacs(context.document["dacs"], device.chips);
        printValues("info items", context.document["items"]);
        std::printf("pixels\n");
        for (uint32_t chip = 0; chip < device.chips; ++chip)
            std::printf("  chip %-11u %s masked, %s open to test pulses\n", chip,
                        context.document["pixels"][chip]["masked"].dump().c_str(),
                        context.document["pixels"][chip]["testPulses"].dump().c_str());
    });
}

// A file that cannot be read, or is no configuration, would put defaults in force, which would then be saved: look
// before. What can be read only once would be gone for the library.
void requireConfiguration(const std::string& file) {
    std::error_code ignored;
    if (std::filesystem::is_other(file, ignored)) throw Failure(ExitStatus::File, file + " is no regular file");
    if (("\n" + readFile(file)).find("\n[Quandel]") == std::string::npos)
        throw Failure(ExitStatus::File, file + " is no configuration file: it has no heading [Quandel]");
}

// The library keeps settings that it has read in part or could not send, and would save them: put the old ones back.
int32_t loadSettings(Session& session, const Device& device, const std::string& file) {
    try {
        const int32_t result = session.api().loadQdlCfg(device.id, file.c_str());
        session.check(device, result, "cannot load " + file);
        session.check(device, session.api().refreshDACs(device.id), "cannot send the DACs");
        return result;
    } catch (const Failure&) {
        session.api().loadQdlCfg(device.id, session.settingsFile(device).c_str());
        throw;
    }
}

void load(Context& context, const ConfigOptions& options) {
    requireConfiguration(options.file);
    withDevice(context, options.id, Saving::Changed, [&](Session& session, const Device& device) {
        const int32_t result = loadSettings(session, device, options.file);
        context.document = {{"loaded", options.file}, {"complete", result == QDL_OK}};
        if (!context.json)
            std::printf("loaded: %s%s\n", options.file.c_str(),
                        result == QDL_OK ? "" : ", with defaults for the missing keys");
    });
}

void save(Context& context, const ConfigOptions& options) {
    OutputFiles(options.overwrite).plan(options.file);
    withDevice(context, options.id, Saving::Unchanged, [&](Session& session, const Device& device) {
        session.check(device, session.api().saveQdlCfg(device.id, options.file.c_str()),
                      "cannot save to " + options.file, ExitStatus::File);
        context.document["files"].push_back(options.file);
        if (!context.json) std::printf("written: %s\n", options.file.c_str());
    });
}

using Action = void (*)(Context& context, const ConfigOptions& options);

CLI::App* addAction(CLI::App& config, Context& context, const std::shared_ptr<ConfigOptions>& options, const char* name,
                    const char* help, Action action) {
    CLI::App* command = config.add_subcommand(name, help);
    command->callback(
        [&context, options, action] { context.command = [&context, options, action] { action(context, *options); }; });
    return command;
}

}  // namespace

void withDevice(Context& context, uint32_t id, Saving saving,
                const std::function<void(Session&, const Device&)>& work) {
    Session session(context);
    const Device device = session.device(id);
    session.initialize(device);
    work(session, device);
    session.close(saving);
}

void addConfigCommand(CLI::App& program, Context& context) {
    CLI::App* config =
        program.add_subcommand("config", "Show and change the settings of a device, which outlive the program");
    config->require_subcommand(1);
    auto options = std::make_shared<ConfigOptions>();
    config->add_option("id", options->id, "Device id, as listed")->required()->type_name("ID");

    addAction(*config, context, options, "show", "Print all settings", show);
    CLI::App* command = addAction(*config, context, options, "load", "Take the settings of a configuration file", load);
    command->add_option("file", options->file, "Configuration file, as qdl config save writes it")
        ->required()
        ->type_name("FILE");
    command = addAction(*config, context, options, "save", "Write the settings to a configuration file", save);
    command->add_option("file", options->file, "Configuration file to write")->required()->type_name("FILE");
    command->add_flag("--overwrite", options->overwrite, "Replace a file that exists already");
    constexpr const char* keyHelp =
        "polarity, cst, extShutter, spareFSR, hwTimer (always, never, auto),\n"
        "a DAC such as VthL or VthL@1 (of chip 1), or an info item by its name";
    command = addAction(*config, context, options, "get", "Print one setting", get);
    command->add_option("key", options->key, keyHelp)->required()->type_name("KEY");
    command = addAction(*config, context, options, "set", "Change one setting", set);
    command->add_option("key", options->key, keyHelp)->required()->type_name("KEY");
    command->add_option("value", options->values, "The new value; arrays take several")->required()->type_name("VALUE");
    addPixelsCommands(*config, context, options->id);
}
