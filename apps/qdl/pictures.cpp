// SPDX-License-Identifier: MIT
#include "pictures.h"

#include "canvas.h"
#include "failure.h"

#include <algorithm>
#include <cmath>
#include <numeric>

const char* const layoutHelp =
    "Pictures: row 0 is on top; four chips make a square (0 and 1 above 2 and 3),\n"
    "any other number stands in one row; --layout COLUMNS places them otherwise.\n";

Layout layoutFor(uint32_t chips, uint32_t columns) {
    if (columns > 0) return {chips, std::min(columns, chips)};
    return {chips, chips == 4 ? 2 : chips};
}

double Picture::mean(uint32_t x, uint32_t y, uint32_t blockWidth, uint32_t blockHeight) const {
    const uint32_t right = std::min(x + blockWidth, width), bottom = std::min(y + blockHeight, height);
    double sum = 0;
    for (uint32_t row = y; row < bottom; ++row)
        for (uint32_t column = x; column < right; ++column)
            sum += at(column, row);
    return sum / (double(right - x) * (bottom - y));
}

Picture arrange(std::span<const double> pixels, const Layout& layout) {
    Picture picture{layout.width(), layout.height(), std::vector<float>(size_t{layout.width()} * layout.height())};
    for (uint32_t chip = 0; chip < layout.chips; ++chip) {
        const size_t left = size_t{chip % layout.columns} * QDL_CHIP_SIDE;
        const size_t top = size_t{chip / layout.columns} * QDL_CHIP_SIDE;
        for (size_t y = 0; y < QDL_CHIP_SIDE; ++y) {
            const auto row =
                pixels.begin() + static_cast<std::ptrdiff_t>(size_t{chip} * QDL_CHIP_PIXELS + y * QDL_CHIP_SIDE);
            std::copy_n(row, QDL_CHIP_SIDE,
                        picture.values.begin() + static_cast<std::ptrdiff_t>((top + y) * picture.width + left));
        }
    }
    return picture;
}

namespace {

constexpr size_t mostSamples = size_t{1} << 20;

std::vector<double> sample(const std::vector<uint32_t>& frames, const FrameReader& read) {
    std::vector<double> samples;
    for (const uint32_t frame : frames) {
        const std::vector<double> pixels = read(frame);
        // An odd step: it must not stay in the same columns.
        const size_t step = (pixels.size() * frames.size() / mostSamples) | 1;
        for (size_t i = 0; i < pixels.size(); i += step)
            samples.push_back(pixels[i]);
    }
    return samples;
}

double quantile(std::vector<double>& samples, double part) {
    const auto place = samples.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), place, samples.end());
    return *place;
}

}  // namespace

std::string scaleText(double value) { return formatted(value == std::floor(value) ? "%.0f" : "%.6g", value); }

Scale scaleFor(const std::vector<uint32_t>& frames, const FrameReader& read, const std::vector<double>& range) {
    if (range.size() == 2) return {range[0], range[1], "fixed"};
    std::vector<double> samples = sample(frames, read);
    if (samples.empty()) return {};
    const double low = quantile(samples, 0.001), high = quantile(samples, 0.999);
    if (low < high) return {low, high, "0.1-99.9 % of pixels"};
    const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
    return {*min, *max > *min ? *max : *min + 1, "all pixels"};
}

std::vector<uint32_t> selectFrames(uint32_t count, uint32_t most) {
    std::vector<uint32_t> frames(std::min(count, most));
    std::iota(frames.begin(), frames.end(), 0u);
    if (count > most)
        for (uint32_t& frame : frames)
            frame = static_cast<uint32_t>(uint64_t{frame} * (count - 1) / (most - 1));
    return frames;
}

void savePlain(const std::string& file, const Picture& picture, const Scale& scale) {
    const int width = static_cast<int>(picture.width), height = static_cast<int>(picture.height);
    Canvas canvas(width, height, {});
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            canvas.fill(x, y, 1, 1, mapColor(scale.position(picture.at(uint32_t(x), uint32_t(y)))));
    canvas.savePng(file);
}

Statistics statisticsOf(std::span<const double> pixels) {
    Statistics result;
    if (pixels.empty()) return result;
    const auto [min, max] = std::minmax_element(pixels.begin(), pixels.end());
    result.min = *min, result.max = *max;
    result.sum = std::accumulate(pixels.begin(), pixels.end(), 0.0);
    result.mean = result.sum / static_cast<double>(pixels.size());
    return result;
}
