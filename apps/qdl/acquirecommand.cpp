// SPDX-License-Identifier: MIT
// qdl acquire
#include "commands.h"
#include "interrupt.h"
#include "outputfiles.h"
#include "results.h"
#include "settings.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

namespace {

struct AcquireOptions {
    uint32_t id = 0;
    RunRequest request;
    std::string mode = "frame";
    std::vector<std::string> settings;  // KEY=VALUE
    std::optional<double> timeout;
    SaveOptions save;
    PictureOptions pictures;
    bool overwrite = false;
    CLI::App* command = nullptr;

    bool given(const char* option) const { return command->count(option) > 0; }
};

void require(bool condition, const char* complaint) {
    if (!condition) throw Failure(ExitStatus::Usage, complaint);
}

void checkRequest(const AcquireOptions& options) {
    const RunRequest& request = options.request;
    const bool testPulse = request.mode == Mode::TestPulse,
               kept = request.mode == Mode::Frame || request.mode == Mode::Fast;
    const bool pulses = options.given("--pulse-arg1") || options.given("--pulse-arg2") ||
                        options.given("--pulse-arg3") || options.given("--pulse-arg4");
    require(testPulse || options.given("--time"), "-t SECONDS is required");
    require(!testPulse || !options.given("--time"), "test pulses take no -t: their length is in the pulse arguments");
    require(!testPulse || request.frames == 1, "test pulses give one frame: leave -n out");
    require(testPulse || !pulses, "--pulse-arg1 to --pulse-arg4 need --mode testpulse");
    require(std::isfinite(request.seconds) && request.seconds >= 0, "-t takes 0 or more seconds");
    require(kept || !options.given("--to-files"), "--to-files needs --mode frame or fast");
    require(!options.timeout || (std::isfinite(*options.timeout) && *options.timeout >= 0),
            "--timeout takes 0 or more seconds");
    checkPictureOptions(options.pictures, resultFrames(request.mode, request.frames));
}

void checkSave(const AcquireOptions& options) {
    const SaveOptions& save = options.save;
    require(!save.file.empty() || !(options.given("--format") || save.all), "--format and --all need --save FILE");
    require(save.all || !save.oneFile, "--one-file needs --all");
    require(save.format != "raw" || options.request.mode == Mode::Fast, "--format raw needs --mode fast");
    require(!save.all || resultFrames(options.request.mode, 2) == 2,
            "--all needs --mode frame or fast: a sum is one frame");
}

void planFiles(const AcquireOptions& options) {
    OutputFiles files(options.overwrite);
    const RunRequest& request = options.request;
    if (options.given("--to-files")) files.planNumbered(request.toFiles, request.frames);
    if (options.given("--save") && options.save.numbered()) files.planNumbered(options.save.file, request.frames);
    if (options.given("--save") && !options.save.numbered()) files.plan(options.save.file);
    if (options.given("--png")) files.plan(options.pictures.png);
}

Json requestJson(const RunRequest& request) {
    return {{"mode", modeNames[static_cast<int>(request.mode)]},
            {"frames", request.frames},
            {"seconds", request.seconds},
            {"spacing", request.spacing}};
}

// The failure that the library ended a run with, if it did.
std::optional<Failure> libraryFailure(Session& session, const Device& device, const RunResult& result) {
    try {
        session.check(device, result.code, "acquisition failed", ExitStatus::Acquisition);
        return std::nullopt;
    } catch (const Failure& failure) {
        return failure;
    }
}

std::optional<Failure> failureOf(Session& session, const Device& device, const RunResult& result) {
    const std::optional<Failure> failure = libraryFailure(session, device, result);
    const bool stopped = !result.timedOut.empty() || result.interrupted;
    if (stopped && failure && failure->code != QDL_E_ABORTED)
        std::fprintf(stderr, "qdl: %s\n", describe(*failure).c_str());
    if (!result.timedOut.empty()) return Failure(ExitStatus::TimedOut, result.timedOut);
    if (result.interrupted)
        return Failure(ExitStatus::Interrupted, result.progress.frames > 0 ? "interrupted, the finished frames are kept"
                                                                           : "interrupted, no frame was finished");
    return failure;
}

// Runs a step that must not keep the others from being done. The first failure stays the failure of the command.
template <typename Step>
void attempt(std::optional<Failure>& first, Step step) {
    try {
        step();
    } catch (const Failure& failure) {
        if (first) std::fprintf(stderr, "qdl: %s\n", describe(failure).c_str());
        if (!first) first = failure;
    }
}

// An abort cuts the exposure that is on, and in these modes the library keeps what was counted until then.
bool lastFrameCutShort(const RunRequest& request, const RunResult& result) {
    const bool keepsCutExposure = request.mode == Mode::Fast || request.mode == Mode::Integral;
    return keepsCutExposure && result.code == QDL_E_ABORTED && result.progress.frames > 0;
}

void deliver(Context& context, Session& session, const Device& device, const AcquireOptions& options,
             const RunResult& result, std::optional<Failure>& failure) {
    const FrameSet set = finishedFrames(session, device, options.request, result);
    attempt(failure, [&] { summarize(context, set); });
    std::fprintf(context.json ? stderr : stdout, "%s\n", runText(result.progress).c_str());
    if (lastFrameCutShort(options.request, result))
        std::fprintf(stderr, "qdl: note: %s\n",
                     options.request.mode == Mode::Fast ? "the last frame was cut short when the run was stopped"
                                                        : "the result includes the exposure that was cut short");
    if (!options.request.toFiles.empty()) noteFiles(context, options.request.toFiles, set.frames, true);
    attempt(failure, [&] {
        // Saving waits for the device, and a stuck one never lets go.
        if (result.stuck && options.given("--save"))
            throw Failure(ExitStatus::TimedOut, "nothing saved to " + options.save.file + ": the device is stuck");
        saveResults(context, session, device, set, options.save, options.pictures);
    });
    attempt(failure, [&] { drawPictures(context, set, options.pictures); });
}

void prepare(Session& session, const Device& device, const AcquireOptions& options) {
    const RunRequest& request = options.request;
    InterruptWatch::check();
    session.initialize(device);
    for (const std::string& setting : options.settings) {
        const size_t equals = setting.find('=');
        require(equals != std::string::npos, "--set takes KEY=VALUE");
        writeSetting(session, device, setting.substr(0, equals), setting.substr(equals + 1));
    }
    session.check(device, session.api().setAcqSpacing(device.id, request.spacing), "cannot set the spacing");
    if (request.mode == Mode::Fast && request.spacing > 1)
        std::fputs("qdl: note: fast mode takes whole frames, the spacing has no effect\n", stderr);
    if (request.mode == Mode::Integral && request.spacing > 1 && request.frames > 1)
        std::fputs("qdl: note: with spacing the result is the last frame, and no sum\n", stderr);
    InterruptWatch::check();
}

void noteRun(Context& context, const RunRequest& request, const RunResult& result) {
    context.document["run"] = {
        {"finished", result.progress.frames},
        {"seconds", result.progress.elapsedSeconds},
        {"framesPerSecond", result.progress.rate()},
        {"lostReadouts", result.progress.lostReadouts},
        {"lastFrameCutShort", lastFrameCutShort(request, result)},
        {"complete", result.code == 0 && !result.stuck && result.progress.frames == request.frames}};
}

void acquire(Context& context, const AcquireOptions& options) {
    checkRequest(options);
    checkSave(options);
    planFiles(options);
    const InterruptWatch watch;
    Session session(context);
    const Device device = session.device(options.id);
    context.document = {{"device", device.json()}, {"request", requestJson(options.request)}, {"files", Json::array()}};
    prepare(session, device, options);
    const double timeout = options.timeout.value_or(options.request.defaultTimeout());
    const RunResult result = runAcquisition(session, device, options.request, timeout);
    if (result.stuck) session.abandon();
    noteRun(context, options.request, result);
    std::optional<Failure> failure = failureOf(session, device, result);
    deliver(context, session, device, options, result, failure);
    if (!result.stuck) attempt(failure, [&] { session.close(Saving::Changed); });
    if (failure) throw *failure;
}

void addRunOptions(CLI::App& command, AcquireOptions& options) {
    RunRequest& request = options.request;
    command.add_option("id", options.id, "Device id, as listed")->required()->type_name("ID");
    command.add_option("-n,--frames", request.frames, "Frames to take (default 1)")
        ->type_name("FRAMES")
        ->check(CLI::Range(1, 2147483647));
    command
        .add_option("-t,--time", request.seconds, "Length of each exposure; required, but not taken for test pulses")
        ->type_name("SECONDS");
    command
        .add_option("--mode", options.mode,
                    "frame (default), integral: the sum of all frames (with --spacing the last frame\n"
                    "only), fast: raw frames, testpulse")
        ->type_name("MODE")
        ->check(CLI::IsMember({"frame", "integral", "fast", "testpulse"}));
    command
        .add_option("--spacing", request.spacing,
                    "Open every S-th pixel of every S-th row only, in S x S exposures (default 1)")
        ->type_name("S")
        ->check(CLI::Range(1, 256));
    command
        .add_option("--set", options.settings,
                    "Change a setting before the run, as qdl config set does; may be repeated")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    command.add_option("--pulse-arg1", request.pulse1, "Test pulses: first argument of the HW library")
        ->type_name("NUMBER");
    command.add_option("--pulse-arg2", request.pulse2, "Test pulses: second argument")->type_name("NUMBER");
    command.add_option("--pulse-arg3", request.pulse3, "Test pulses: third argument")->type_name("0-255");
    command.add_option("--pulse-arg4", request.pulse4, "Test pulses: fourth argument")->type_name("0-65535");
    command
        .add_option("--timeout", options.timeout,
                    "Abort a run that takes longer; 0: never (default: twice the exposures,\n"
                    "half a second for each read-out, and 10 s)")
        ->type_name("SECONDS");
}

void addOutputOptions(CLI::App& command, AcquireOptions& options) {
    command
        .add_option("--to-files", options.request.toFiles,
                    "Keep each frame in a file instead of memory; the number goes before the last dot")
        ->type_name("BASE");
    command.add_option("--save", options.save.file, "Save a frame, or with --all each one to a numbered file")
        ->type_name("FILE");
    command
        .add_option("--format", options.save.format,
                    "text (default), binary, raw (fast mode only), png (default for .png)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "binary", "raw", "png"}));
    command.add_flag("--all", options.save.all, "Save all finished frames");
    command.add_flag("--one-file", options.save.oneFile, "With --all: one behind the other in one file");
    command.add_flag("--overwrite", options.overwrite, "Replace files that exist already");
    addPictureOptions(command, options.pictures);
}

}  // namespace

void addAcquireCommand(CLI::App& program, Context& context) {
    CLI::App* command = program.add_subcommand("acquire", "Take frames");
    auto options = std::make_shared<AcquireOptions>();
    options->command = command;
    addRunOptions(*command, *options);
    addOutputOptions(*command, *options);
    command->callback([&context, options] {
        const auto mode = std::find(std::begin(modeNames), std::end(modeNames), options->mode);
        options->request.mode = static_cast<Mode>(mode - std::begin(modeNames));
        if (options->save.format.empty())
            options->save.format = std::filesystem::path(options->save.file).extension() == ".png" ? "png" : "text";
        context.command = [&context, options] { acquire(context, *options); };
    });
}
