// SPDX-License-Identifier: MIT
// The sample phantom: a dragonfly with veined wings over test patterns (step wedge, line pairs, contrast discs and
// writing). It looks different in every mirror, so that a flipped axis or a swapped chip shows at once.
#include <algorithm>
#include <array>
#include <cmath>

#include "scene.h"

namespace qdlsim {
namespace {

struct Point {
    double x, y;
};

// Axes at `origin`, turned by `angle` (radians).
class Axes {
 public:
    Axes(Point origin, double angle) : origin_(origin), cos_(std::cos(angle)), sin_(std::sin(angle)) {}

    Point see(Point p) const {
        const double dx = p.x - origin_.x, dy = p.y - origin_.y;
        return {dx * cos_ + dy * sin_, dy * cos_ - dx * sin_};
    }

 private:
    Point origin_;
    double cos_, sin_;
};

// Path of a ray through a solid ellipsoid, 1 in its centre.
double ellipsoid(Point p, Point centre, Point radii) {
    const double x = (p.x - centre.x) / radii.x, y = (p.y - centre.y) / radii.y;
    return std::sqrt(std::max(0.0, 1.0 - x * x - y * y));
}

// Path through a round rod from `a` to `b`, 1 on its axis.
double rod(Point p, Point a, Point b, double radius) {
    const double bx = b.x - a.x, by = b.y - a.y, px = p.x - a.x, py = p.y - a.y;
    const double along = std::clamp((px * bx + py * by) / (bx * bx + by * by), 0.0, 1.0);
    const double dx = px - along * bx, dy = py - along * by;
    return std::sqrt(std::max(0.0, 1.0 - (dx * dx + dy * dy) / (radius * radius)));
}

bool inside(Point p, double left, double top, double right, double bottom) {
    return p.x >= left && p.x < right && p.y >= top && p.y < bottom;
}

double fraction(double value) { return value - std::floor(value); }

struct Wing {
    Axes axes;  // at the root, along the wing
    double length, width;
    double backward;  // direction of the tail across the wing, 1 or -1
};

// `p` counts along the wing and across it, towards the tail, in lengths of the wing.
double wingThickness(Point p, double width) {
    if (!inside(p, 0.0, -0.25 * width, 1.0, width)) return 0.0;
    const double outline = std::pow(p.x, 0.45) * std::pow(1.0 - p.x, 0.3);
    const double front = -0.25 * width * outline, back = width * outline;
    if (p.y < front || p.y > back) return 0.0;
    constexpr double kVein = 0.006;
    constexpr int kBands = 6;
    const double across = (p.y - front) / (back - front) * kBands;
    const double band = std::floor(across);
    const double toVein = (0.5 - std::fabs(fraction(across) - 0.5)) / kBands * (back - front);
    const double cell = p.x * (band < 2 ? 12.0 : 20.0) + 0.5 * std::fmod(band, 2.0) + 0.3 * band;
    const double toCrossVein = (0.5 - std::fabs(fraction(cell) - 0.5)) / (band < 2 ? 12.0 : 20.0);
    if (p.y - front < 2.5 * kVein) return 0.75;
    if (inside({p.x, across}, 0.80, 0.0, 0.88, 1.2)) return 1.3;
    if (toVein < kVein) return 0.5;
    if (toCrossVein < 0.6 * kVein) return 0.35;
    return 0.10 + 0.05 * (1.0 - p.x);
}

double abdomenThickness(Point p) {
    if (!inside(p, -0.02, -0.06, 0.46, 0.06)) return 0.0;
    double thickness = rod(p, {0.415, 0.014}, {0.450, 0.002}, 0.004) + rod(p, {0.415, 0.018}, {0.450, 0.032}, 0.004);
    for (int segment = 0; segment < 9; ++segment) {
        const double x = 0.020 + 0.046 * segment;
        const double swell = 0.015 + 0.009 * std::fabs(segment - 3.5) / 3.5;
        thickness += 1.1 * ellipsoid(p, {x, 0.10 * x * x}, {0.028, swell});
    }
    return thickness;
}

double legThickness(Point p) {
    if (!inside(p, -0.25, -0.14, 0.0, 0.14)) return 0.0;
    double thickness = 0.0;
    for (double side : {-1.0, 1.0})
        for (double leg : {0.0, 1.0, 2.0}) {
            const Point knee = {-0.20 + 0.075 * leg, side * (0.085 + 0.01 * leg)};
            thickness += 0.7 * rod(p, {-0.12 + 0.03 * leg, side * 0.03}, knee, 0.005);
            thickness += 0.6 * rod(p, knee, {knee.x - 0.035 + 0.03 * leg, side * 0.13}, 0.0035);
        }
    return thickness;
}

double bodyThickness(Point p) {
    if (!inside(p, -0.25, -0.14, 0.46, 0.14)) return 0.0;
    return 1.5 * ellipsoid(p, {-0.075, 0.0}, {0.080, 0.050}) + 0.9 * ellipsoid(p, {-0.165, 0.0}, {0.025, 0.040}) +
           1.3 * ellipsoid(p, {-0.170, -0.034}, {0.028, 0.030}) + 1.3 * ellipsoid(p, {-0.170, 0.034}, {0.028, 0.030}) +
           abdomenThickness(p) + legThickness(p);
}

double dragonflyThickness(Point p) {
    static const Axes body({0.48, 0.46}, 0.62);
    static const std::array<Wing, 4> wings = {{{Axes({-0.085, 0.025}, 1.75), 0.38, 0.23, -1.0},
                                               {Axes({-0.085, -0.025}, -1.75), 0.38, 0.23, 1.0},
                                               {Axes({-0.040, 0.025}, 1.25), 0.35, 0.31, -1.0},
                                               {Axes({-0.040, -0.025}, -1.25), 0.35, 0.31, 1.0}}};
    const Point local = body.see(p);
    double thickness = bodyThickness(local);
    for (const Wing& wing : wings) {
        const Point q = wing.axes.see(local);
        thickness += wingThickness({q.x / wing.length, q.y * wing.backward / wing.length}, wing.width);
    }
    return thickness;
}

// Nine steps of equal height, thickest at the bottom.
double wedgeThickness(Point p) {
    if (!inside(p, 0.04, 0.50, 0.11, 0.95)) return 0.0;
    return 0.3 * (1.0 + std::floor((p.y - 0.50) / 0.05));
}

// Groups of five bars, upright and below them lying, each group finer than the one before. Counted in pixels of a
// picture 512 pixels wide, where the bars of the last group are one pixel wide.
double linePairThickness(Point p) {
    constexpr std::array<double, 6> kPitches = {12.0, 8.0, 6.0, 4.0, 3.0, 2.0};
    const Point q = {p.x * 512.0 - 272.0, p.y * 512.0 - 430.0};
    if (q.x < 0.0 || q.y < 0.0) return 0.0;
    double left = 0.0;
    for (double pitch : kPitches) {
        const double extent = 4.5 * pitch;
        if (inside(q, left, 0.0, left + extent, 16.0) && fraction((q.x - left) / pitch) < 0.5) return 2.5;
        if (inside(q, left, 20.0, left + extent, 20.0 + extent) && fraction((q.y - 20.0) / pitch) < 0.5) return 2.5;
        left += 5.0 * pitch + 9.0;
    }
    return 0.0;
}

double discThickness(Point p) {
    if (p.y < 0.88) return 0.0;
    double thickness = 0.0;
    for (int disc = 0; disc < 5; ++disc)
        if (std::hypot(p.x - (0.19 + 0.07 * disc), p.y - 0.92) < 0.030 - 0.003 * disc) thickness = 0.08 * (1 << disc);
    return thickness;
}

// QDL, five columns of seven dots a letter, the top dot in the lowest bit.
double writingThickness(Point p) {
    constexpr std::array<uint8_t, 17> kColumns = {0x3E, 0x41, 0x51, 0x21, 0x5E, 0,    0x7F, 0x41, 0x41,
                                                  0x22, 0x1C, 0,    0x7F, 0x40, 0x40, 0x40, 0x40};
    constexpr double kDot = 0.009;
    const double column = (p.x - 0.05) / kDot, row = (p.y - 0.05) / kDot;
    if (column < 0.0 || column >= kColumns.size() || row < 0.0 || row >= 7.0) return 0.0;
    return kColumns[static_cast<size_t>(column)] >> static_cast<int>(row) & 1 ? 1.8 : 0.0;
}

}  // namespace

// Absorption by the law of Beer and Lambert; thickness in absorption lengths.
double phantomLight(double x, double y) {
    const Point p = {x, y};
    return std::exp(-dragonflyThickness(p) - wedgeThickness(p) - linePairThickness(p) - discThickness(p) -
                    writingThickness(p));
}

}  // namespace qdlsim
