// SPDX-License-Identifier: MIT
#include "terminal.h"

#include "colormap.h"
#include "failure.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

struct TerminalSize {
    uint32_t columns = 80, rows = 0;  // rows 0: not known, no limit
};

TerminalSize terminalSize(std::FILE* out) {
    winsize window = {};
    if (ioctl(fileno(out), TIOCGWINSZ, &window) != 0 || window.ws_col == 0) return {};
    return {window.ws_col, window.ws_row};
}

// The picture reduced by averaging to `width` dots and the height that keeps its shape.
Picture reduced(const Picture& picture, uint32_t width) {
    const uint32_t height =
        std::max<uint32_t>(static_cast<uint32_t>(uint64_t{picture.height} * width / picture.width), 1);
    Picture small{width, height, {}};
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const auto left = static_cast<uint32_t>(uint64_t{x} * picture.width / width);
            const auto right = static_cast<uint32_t>(uint64_t{x + 1} * picture.width / width);
            const auto top = static_cast<uint32_t>(uint64_t{y} * picture.height / height);
            const auto bottom = static_cast<uint32_t>(uint64_t{y + 1} * picture.height / height);
            small.values.push_back(static_cast<float>(picture.mean(left, top, right - left, bottom - top)));
        }
    return small;
}

// Wide enough to see something, and no higher than the terminal if that can be had.
uint32_t previewWidth(const Picture& picture, TerminalSize size) {
    uint32_t width = std::min(size.columns, picture.width);
    if (size.rows > 4) {
        const uint64_t dots = uint64_t{2} * (size.rows - 3) * picture.width / picture.height;
        width = std::min(width, static_cast<uint32_t>(std::max<uint64_t>(dots, 64)));
    }
    return width;
}

std::string colorCode(int layer, Color color) {
    return formatted("\x1b[%d;2;%d;%d;%dm", layer, color.red, color.green, color.blue);
}

// Each character shows two dots: the upper one as its ink, the lower one as its background.
std::string colorRow(const Picture& picture, uint32_t y, const Scale& scale) {
    std::string line;
    for (uint32_t x = 0; x < picture.width; ++x) {
        line += colorCode(38, mapColor(scale.position(picture.at(x, y))));
        if (y + 1 < picture.height) line += colorCode(48, mapColor(scale.position(picture.at(x, y + 1))));
        line += "\u2580";
    }
    return line + "\x1b[0m\n";
}

std::string plainRow(const Picture& picture, uint32_t y, const Scale& scale) {
    constexpr std::string_view ramp = " .:-=+*#%@";
    std::string line;
    for (uint32_t x = 0; x < picture.width; ++x) {
        const double position = std::clamp(scale.position(picture.mean(x, y, 1, 2)), 0.0, 1.0);
        line += ramp[static_cast<size_t>(std::lround(position * double(ramp.size() - 1)))];
    }
    return line + "\n";
}

std::string scaleRow(const Scale& scale, bool plain) {
    std::string bar = plain ? " .:-=+*#%@" : "";
    for (int i = 0; i < 24 && !plain; ++i)
        bar += colorCode(48, mapColor(i / 23.0)) + " ";
    return scaleText(scale.low) + " " + bar + (plain ? " " : "\x1b[0m ") + scaleText(scale.high) + " counts\n";
}

std::string barText(double fraction) {
    constexpr int length = 28;
    const int full = static_cast<int>(fraction * length);
    std::string bar;
    for (int i = 0; i < length; ++i)
        bar += i < full ? "\u2588" : "\u2591";
    return bar;
}

std::string lostText(uint32_t count) {
    if (count == 0) return "";
    return formatted(", %u read-out%s lost", count, count == 1 ? "" : "s");
}

}  // namespace

void drawPreview(std::FILE* out, const Picture& picture, const Scale& scale) {
    if (picture.values.empty()) return;
    const char* noColor = std::getenv("NO_COLOR");
    const bool plain = noColor && *noColor;
    const Picture small = reduced(picture, previewWidth(picture, terminalSize(out)));
    for (uint32_t y = 0; y < small.height; y += 2)
        std::fputs((plain ? plainRow(small, y, scale) : colorRow(small, y, scale)).c_str(), out);
    std::fputs(scaleRow(scale, plain).c_str(), out);
}

std::string runText(const ProgressState& state) {
    return formatted("%u of %u frame%s in %.2f s, %.1f frames/s", state.frames, state.wanted,
                     state.wanted == 1 ? "" : "s", state.elapsedSeconds, state.rate()) +
           lostText(state.lostReadouts);
}

ProgressLine::ProgressLine() : terminal(isatty(STDERR_FILENO)) {}

void ProgressLine::draw(const ProgressState& state) {
    if (!terminal) return;
    // A long exposure moves the bar within its frame, but never past it.
    const double done = double(state.frames) / state.wanted, next = (state.frames + 0.98) / state.wanted;
    const double guess = state.expectedSeconds > 0 ? state.elapsedSeconds / state.expectedSeconds : 0;
    const double fraction = std::clamp(guess, done, std::min(next, 1.0));
    std::string line =
        formatted("\r%u/%u ", state.frames, state.wanted) + barText(fraction) +
        formatted(" %3.0f %%  %.1f frames/s  %.0f s", 100 * fraction, state.rate(), state.elapsedSeconds);
    std::fputs((line + lostText(state.lostReadouts) + "\x1b[K").c_str(), stderr);
}

void ProgressLine::erase() {
    if (terminal) std::fputs("\r\x1b[K", stderr);
}
