// SPDX-License-Identifier: MIT
// A frame handed to the host, in the three element types.
#include <cstring>
#include <memory>

#include "device.h"
#include "limits.h"
#include "plain.h"
#include "rounds.h"

namespace bench {
namespace {

constexpr uint32_t pixels = QDL_CHIP_PIXELS;
constexpr int rounds = 600;

// What the contestants share: the host's buffer, and the frame as the limit and the plain form have it.
struct Host {
    Device device{1};
    Area buffer{pixels * sizeof(double)};
    Area frame{pixels * sizeof(int16_t)};
};

void get(const Host& host, int16_t* buffer) { must(getFrame16(host.device.id, buffer, pixels, 0, nullptr)); }
void get(const Host& host, uint32_t* buffer) { must(getFrame32(host.device.id, buffer, pixels, 0, nullptr)); }
void get(const Host& host, double* buffer) { must(getFrameDouble(host.device.id, buffer, pixels, 0, nullptr)); }

void stream(const int16_t* frame, int16_t* buffer) { std::memcpy(buffer, frame, pixels * sizeof *frame); }
void stream(const int16_t* frame, uint32_t* buffer) { streamTo32(frame, buffer, pixels); }
void stream(const int16_t* frame, double* buffer) { streamTo64(frame, buffer, pixels); }

template <class Element>
Contest getter(const std::shared_ptr<Host>& host) {
    return {[host] { get(*host, host->buffer.as<Element>()); },
            [host] { stream(host->frame.as<int16_t>(), host->buffer.as<Element>()); }};
}

template <class Element>
Contest fromMemory() {
    const auto host = std::make_shared<Host>();
    must(performFrameAcq(host->device.id, 1, 0.0, 0, nullptr));
    Contest contest = getter<Element>(host);
    if constexpr (sizeof(Element) > sizeof(int16_t))
        contest.plain = [host] { plain::widen(host->frame.as<int16_t>(), host->buffer.as<Element>(), pixels); };
    return contest;
}

// The conversion itself costs nothing here: the pixels are what the buffer happens to hold.
template <class Element>
Contest inPlace() {
    const auto host = std::make_shared<Host>();
    must(performFastAcq(host->device.id, 1, 0.0, 0, nullptr));
    host->device.setWork(0);
    Contest contest = getter<Element>(host);
    contest.plain = [host] { plain::widenInPlace(host->buffer.as<Element>(), pixels); };
    return contest;
}

}  // namespace

void addRows() {
    addRow("getter 16 bit", {1.1}, rounds, fromMemory<int16_t>);
    addRow("getter 32 bit, from memory", {1.6, 4}, rounds, fromMemory<uint32_t>);
    addRow("getter double, from memory", {1.6, 3}, rounds, fromMemory<double>);
    addRow("getter 32 bit, in place", {2, 4}, rounds, inPlace<uint32_t>);
    addRow("getter double, in place", {2, 3}, rounds, inPlace<double>);
}

}  // namespace bench
