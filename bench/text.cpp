// SPDX-License-Identifier: MIT
// Frames to files of the memory file system and back.
#include <filesystem>
#include <memory>
#include <random>

#include "device.h"
#include "limits.h"
#include "plain.h"
#include "rounds.h"

namespace bench {
namespace {

// An evenly lit frame. Where the mean is a power of ten, no one can guess how many digits the next number has.
std::vector<int16_t> poissonCounts(double mean) {
    std::mt19937 random(1);
    std::poisson_distribution<int> counts(mean);
    std::vector<int16_t> frame(QDL_CHIP_PIXELS);
    for (int16_t& pixel : frame)
        pixel = static_cast<int16_t>(counts(random));
    return frame;
}

// The limit of a file that was written already: the same bytes in one write.
Call sameBytes(const std::string& path) {
    const std::size_t bytes = std::filesystem::file_size(path);
    const auto copy = std::make_shared<Area>(bytes);
    readWhole(path, copy->as<char>(), bytes);
    return [copy, bytes] { writeWhole(memoryFile("limit"), copy->as<char>(), bytes); };
}

Contest saving(const Device& device, int32_t flags) {
    const std::string path = memoryFile("ours");
    const Call save = [id = device.id, path, flags] { must(saveFrame(id, path.c_str(), 0, flags)); };
    save();
    return {save, sameBytes(path)};
}

Contest writeFrame(double mean) {
    const Device device(1);
    const std::vector<int16_t> frame = poissonCounts(mean);
    device.setFrame(frame);
    must(performFrameAcq(device.id, 1, 0.0, 0, nullptr));
    Contest contest = saving(device, 0);
    contest.plain = [frame] { plain::writeText(memoryFile("plain").c_str(), frame.data(), frame.size()); };
    return contest;
}

// Forty exposures of counts below 25000 make sums below a million.
Contest writeSum() {
    constexpr int32_t exposures = 40;
    const Device device(1);
    std::mt19937 random(2);
    std::vector<int16_t> frame(QDL_CHIP_PIXELS);
    std::vector<uint32_t> sums(QDL_CHIP_PIXELS);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<int16_t>(random() % 25000);
        sums[i] = static_cast<uint32_t>(frame[i] * exposures);
    }
    device.setFrame(frame);
    must(performIntegralAcq(device.id, exposures, 0.0));
    Contest contest = saving(device, 0);
    contest.plain = [sums] { plain::writeText(memoryFile("plain").c_str(), sums.data(), sums.size()); };
    return contest;
}

Contest readFrame(double mean) {
    const Device device(1);
    device.setFrame(poissonCounts(mean));
    must(performFrameAcq(device.id, 1, 0.0, 1, memoryFile("run").c_str()));
    const std::string path = memoryFile("run0");
    const std::size_t bytes = std::filesystem::file_size(path);
    const auto frame = std::make_shared<Area>(QDL_CHIP_PIXELS * sizeof(int16_t));
    const auto text = std::make_shared<Area>(bytes);
    return {[device, frame] { must(getFrame16(device.id, frame->as<int16_t>(), device.pixels, 0, nullptr)); },
            [path, text, bytes] {
                readWhole(path, text->as<char>(), bytes);
                text->as<volatile uint64_t>()[0] = onePass(text->as<char>(), bytes);
            },
            [path, frame] { plain::readText(path.c_str(), frame->as<int16_t>(), QDL_CHIP_PIXELS); }};
}

Contest writeRaw() {
    const Device device(1);
    must(performFastAcq(device.id, 1, 0.0, 0, nullptr));
    return saving(device, SAVE_RAW_STREAM);
}

}  // namespace

void addRows() {
    // A thousand counts, three or four digits; the points below tell what fewer digits change.
    addRow("text frame written", {1.7, 10}, 300, [] { return writeFrame(1000); });
    addRow("text sum written", {2.5, 5}, 300, writeSum);
    addRow("text frame read", {8, 10}, 200, [] { return readFrame(1000); });
    addRow("raw frame to file", {1.1}, 600, writeRaw);
    for (const int mean : {10, 100, 1000}) {
        addRow("scale/text written/" + std::to_string(mean), {}, 100, [=] { return writeFrame(mean); });
        addRow("scale/text read/" + std::to_string(mean), {}, 100, [=] { return readFrame(mean); });
    }
}

}  // namespace bench
