// SPDX-License-Identifier: MIT
#include "frameset.h"

#include "sheet.h"
#include "terminal.h"

#include <CLI/CLI.hpp>

#include <cmath>

void addPictureOptions(CLI::App& command, PictureOptions& options) {
    command.add_option("--png", options.png, "Write a picture: a contact sheet of up to 24 frames")->type_name("FILE");
    command.add_flag("--preview", options.preview, "Draw one frame in the terminal");
    command.add_flag("--plain", options.plain, "Pictures show the bare pixels of one frame, without title and scale");
    command
        .add_option("--frame", options.frame, "The frame for --preview, --plain and a single save (from 0, default 0)")
        ->type_name("INDEX");
    command.add_option("--layout", options.layout, "Chips beside each other in pictures")
        ->type_name("COLUMNS")
        ->check(CLI::Range(1, 1024));
    command.add_option("--range", options.range, "Values of the darkest and the brightest colour")
        ->type_name("LOW,HIGH")
        ->delimiter(',')
        ->expected(2);
    command.footer(std::string(layoutHelp) + "\n" + command.get_footer());
}

void checkPictureOptions(const PictureOptions& options, uint32_t frames) {
    if (options.frame >= frames)
        throw Failure(ExitStatus::Usage,
                      formatted("--frame %u: there are the frames 0 to %u", options.frame, frames - 1));
    const std::vector<double>& range = options.range;
    if (!range.empty() && !(std::isfinite(range[0]) && std::isfinite(range[1]) && range[0] < range[1]))
        throw Failure(ExitStatus::Usage, "--range takes two values, the lower one first");
}

void savePicture(const std::string& file, const FrameSet& set, const std::vector<uint32_t>& frames,
                 const PictureOptions& options) {
    const Layout layout = layoutFor(set.chips, options.layout);
    const Scale scale = scaleFor(frames, set.read, options.range);
    if (options.plain) return savePlain(file, arrange(set.read(frames.front()), layout), scale);
    Sheet sheet{set.title, set.details, layout.width(), layout.height(), {}, scale, "counts"};
    if (frames.size() < set.frames && frames.size() > 1)
        sheet.details += formatted(", %zu of them shown", frames.size());
    sheet.details += ", colours: " + scale.origin;
    for (const uint32_t frame : frames)
        sheet.panels.push_back({set.label.empty() ? formatted("frame %u", frame) : set.label,
                                [&set, &layout, frame] { return arrange(set.read(frame), layout); }});
    saveSheet(file, sheet);
}

void drawPictures(Context& context, const FrameSet& set, const PictureOptions& options) {
    if (options.preview && options.frame < set.frames) {
        const Picture picture = arrange(set.read(options.frame), layoutFor(set.chips, options.layout));
        drawPreview(context.json ? stderr : stdout, picture, scaleFor({options.frame}, set.read, options.range));
    }
    if (options.png.empty() || set.frames == 0) return;
    savePicture(options.png, set, options.plain ? std::vector{options.frame} : selectFrames(set.frames, sheetFrames),
                options);
    context.document["files"].push_back(options.png);
    if (!context.json) std::printf("written: %s\n", options.png.c_str());
}
