// SPDX-License-Identifier: MIT
#include "results.h"

#include "interrupt.h"
#include "outputfiles.h"
#include "sheet.h"

#include <cmath>
#include <ctime>

namespace {

std::string detailsOf(const RunRequest& request) {
    std::string text = formatted("%s mode", modeNames[static_cast<int>(request.mode)]);
    if (request.mode != Mode::TestPulse) text += formatted(", %u x %g s", request.frames, request.seconds);
    if (request.mode != Mode::Fast && request.spacing > 1) text += formatted(", spacing %d", request.spacing);
    const std::time_t now = std::time(nullptr);
    char date[32] = "";
    std::strftime(date, sizeof date, ", %Y-%m-%d %H:%M:%S", std::localtime(&now));
    return text + date;
}

std::string labelOf(const RunRequest& request) {
    if (request.mode == Mode::TestPulse) return "test pulses";
    if (request.mode != Mode::Integral) return "";
    return request.spacing > 1 ? "last frame" : "sum";
}

std::vector<double> readFrame(Session& session, const Device& device, uint32_t frame) {
    std::vector<double> pixels(device.pixels());
    std::string text(QDL_TEXT_SIZE, '\0');
    const int32_t code = session.api().getFrameDouble(device.id, pixels.data(), static_cast<uint32_t>(pixels.size()),
                                                      frame, text.data());
    if (code == QDL_OK) return pixels;
    throw Failure(statusOf(code, ExitStatus::Acquisition), formatted("cannot read frame %u back", frame), code,
                  text.c_str());
}

constexpr size_t longestTable = 20, tableHead = 12, tableTail = 6;

void printRow(size_t frame, const Statistics& values) {
    std::printf("%7zu %11.0f %11.0f %13.3f %15.0f\n", frame, values.min, values.max, values.mean, values.sum);
}

void printTable(const std::vector<Statistics>& frames) {
    if (frames.empty()) return;
    std::printf("%7s %11s %11s %13s %15s\n", "frame", "min", "max", "mean", "sum");
    const bool cut = frames.size() > longestTable;
    for (size_t i = 0; i < frames.size(); ++i) {
        if (cut && i == tableHead) std::printf("%7s\n", "...");
        if (!cut || i < tableHead || i >= frames.size() - tableTail) printRow(i, frames[i]);
    }
}

void printTotals(const std::vector<Statistics>& frames) {
    if (frames.size() < 2) return;
    Statistics all = frames[0];
    for (size_t i = 1; i < frames.size(); ++i) {
        all.min = std::min(all.min, frames[i].min), all.max = std::max(all.max, frames[i].max);
        all.mean += frames[i].mean, all.sum += frames[i].sum;
    }
    std::printf("%7s %11.0f %11.0f %13.3f %15.0f\n", "all", all.min, all.max, all.mean / double(frames.size()),
                all.sum);
}

int32_t flagsOf(const SaveOptions& save) {
    return (save.format == "raw" ? SAVE_RAW_STREAM : 0) | (save.format == "binary" ? SAVE_BINARY : 0) |
           (save.all ? SAVE_ALL_FRAMES : 0) | (save.oneFile ? SAVE_ONE_FILE : 0);
}

void savePictures(const FrameSet& set, const SaveOptions& save, PictureOptions pictures) {
    if (!save.all) return savePicture(save.file, set, {pictures.frame}, pictures);
    if (save.oneFile) return savePicture(save.file, set, selectFrames(set.frames, sheetFrames), pictures);
    // One scale for all of the files, so that they can be compared.
    const Scale scale = scaleFor(selectFrames(set.frames, sheetFrames), set.read, pictures.range);
    pictures.range = {scale.low, scale.high};
    for (uint32_t frame = 0; frame < set.frames; ++frame)
        savePicture(numberedName(save.file, frame), set, {frame}, pictures);
}

}  // namespace

void noteFiles(Context& context, const std::string& name, uint32_t count, bool numbered) {
    if (!numbered) context.document["files"].push_back(name);
    for (uint32_t i = 0; numbered && i < count; ++i)
        context.document["files"].push_back(numberedName(name, i));
    if (context.json) return;
    if (!numbered || count == 1) std::printf("written: %s\n", numbered ? numberedName(name, 0).c_str() : name.c_str());
    if (numbered && count > 1)
        std::printf("written: %s to %s\n", numberedName(name, 0).c_str(), numberedName(name, count - 1).c_str());
}

uint32_t resultFrames(Mode mode, uint32_t frames) {
    return mode == Mode::Frame || mode == Mode::Fast ? frames : std::min(frames, 1u);
}

FrameSet finishedFrames(Session& session, const Device& device, const RunRequest& request, const RunResult& result) {
    return {device.title(),
            detailsOf(request),
            resultFrames(request.mode, result.progress.frames),
            device.chips,
            [&session, &device](uint32_t frame) { return readFrame(session, device, frame); },
            labelOf(request)};
}

void summarize(Context& context, const FrameSet& set) {
    std::vector<Statistics> frames;
    Json& rows = context.document["frames"] = Json::array();
    const int signalsBefore = InterruptWatch::count();
    for (uint32_t frame = 0; frame < set.frames && InterruptWatch::count() == signalsBefore; ++frame) {
        const Statistics values = statisticsOf(set.read(frame));
        frames.push_back(values);
        rows.push_back({{"index", frame},
                        {"min", std::llround(values.min)},
                        {"max", std::llround(values.max)},
                        {"mean", values.mean},
                        {"sum", std::llround(values.sum)}});
    }
    if (!context.json) printTable(frames), printTotals(frames);
    if (frames.size() < set.frames) throw Failure(ExitStatus::Interrupted, "interrupted, not all frames are summed up");
}

void saveResults(Context& context, Session& session, const Device& device, const FrameSet& set, const SaveOptions& save,
                 const PictureOptions& pictures) {
    if (save.file.empty()) return;
    if (set.frames == 0 || (!save.all && pictures.frame >= set.frames))
        throw Failure(ExitStatus::Acquisition,
                      formatted("nothing saved to %s: the frame was not finished", save.file.c_str()));
    if (save.format == "png")
        savePictures(set, save, pictures);
    else
        session.check(device, session.api().saveFrame(device.id, save.file.c_str(), pictures.frame, flagsOf(save)),
                      "cannot save to " + save.file);
    noteFiles(context, save.file, set.frames, save.numbered());
}
