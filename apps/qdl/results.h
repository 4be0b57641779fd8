// SPDX-License-Identifier: MIT
// What becomes of the finished frames of a run: summary, saved files, pictures.
#pragma once

#include "frameset.h"
#include "run.h"

struct SaveOptions {
    std::string file;
    std::string format;  // text, binary, raw or png
    bool all = false;
    bool oneFile = false;

    bool numbered() const { return all && !oneFile; }
};

// Frames that a run leaves behind: sums and test pulses leave one.
uint32_t resultFrames(Mode mode, uint32_t frames);

// The frames that can be read back. They stay valid while `session` and `device` live.
FrameSet finishedFrames(Session& session, const Device& device, const RunRequest& request, const RunResult& result);

// Prints minimum, maximum, mean and sum of each frame, and puts them into the document.
void summarize(Context& context, const FrameSet& set);

// Writes what --save asks for. A frame that was not finished is a Failure.
void saveResults(Context& context, Session& session, const Device& device, const FrameSet& set, const SaveOptions& save,
                 const PictureOptions& pictures);

// Tells of files that were written: `name` itself, or its numbers 0 to count - 1.
void noteFiles(Context& context, const std::string& name, uint32_t count, bool numbered);
