// SPDX-License-Identifier: MIT
// Frames of a run or of a file, and the pictures that are made of them.
#pragma once

#include "pictures.h"
#include "session.h"

namespace CLI {
class App;
}

struct FrameSet {
    std::string title;
    std::string details;
    uint32_t frames = 0;
    uint32_t chips = 0;
    FrameReader read;
    std::string label = {};  // of a single result; empty: frames have numbers
};

struct PictureOptions {
    std::string png;
    bool preview = false;
    bool plain = false;
    uint32_t frame = 0;
    uint32_t layout = 0;
    std::vector<double> range;
};

void addPictureOptions(CLI::App& command, PictureOptions& options);
// Throws the Failure of wrong usage.
void checkPictureOptions(const PictureOptions& options, uint32_t frames);

// One picture file of some of the frames: a contact sheet, or the bare pixels of the first one.
void savePicture(const std::string& file, const FrameSet& set, const std::vector<uint32_t>& frames,
                 const PictureOptions& options);
// What --png and --preview ask for. With --json the preview goes to standard error.
void drawPictures(Context& context, const FrameSet& set, const PictureOptions& options);
