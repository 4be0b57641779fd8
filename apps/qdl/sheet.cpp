// SPDX-License-Identifier: MIT
#include "sheet.h"

#include "canvas.h"
#include "failure.h"
#include "font.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr Color background{24, 26, 30}, bright{228, 231, 236}, dim{150, 156, 166}, edge{70, 75, 84};
constexpr int margin = 24, gap = 16, labelGap = 6, titleScale = 3, textScale = 2;
constexpr int barWidth = 18, tickLength = 5;
constexpr int mostDots = 1800;      // a grid beyond that in either direction is reduced
constexpr int enlargeBelow = 1100;  // a grid that stays within that is drawn at twice its size

// Where the pictures stand, and how many dots a pixel gets: `zoom` above 1 enlarges, `reduce` above 1 averages.
struct Grid {
    int columns, rows, zoom = 1, reduce = 1;
    int tileWidth, tileHeight;

    int labelHeight() const { return textHeight(labelScale()) + labelGap; }
    int labelScale() const { return tileWidth < 120 ? 1 : textScale; }
    int width() const { return columns * tileWidth + (columns - 1) * gap; }
    int height() const { return rows * (labelHeight() + tileHeight) + (rows - 1) * gap; }
};

Grid gridOf(int columns, int panels, int width, int height) {
    Grid grid{.columns = columns, .rows = (panels + columns - 1) / columns, .tileWidth = width, .tileHeight = height};
    const int longest = std::max(columns * width, grid.rows * height);
    grid.reduce = (longest + mostDots - 1) / mostDots;
    if (longest * 2 <= enlargeBelow) grid.zoom = 2;
    grid.tileWidth = (width + grid.reduce - 1) / grid.reduce * grid.zoom;
    grid.tileHeight = (height + grid.reduce - 1) / grid.reduce * grid.zoom;
    return grid;
}

// Smaller is better: first the least reduction, then few empty places and a shape a little wider than high.
double cost(const Grid& grid, int panels) {
    const double shape = std::abs(std::log(double(grid.width()) / grid.height() / 1.3));
    const double empty = double(grid.columns * grid.rows - panels) / panels;
    return 10.0 * grid.reduce + shape + 2 * empty;
}

Grid bestGrid(int panels, int width, int height) {
    Grid best = gridOf(1, panels, width, height);
    for (int columns = 2; columns <= panels; ++columns) {
        const Grid grid = gridOf(columns, panels, width, height);
        if (cost(grid, panels) < cost(best, panels)) best = grid;
    }
    return best;
}

void drawPicture(Canvas& canvas, int left, int top, const Picture& picture, const Grid& grid, const Scale& scale) {
    const uint32_t block = static_cast<uint32_t>(grid.reduce);
    for (uint32_t y = 0; y < picture.height; y += block)
        for (uint32_t x = 0; x < picture.width; x += block)
            canvas.fill(left + int(x / block) * grid.zoom, top + int(y / block) * grid.zoom, grid.zoom, grid.zoom,
                        mapColor(scale.position(picture.mean(x, y, block, block))));
}

void drawPanels(Canvas& canvas, int top, const Sheet& sheet, const Grid& grid) {
    for (size_t i = 0; i < sheet.panels.size(); ++i) {
        const int column = static_cast<int>(i) % grid.columns, row = static_cast<int>(i) / grid.columns;
        const int x = margin + column * (grid.tileWidth + gap);
        const int y = top + row * (grid.labelHeight() + grid.tileHeight + gap);
        canvas.write(x, y, sheet.panels[i].label, dim, grid.labelScale());
        drawPicture(canvas, x, y + grid.labelHeight(), sheet.panels[i].draw(), grid, sheet.scale);
    }
}

// Round values within the scale, some six of them; whole ones if the scale has them, for data are whole.
std::vector<double> ticksOf(const Scale& scale) {
    const double wanted = (scale.high - scale.low) / 6;
    double step = std::pow(10, std::floor(std::log10(wanted)));
    for (const double factor : {5.0, 2.0})
        if (step * factor <= wanted * 1.2) {
            step *= factor;
            break;
        }
    if (std::floor(scale.high) > scale.low) step = std::max(step, 1.0);
    std::vector<double> ticks;
    for (double i = std::ceil(scale.low / step); i * step <= scale.high; ++i)
        ticks.push_back(i * step);
    return ticks;
}

int barTextWidth(const Sheet& sheet) {
    int widest = textWidth(sheet.unit, textScale) - barWidth - tickLength - 4;
    for (const double tick : ticksOf(sheet.scale))
        widest = std::max(widest, textWidth(scaleText(tick), textScale));
    return widest;
}

void drawBar(Canvas& canvas, int x, int top, int height, const Sheet& sheet) {
    canvas.fill(x - 1, top - 1, barWidth + 2, height + 2, edge);
    for (int y = 0; y < height; ++y)
        canvas.fill(x, top + y, barWidth, 1, mapColor(1.0 - double(y) / (height - 1)));
    for (const double tick : ticksOf(sheet.scale)) {
        const int y = top + static_cast<int>(std::lround((1 - sheet.scale.position(tick)) * (height - 1)));
        canvas.fill(x + barWidth + 1, y, tickLength, 1, dim);
        const int textTop = std::clamp(y - textHeight(textScale) / 2 + 1, top, top + height - textHeight(textScale));
        canvas.write(x + barWidth + tickLength + 5, textTop, scaleText(tick), bright, textScale);
    }
}

// Breaks a text into lines at blanks.
std::vector<std::string> wrap(const std::string& text, int width) {
    const size_t room = static_cast<size_t>(std::max(width / (glyphAdvance * textScale), 10));
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        size_t length = text.size() - start;
        if (length > room) {
            const size_t blank = text.rfind(' ', start + room);
            length = blank == std::string::npos || blank <= start ? room : blank - start;
        }
        lines.push_back(text.substr(start, length));
        start = text.find_first_not_of(' ', start + length);
    }
    return lines;
}

}  // namespace

void saveSheet(const std::string& file, const Sheet& sheet) {
    const Grid grid =
        bestGrid(static_cast<int>(sheet.panels.size()), static_cast<int>(sheet.width), static_cast<int>(sheet.height));
    const int inner = grid.width() + 2 * gap + barWidth + tickLength + 4 + barTextWidth(sheet);
    const std::vector<std::string> title = wrap(sheet.title, inner * textScale / titleScale);
    const std::vector<std::string> details = wrap(sheet.details, inner);
    const int titleLine = textHeight(titleScale) + 4, detailLine = textHeight(textScale) + 4;
    const int top =
        margin + static_cast<int>(title.size()) * titleLine + 6 + static_cast<int>(details.size()) * detailLine + gap;

    Canvas canvas(inner + 2 * margin, top + grid.height() + margin, background);
    int y = margin;
    for (const std::string& line : title)
        canvas.write(margin, y, line, bright, titleScale), y += titleLine;
    y += 6;
    for (const std::string& line : details)
        canvas.write(margin, y, line, dim, textScale), y += detailLine;

    drawPanels(canvas, top, sheet, grid);
    const int barLeft = margin + grid.width() + 2 * gap, barTop = top + grid.labelHeight();
    canvas.write(barLeft, top, sheet.unit, dim, textScale);
    drawBar(canvas, barLeft, barTop, std::min(grid.height() - grid.labelHeight(), 512), sheet);
    canvas.savePng(file);
}
