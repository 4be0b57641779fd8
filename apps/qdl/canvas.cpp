// SPDX-License-Identifier: MIT
#include "canvas.h"

#include "failure.h"
#include "font.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

static_assert(sizeof(Color) == 3, "libpng reads rows of three bytes for each dot");

Canvas::Canvas(int canvasWidth, int canvasHeight, Color background)
    : columns(canvasWidth), rows(canvasHeight), dots(size_t(canvasWidth) * canvasHeight, background) {}

void Canvas::fill(int x, int y, int fillWidth, int fillHeight, Color color) {
    const int left = std::max(x, 0), right = std::min(x + fillWidth, columns);
    for (int row = std::max(y, 0); row < std::min(y + fillHeight, rows); ++row)
        for (int column = left; column < right; ++column)
            dots[size_t(row) * columns + column] = color;
}

void Canvas::write(int x, int y, std::string_view text, Color color, int scale) {
    for (const char character : text) {
        const uint8_t* glyph = glyphOf(character);
        for (int column = 0; column < glyphColumns; ++column)
            for (int row = 0; row < glyphRows; ++row)
                if (glyph[column] >> row & 1) fill(x + column * scale, y + row * scale, scale, scale, color);
        x += glyphAdvance * scale;
    }
}

void Canvas::savePng(const std::string& file) const {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(columns);
    image.height = static_cast<png_uint_32>(rows);
    image.format = PNG_FORMAT_RGB;
    const auto require = [&file](bool done, const char* reason) {
        if (!done) throw Failure(ExitStatus::File, formatted("cannot write picture %s: %s", file.c_str(), reason));
    };
    // Not by name: after a failure libpng would remove what stood there before.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "wb"), std::fclose);
    require(stream != nullptr, std::strerror(errno));
    require(png_image_write_to_stdio(&image, stream.get(), 0, dots.data(), 0, nullptr), image.message);
    const bool closed = std::fclose(stream.release()) == 0;
    require(closed, std::strerror(errno));
}

int textWidth(std::string_view text, int scale) { return (static_cast<int>(text.size()) * glyphAdvance - 1) * scale; }
int textHeight(int scale) { return glyphRows * scale; }
