// SPDX-License-Identifier: MIT
// qdl show
#include "commands.h"
#include "frameset.h"
#include "inputfile.h"
#include "outputfiles.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>

namespace {

struct ShowOptions {
    std::string file;
    std::string format;
    std::string type;
    uint32_t chips = 0;
    bool overwrite = false;
    PictureOptions pictures;
};

bool isBlank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

bool looksLikeText(const std::string& bytes) {
    for (const char byte : bytes)
        if (!isBlank(byte) && byte != '-' && (byte < '0' || byte > '9')) return false;
    return true;
}

std::vector<double> parseText(const std::string& bytes, const std::string& file) {
    std::vector<double> items;
    const char* end = bytes.data() + bytes.size();
    for (const char* at = bytes.data(); at != end;) {
        if (isBlank(*at)) {
            ++at;
            continue;
        }
        int64_t value = 0;
        const auto [stop, error] = std::from_chars(at, end, value);
        if (error != std::errc())
            throw Failure(ExitStatus::File, formatted("%s: item %zu is not a number", file.c_str(), items.size()));
        items.push_back(static_cast<double>(value));
        at = stop;
    }
    return items;
}

// Files hold the lowest byte first.
template <typename Item>
std::vector<double> parseBinary(const std::string& bytes) {
    std::vector<double> items;
    for (size_t i = 0; i + sizeof(Item) <= bytes.size(); i += sizeof(Item)) {
        uint64_t bits = 0;
        for (size_t byte = 0; byte < sizeof(Item); ++byte)
            bits |= uint64_t{static_cast<uint8_t>(bytes[i + byte])} << 8 * byte;
        items.push_back(static_cast<double>(static_cast<Item>(bits)));
    }
    return items;
}

// What a file may be whose size does not fit.
const char* otherKind(size_t bytes) {
    if (bytes % QDL_CHIP_PIXELS == 0) return "; it fits --type u8";
    if (bytes % 2 == 0 && bytes % QDL_CHIP_STREAM_BYTES <= bytes / QDL_CHIP_STREAM_BYTES)
        return "; a raw stream needs its device to be decoded";
    return "";
}

struct Decoded {
    std::vector<double> items;
    std::string kind;
    size_t itemBytes;  // 0: text
};

Decoded decode(const std::string& bytes, const ShowOptions& options) {
    if (bytes.empty()) throw Failure(ExitStatus::File, options.file + " is empty");
    if (options.format == "text" || (options.format.empty() && looksLikeText(bytes)))
        return {parseText(bytes, options.file), "text", 0};
    const size_t itemBytes = options.type == "u32" ? 4 : options.type == "u8" ? 1 : 2;
    if (bytes.size() % (itemBytes * QDL_CHIP_PIXELS) != 0)
        throw Failure(ExitStatus::File,
                      formatted("%s has %zu bytes, no multiple of the %zu bytes of a chip%s", options.file.c_str(),
                                bytes.size(), itemBytes * QDL_CHIP_PIXELS, otherKind(bytes.size())));
    if (options.type == "u32") return {parseBinary<uint32_t>(bytes), "32-bit", 4};
    if (options.type == "u8") return {parseBinary<uint8_t>(bytes), "8-bit", 1};
    return {parseBinary<int16_t>(bytes), "16-bit", 2};
}

// A file does not tell how many chips it is of: without --chips it is taken for one frame.
FrameSet frameSet(std::shared_ptr<const Decoded> decoded, const ShowOptions& options) {
    const size_t planes = decoded->items.size() / QDL_CHIP_PIXELS;
    if (planes == 0 || decoded->items.size() % QDL_CHIP_PIXELS != 0)
        throw Failure(ExitStatus::File, formatted("%s has %zu items, no multiple of the %d pixels of a chip",
                                                  options.file.c_str(), decoded->items.size(), QDL_CHIP_PIXELS));
    const size_t chips = options.chips > 0 ? options.chips : planes;
    if (planes % chips != 0)
        throw Failure(ExitStatus::File,
                      formatted("%s has %zu planes, no multiple of %zu chips", options.file.c_str(), planes, chips));
    const size_t pixels = chips * QDL_CHIP_PIXELS;
    FrameSet set{std::filesystem::path(options.file).filename().string(),
                 "",
                 static_cast<uint32_t>(planes / chips),
                 static_cast<uint32_t>(chips),
                 [decoded, pixels](uint32_t frame) {
                     const auto first = decoded->items.begin() + static_cast<std::ptrdiff_t>(frame * pixels);
                     return std::vector<double>(first, first + static_cast<std::ptrdiff_t>(pixels));
                 },
                 decoded->itemBytes == 4 ? "sum" : ""};
    set.details = formatted("%s, %zu chip%s, %u frame%s", decoded->kind.c_str(), chips, chips == 1 ? "" : "s",
                            set.frames, set.frames == 1 ? "" : "s");
    return set;
}

// Two pixels of 16 bits take the room of one sum, and a row of chips that of frames one behind the other.
void noteOtherReadings(const Decoded& decoded, const ShowOptions& options) {
    const size_t planes = decoded.items.size() / QDL_CHIP_PIXELS;
    if (decoded.itemBytes == 2 && options.type.empty() && planes % (2 * std::max(options.chips, 1u)) == 0)
        std::fprintf(stderr, "qdl: note: it also fits %zu chip%s of 32-bit sums: --type u32\n", planes / 2,
                     planes == 2 ? "" : "s");
    if (options.chips == 0 && planes > 4)
        std::fprintf(stderr, "qdl: note: taken for one frame of %zu chips; for several frames give --chips\n", planes);
}

void show(Context& context, const ShowOptions& options) {
    OutputFiles files(options.overwrite);
    if (!options.pictures.png.empty()) files.plan(options.pictures.png);
    const auto decoded = std::make_shared<const Decoded>(decode(readFile(options.file), options));
    const FrameSet set = frameSet(decoded, options);
    noteOtherReadings(*decoded, options);
    checkPictureOptions(options.pictures, set.frames);
    const Statistics values = statisticsOf(set.read(options.pictures.frame));
    context.document = {{"file", options.file},
                        {"kind", decoded->kind},
                        {"chips", set.chips},
                        {"frames", set.frames},
                        {"frame",
                         {{"index", options.pictures.frame},
                          {"min", values.min},
                          {"max", values.max},
                          {"mean", values.mean},
                          {"sum", values.sum}}},
                        {"files", Json::array()}};
    if (!context.json)
        std::printf("%s: %s; frame %u: min %.0f, max %.0f, mean %.3f, sum %.0f\n", options.file.c_str(),
                    set.details.c_str(), options.pictures.frame, values.min, values.max, values.mean, values.sum);
    PictureOptions pictures = options.pictures;
    pictures.preview = pictures.preview || pictures.png.empty();
    drawPictures(context, set, pictures);
}

}  // namespace

void addShowCommand(CLI::App& program, Context& context) {
    CLI::App* command =
        program.add_subcommand("show", "Draw a saved frame file, in the terminal or with --png as a picture");
    auto options = std::make_shared<ShowOptions>();
    command->add_option("file", options->file, "Frame file, text or binary")->required()->type_name("FILE");
    command->add_option("--format", options->format, "text or binary (default: worked out from the contents)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "binary"}));
    command
        ->add_option("--type", options->type,
                     "Items of a binary file: i16 (default), u32 (sums), u8 (pixel configuration)")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"i16", "u32", "u8"}));
    command
        ->add_option("--chips", options->chips,
                     "Chips of the device (default: the file is one frame of as many as it has)")
        ->type_name("CHIPS")
        ->check(CLI::Range(1, 65536));
    command->add_flag("--overwrite", options->overwrite, "Replace a picture that exists already");
    addPictureOptions(*command, options->pictures);
    command->callback([&context, options] { context.command = [&context, options] { show(context, *options); }; });
}
