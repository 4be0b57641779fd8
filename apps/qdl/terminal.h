// SPDX-License-Identifier: MIT
// What the program draws in the terminal: a frame in coloured half blocks, and the line of a run's progress.
#pragma once

#include "pictures.h"

#include <chrono>
#include <cstdio>

// Draws the picture to `out`, fitted to the terminal, row 0 on top; in plain characters if NO_COLOR is set.
void drawPreview(std::FILE* out, const Picture& picture, const Scale& scale);

// The state of a run.
struct ProgressState {
    uint32_t frames = 0;
    uint32_t wanted = 0;
    uint32_t lostReadouts = 0;
    double elapsedSeconds = 0;
    double expectedSeconds = 0;

    double rate() const { return elapsedSeconds > 0 ? frames / elapsedSeconds : 0; }
};

// A line on standard error that is drawn over and over, if that is a terminal.
class ProgressLine {
 public:
    ProgressLine();
    void draw(const ProgressState& state);
    void erase();

 private:
    bool terminal;
};

// Frames, rate and lost read-outs of a finished run in words.
std::string runText(const ProgressState& state);
