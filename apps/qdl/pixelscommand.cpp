// SPDX-License-Identifier: MIT
// qdl config: the pixel matrix of a device
#include "commands.h"
#include "outputfiles.h"
#include "sheet.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>

namespace fs = std::filesystem;

namespace {

struct PixelsOptions {
    std::string file;
    std::vector<std::string> places;
    uint32_t layout = 0;
    bool load = false;
    bool overwrite = false;
};

using Pixels = std::vector<uint8_t>;

Pixels readPixels(Session& session, const Device& device) {
    Pixels pixels(device.pixels());
    session.check(device,
                  session.api().getAllChipsPixelsCfg(device.id, pixels.data(), static_cast<int32_t>(device.chips)),
                  "cannot read the pixel matrix");
    return pixels;
}

int32_t setPixels(Session& session, const Device& device, const Pixels& pixels) {
    return session.api().setAllChipsPixelsCfg(device.id, pixels.data(), static_cast<int32_t>(device.chips));
}

// The library keeps a matrix that it has read in part or could not send, and would save it: put the old one back.
void change(Session& session, const Device& device, const std::string& what, const std::function<int32_t()>& call) {
    const Pixels before = readPixels(session, device);
    try {
        session.check(device, call(), what);
    } catch (const Failure&) {
        setPixels(session, device, before);
        throw;
    }
}

void tell(Context& context, const char* verb, const std::string& file) {
    context.document[verb].push_back(file);
    if (!context.json) std::printf("%s: %s\n", verb, file.c_str());
}

void load(Context& context, uint32_t id, const PixelsOptions& options) {
    withDevice(context, id, Saving::Changed, [&](Session& session, const Device& device) {
        std::error_code error;
        const uintmax_t bytes = fs::file_size(options.file, error);
        if (error)
            throw Failure(ExitStatus::File,
                          formatted("cannot read %s: %s", options.file.c_str(), error.message().c_str()));
        if (bytes != device.pixels())
            throw Failure(ExitStatus::File,
                          formatted("%s has %ju bytes, the matrix of %u chip%s has %zu", options.file.c_str(), bytes,
                                    device.chips, device.chips == 1 ? "" : "s", device.pixels()));
        change(session, device, "cannot load " + options.file,
               [&] { return session.api().loadPixelsCfg(device.id, options.file.c_str()); });
        tell(context, "loaded", options.file);
    });
}

void save(Context& context, uint32_t id, const PixelsOptions& options) {
    OutputFiles(options.overwrite).plan(options.file);
    withDevice(context, id, Saving::Unchanged, [&](Session& session, const Device& device) {
        session.check(device, session.api().savePixelsCfg(device.id, options.file.c_str()),
                      "cannot save to " + options.file);
        tell(context, "written", options.file);
    });
}

// X,Y or X,Y,CHIP as the index of a pixel.
size_t pixelAt(const Device& device, const std::string& place) {
    std::array<uint32_t, 3> numbers = {};
    const std::array<uint32_t, 3> limits = {QDL_CHIP_SIDE, QDL_CHIP_SIDE, device.chips};
    const char* at = place.data();
    const char* end = at + place.size();
    size_t count = 0;
    for (bool more = true; more && count < numbers.size(); ++count) {
        const auto [stop, error] = std::from_chars(at, end, numbers[count]);
        if (error != std::errc() || numbers[count] >= limits[count]) break;
        more = stop != end && *stop == ',';
        at = more ? stop + 1 : stop;
    }
    if (count < 2 || at != end || place.back() == ',')
        throw Failure(ExitStatus::Usage, formatted("'%s' is no pixel X,Y or X,Y,CHIP with 0 to 255 and chip 0 to %u",
                                                   place.c_str(), device.chips - 1));
    return size_t{numbers[2]} * QDL_CHIP_PIXELS + numbers[1] * QDL_CHIP_SIDE + numbers[0];
}

void writeMask(Context& context, uint32_t id, const PixelsOptions& options, bool open) {
    withDevice(context, id, Saving::Changed, [&](Session& session, const Device& device) {
        Pixels pixels = readPixels(session, device);
        const auto write = [open](uint8_t& pixel) {
            pixel = static_cast<uint8_t>(open ? pixel | QDL_PIXEL_MASK_BIT : pixel & ~QDL_PIXEL_MASK_BIT);
        };
        for (const std::string& place : options.places)
            write(pixels[pixelAt(device, place)]);
        if (options.places.empty()) std::for_each(pixels.begin(), pixels.end(), write);
        change(session, device, "cannot set the mask", [&] { return setPixels(session, device, pixels); });
        const auto masked =
            std::count_if(pixels.begin(), pixels.end(), [](uint8_t p) { return !(p & QDL_PIXEL_MASK_BIT); });
        context.document["masked"] = masked;
        if (!context.json) std::printf("%td of %zu pixels are masked\n", masked, pixels.size());
    });
}

void mask(Context& context, uint32_t id, const PixelsOptions& options) { writeMask(context, id, options, false); }
void unmask(Context& context, uint32_t id, const PixelsOptions& options) { writeMask(context, id, options, true); }

// One text file for each field of the configuration byte, in the order in which the library takes their names.
constexpr const char* planeNames[] = {"mask.txt", "test.txt", "adjustLow.txt", "adjustHigh.txt"};

void loadPlanes(Context& context, uint32_t id, const fs::path& folder) {
    std::array<std::optional<std::string>, 4> files;
    std::error_code ignored;
    for (size_t i = 0; i < files.size(); ++i)
        if (fs::exists(folder / planeNames[i], ignored)) files[i] = (folder / planeNames[i]).string();
    if (std::none_of(files.begin(), files.end(), [](const auto& file) { return file.has_value(); }))
        throw Failure(ExitStatus::File,
                      formatted("%s has none of mask.txt, test.txt, adjustLow.txt, adjustHigh.txt", folder.c_str()));
    const auto name = [&files](size_t i) { return files[i] ? files[i]->c_str() : nullptr; };
    withDevice(context, id, Saving::Changed, [&](Session& session, const Device& device) {
        change(session, device, "cannot load the planes",
               [&] { return session.api().loadPixelsCfgAscii(device.id, name(0), name(1), name(2), name(3)); });
        for (const auto& file : files)
            if (file) tell(context, "loaded", *file);
    });
}

void planes(Context& context, uint32_t id, const PixelsOptions& options) {
    const fs::path folder(options.file);
    if (options.load) return loadPlanes(context, id, folder);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Failure(ExitStatus::File,
                      formatted("cannot make folder %s: %s", folder.c_str(), error.message().c_str()));
    OutputFiles planned(options.overwrite);
    std::array<std::string, 4> files;
    for (size_t i = 0; i < files.size(); ++i)
        planned.plan(files[i] = (folder / planeNames[i]).string());
    withDevice(context, id, Saving::Unchanged, [&](Session& session, const Device& device) {
        session.check(device,
                      session.api().savePixelsCfgAscii(device.id, files[0].c_str(), files[1].c_str(), files[2].c_str(),
                                                       files[3].c_str()),
                      "cannot save the planes");
        for (const std::string& file : files)
            tell(context, "written", file);
    });
}

// Each dark pixel three by three large: a single one would be lost in a picture.
Picture thickened(const Picture& picture) {
    Picture thick = picture;
    for (uint32_t y = 0; y < picture.height; ++y)
        for (uint32_t x = 0; x < picture.width; ++x) {
            if (picture.at(x, y) > 0) continue;
            for (uint32_t row = std::max(y, 1u) - 1; row <= std::min(y + 1, picture.height - 1); ++row)
                for (uint32_t column = std::max(x, 1u) - 1; column <= std::min(x + 1, picture.width - 1); ++column)
                    thick.values[size_t{row} * picture.width + column] = 0;
        }
    return thick;
}

// One field of the configuration byte as a panel on a scale from 0 to 7.
Panel fieldPanel(const char* label, const Pixels& pixels, const Layout& layout, unsigned field) {
    return {label, [&pixels, layout, field] {
                const int shift = std::countr_zero(field);
                const unsigned largest = field >> shift;
                std::vector<double> values(pixels.size());
                std::transform(pixels.begin(), pixels.end(), values.begin(),
                               [=](uint8_t pixel) { return 7.0 / largest * ((pixel & field) >> shift); });
                const Picture picture = arrange(values, layout);
                return largest == 1 ? thickened(picture) : picture;
            }};
}

void picture(Context& context, uint32_t id, const PixelsOptions& options) {
    OutputFiles(options.overwrite).plan(options.file);
    withDevice(context, id, Saving::Unchanged, [&](Session& session, const Device& device) {
        const Pixels pixels = readPixels(session, device);
        const Layout layout = layoutFor(device.chips, options.layout);
        const auto masked =
            std::count_if(pixels.begin(), pixels.end(), [](uint8_t p) { return !(p & QDL_PIXEL_MASK_BIT); });
        Sheet sheet{device.title(),
                    formatted("pixel configuration, %td of %zu pixels masked", masked, pixels.size()),
                    layout.width(),
                    layout.height(),
                    {},
                    {0, 7, ""},
                    "setting"};
        sheet.panels.push_back(fieldPanel("mask (dark: masked)", pixels, layout, QDL_PIXEL_MASK_BIT));
        sheet.panels.push_back(fieldPanel("test bit (dark: takes pulses)", pixels, layout, QDL_PIXEL_TEST_BIT));
        sheet.panels.push_back(fieldPanel("low adjustment", pixels, layout, QDL_PIXEL_ADJUST_LOW));
        sheet.panels.push_back(fieldPanel("high adjustment", pixels, layout, QDL_PIXEL_ADJUST_HIGH));
        saveSheet(options.file, sheet);
        tell(context, "written", options.file);
    });
}

using Action = void (*)(Context& context, uint32_t id, const PixelsOptions& options);

CLI::App* addAction(CLI::App& parent, Context& context, const uint32_t& id,
                    const std::shared_ptr<PixelsOptions>& options, const char* name, const char* help, Action action) {
    CLI::App* command = parent.add_subcommand(name, help);
    command->callback([&context, &id, options, action] {
        context.command = [&context, id, options, action] { action(context, id, *options); };
    });
    return command;
}

}  // namespace

void addPixelsCommands(CLI::App& config, Context& context, const uint32_t& id) {
    auto options = std::make_shared<PixelsOptions>();
    CLI::App* pixels = config.add_subcommand("pixels", "Load, save and change the pixel matrix");
    pixels->require_subcommand(1);
    const auto add = [&](CLI::App& parent, const char* name, const char* help, Action action) {
        return addAction(parent, context, id, options, name, help, action);
    };
    constexpr const char* overwriteHelp = "Replace files that exist already";
    CLI::App* command = add(*pixels, "load", "Take the matrix of a binary file", load);
    command->add_option("file", options->file, "File of one byte for each pixel")->required()->type_name("FILE");
    command = add(*pixels, "save", "Write the matrix to a binary file", save);
    command->add_option("file", options->file, "File to write, one byte for each pixel")->required()->type_name("FILE");
    command->add_flag("--overwrite", options->overwrite, overwriteHelp);
    command = add(*pixels, "mask", "Mask pixels: they do not count", mask);
    command->add_option("pixel", options->places, "Column, row and chip (default 0)")
        ->required()
        ->type_name("X,Y[,CHIP]");
    command = add(*pixels, "unmask", "Let pixels count, or all of them if none is named", unmask);
    command->add_option("pixel", options->places, "Column, row and chip (default 0)")->type_name("X,Y[,CHIP]");
    command = add(*pixels, "planes", "Write the fields of the matrix as text files to a folder", planes);
    command->add_option("folder", options->file, "Folder of mask.txt, test.txt, adjustLow.txt and adjustHigh.txt")
        ->required()
        ->type_name("DIR");
    command->add_flag("--load", options->load, "Take those that are there instead");
    command->add_flag("--overwrite", options->overwrite, overwriteHelp);
    command = add(config, "picture", "Write a picture of the mask, the test bits and the adjustments", picture);
    command->add_option("file", options->file, "Picture to write, in PNG format")->required()->type_name("FILE");
    command->add_option("--layout", options->layout, "Chips beside each other")
        ->type_name("COLUMNS")
        ->check(CLI::Range(1, 1024));
    command->add_flag("--overwrite", options->overwrite, overwriteHelp);
}
