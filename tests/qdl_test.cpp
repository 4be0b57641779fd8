// SPDX-License-Identifier: MIT
// The host program as its users meet it: started as a child process, on the simulator, in a scratch folder.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <png.h>
#include <qdltypes.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

extern char** environ;

namespace {

struct Outcome {
    int status;
    std::string out, err;
    json document() const { return json::parse(out); }
};

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class QdlProgram : public testing::Test {
 public:
    QdlProgram() {
        std::string name = (fs::temp_directory_path() / "qdlprogramXXXXXX").string();
        folder = mkdtemp(name.data());
        fs::create_directories(folder / "lib/hwlibs");
        fs::copy_file(fs::path(QDL_LIBRARY_DIR) / "libqdlctrl.so", folder / "lib/libqdlctrl.so");
        fs::copy_file(fs::path(QDL_LIBRARY_DIR) / "hwlibs/qdlsim.so", folder / "lib/hwlibs/qdlsim.so");
    }
    ~QdlProgram() override { fs::remove_all(folder); }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    // Arguments stand apart by blanks; % stands for the scratch folder.
    pid_t start(const std::string& line) {
        std::vector<std::string> words{QDL_PROGRAM};
        std::istringstream stream(line);
        for (std::string word; stream >> word;) {
            if (const size_t at = word.find('%'); at != std::string::npos) word.replace(at, 1, folder.string());
            words.push_back(word);
        }
        if (line.find("--library") == std::string::npos) words.insert(words.end(), {"--library", path("lib")});
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, 1, path("out").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        posix_spawn_file_actions_addopen(&files, 2, path("err").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        pid_t child = -1;
        EXPECT_EQ(0, posix_spawn(&child, QDL_PROGRAM, &files, nullptr, arguments.data(), environ));
        posix_spawn_file_actions_destroy(&files);
        return child;
    }

    Outcome finish(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        return {WEXITSTATUS(status), contents(path("out")), contents(path("err"))};
    }

    Outcome run(const std::string& line) { return finish(start(line)); }

    fs::path folder;
};

struct Png {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> gray;
    // The colour map grows lighter with the value.
    int at(uint32_t x, uint32_t y) const { return gray[y * width + x]; }
};

Png readPng(const std::string& file) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_file(&image, file.c_str())) << image.message;
    image.format = PNG_FORMAT_GRAY;
    Png png{image.width, image.height, std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, png.gray.data(), 0, nullptr)) << image.message;
    return png;
}

TEST_F(QdlProgram, ListsDevicesAndNamesModulesThatDoNotLoad) {
    std::ofstream(path("lib/hwlibs/broken.so")) << "no module";
    const Outcome table = run("list --init");
    EXPECT_EQ(0, table.status);
    EXPECT_THAT(table.out, HasSubstr("ready"));
    EXPECT_THAT(table.err, HasSubstr("-102"));
    EXPECT_THAT(table.err, HasSubstr("broken.so"));
    EXPECT_THAT(table.err, HasSubstr("no configuration file yet"));

    const json devices = run("--json list").document()["devices"];
    ASSERT_EQ(2u, devices.size());
    EXPECT_EQ(1, devices[0]["chips"]);
    EXPECT_EQ(4, devices[1]["chips"]);
    EXPECT_EQ("found", devices[1]["state"]);
    const json info = run("info 1 --json").document();
    EXPECT_EQ(devices[1]["name"], info["name"]);
    EXPECT_TRUE(info["settings"]["exists"]);
    EXPECT_FALSE(info["items"].empty());

    fs::remove_all(path("lib/hwlibs"));
    const Outcome none = run("list");
    EXPECT_EQ(4, none.status);
    EXPECT_THAT(none.err, HasSubstr("-101"));
}

TEST_F(QdlProgram, FailuresHaveTheirStatusAndText) {
    const Outcome missing = run("list --library %/elsewhere.so --json");
    EXPECT_EQ(3, missing.status);
    EXPECT_THAT(missing.err, HasSubstr("elsewhere.so"));
    EXPECT_EQ(3, missing.document()["error"]["status"]);
    EXPECT_EQ(4, run("info 9").status);
    for (const char* wrong : {"frobnicate", "acquire 0", "acquire 0 -t -1", "acquire 0 -t nan", "acquire 0 -n 0 -t 1",
                              "acquire 0 -t 1 --spacing 257", "acquire 0 -t 0 --save %/x --format raw",
                              "acquire 0 -t 0 --all", "acquire 0 -t 0 --mode integral --to-files %/x",
                              "acquire 0 -n 2 -t 0 --frame 2", "config 0 set VthL 256", "config 0 get nothing"}) {
        const Outcome refused = run(std::string(wrong) + " --json");
        EXPECT_EQ(2, refused.status) << wrong;
        EXPECT_NE("", refused.document()["error"]["what"]) << wrong;
    }
    const Outcome start = run("acquire 0 -t 0 --set failStart=true --json");
    EXPECT_EQ(6, start.status);
    EXPECT_EQ(-22, start.document()["error"]["code"]);
    EXPECT_THAT(start.document()["error"]["text"], HasSubstr("Cannot start acquisition"));
    EXPECT_THAT(start.err, HasSubstr("Cannot start acquisition"));
    EXPECT_EQ(5, run("config 0 set exposures 3").status);
}

TEST_F(QdlProgram, ExistingFilesAreRefusedBeforeAnythingHappens) {
    std::ofstream(path("run2.txt")) << "precious";
    for (const char* output : {"--to-files %/run.txt", "--save %/run.txt --all", "--save %/run2.txt",
                               "--png %/run2.txt", "--save %/nowhere/a.txt", "--png %/same --save %/same"})
        EXPECT_EQ(7, run("acquire 0 -n 3 -t 0 " + std::string(output)).status) << output;
    EXPECT_EQ("precious", contents(path("run2.txt")));
    EXPECT_FALSE(fs::exists(path("run0.txt")));
    EXPECT_FALSE(fs::exists(path("lib/configs/Simulator_SIM-1CHIP.qcf")));

    EXPECT_EQ(0, run("acquire 0 -n 2 -t 0 --to-files %/run.txt").status) << "number 2 is not written";
    EXPECT_EQ(0, run("acquire 0 -n 3 -t 0 --overwrite --to-files %/run.txt").status);
    EXPECT_NE("precious", contents(path("run2.txt")));
}

// Every mode, on one and four chips, with and without spacing: what is saved is what the summary says.
TEST_F(QdlProgram, TakesAndSavesFramesInAllModes) {
    for (const std::string mode : {"frame -n 2 -t 0.002", "integral -n 2 -t 0.002", "fast -n 2 -t 0.002",
                                   "testpulse --pulse-arg1 20 --pulse-arg2 0.001 --pulse-arg4 7"})
        for (const int chips : {1, 4})
            for (const char* spacing : {" --spacing 1", " --spacing 4"}) {
                SCOPED_TRACE(mode + spacing + " on " + std::to_string(chips));
                const bool sum = mode[0] == 'i' || mode[0] == 't';
                const Outcome done =
                    run("acquire " + std::string(chips == 1 ? "0" : "1") + " --json --overwrite --mode " + mode +
                        spacing + " --save %/saved.bin --format binary");
                ASSERT_EQ(0, done.status) << done.err;
                const json document = done.document();
                ASSERT_EQ(sum ? 1u : 2u, document["frames"].size());
                EXPECT_GT(document["frames"][0]["sum"], 1000 * chips);
                EXPECT_EQ(uintmax_t(chips) * QDL_CHIP_PIXELS * (sum ? 4 : 2), fs::file_size(path("saved.bin")));
                const json shown = run("show %/saved.bin --json --type " + std::string(sum ? "u32" : "i16")).document();
                EXPECT_EQ(chips, shown["chips"]);
                EXPECT_EQ(document["frames"][0]["sum"].get<double>(), shown["frame"]["sum"].get<double>());
            }
}

TEST_F(QdlProgram, LostReadoutsAreCountedAndTold) {
    const std::string line = "acquire 0 -n 20 -t 0 --set failReadoutRate=0.5";
    const Outcome done = run(line + " -v --json");
    EXPECT_EQ(0, done.status);
    const int lost = done.document()["run"]["lostReadouts"];
    EXPECT_GT(lost, 0);
    int told = 0;
    for (size_t at = 0; (at = done.err.find("message -25", at)) != std::string::npos; ++at)
        ++told;
    EXPECT_EQ(lost, told);
    const Outcome quiet = run(line);
    EXPECT_THAT(quiet.out, HasSubstr("lost"));
    EXPECT_THAT(quiet.err, Not(HasSubstr("-25")));
}

TEST_F(QdlProgram, ControlCKeepsTheFinishedFrames) {
    const pid_t child = start("acquire 0 -n 100000 -t 0.01 --to-files %/run.txt --png %/sheet.png --json");
    while (!fs::exists(path("run3.txt")) && waitpid(child, nullptr, WNOHANG) == 0)
        std::this_thread::yield();
    kill(child, SIGINT);
    const Outcome done = finish(child);
    EXPECT_EQ(130, done.status);
    const json document = done.document();
    EXPECT_EQ(130, document["error"]["status"]);
    EXPECT_FALSE(document["run"]["complete"]);
    const int finished = document["run"]["finished"];
    EXPECT_GE(finished, 3);
    EXPECT_EQ(size_t(finished), document["frames"].size());
    EXPECT_TRUE(fs::exists(path("run" + std::to_string(finished - 1) + ".txt")));
    EXPECT_FALSE(fs::exists(path("run" + std::to_string(finished) + ".txt")));
    EXPECT_GT(readPng(path("sheet.png")).width, 256u);
    EXPECT_TRUE(fs::exists(path("lib/configs/Simulator_SIM-1CHIP.qcf"))) << "ended in order";
}

TEST_F(QdlProgram, RunsThatTakeTooLongAreAborted) {
    const Outcome done = run("acquire 0 -n 2 -t 0 --set stuckBusy=true --set hwTimer=always --timeout 0.1 --json");
    EXPECT_EQ(8, done.status);
    EXPECT_THAT(done.err, HasSubstr("waited for frame 1 of 2"));
    EXPECT_THAT(done.document()["error"]["what"], HasSubstr("waited for frame 1 of 2"));
}

// The only ways to see a cut exposure: fast mode keeps it, a sum includes it.
TEST_F(QdlProgram, FramesThatAStopCutShortAreMarked) {
    const Outcome fast =
        run("acquire 0 --mode fast -t 0 --set stuckBusy=true --set hwTimer=always --timeout 0.1 --json");
    EXPECT_EQ(8, fast.status);
    EXPECT_THAT(fast.err, HasSubstr("last frame was cut short"));
    EXPECT_TRUE(fast.document()["run"]["lastFrameCutShort"]);

    const Outcome none = run("acquire 0 --mode integral -t 0 --set stuckBusy=true --timeout 0.1 --json");
    EXPECT_EQ(8, none.status);
    EXPECT_FALSE(none.document()["run"]["lastFrameCutShort"]) << "there is no frame";

    const Outcome spaced = run("acquire 0 --mode integral -n 2 -t 0 --spacing 2 --json");
    EXPECT_THAT(spaced.err, HasSubstr("no sum"));
    EXPECT_FALSE(spaced.document()["run"]["lastFrameCutShort"]);
}

TEST_F(QdlProgram, AmbiguousFilesAreTold) {
    EXPECT_EQ(0, run("acquire 0 -t 0 --mode integral --save %/sum.bin --format binary").status);
    EXPECT_THAT(run("show %/sum.bin").err, HasSubstr("1 chip of 32-bit sums: --type u32"));
    EXPECT_EQ("", run("show %/sum.bin --type u32").err);
    std::ofstream(path("row.bin"), std::ios::binary) << std::string(12 * 2 * QDL_CHIP_PIXELS, '\1');
    EXPECT_THAT(run("show %/row.bin").err, HasSubstr("one frame of 12 chips"));
    EXPECT_EQ("", run("show %/row.bin --chips 4").err) << "12 planes are not 1.5 frames of sums";
    std::ofstream(path("row.bpc"), std::ios::binary) << std::string(QDL_CHIP_PIXELS, '\1');
    EXPECT_THAT(run("show %/row.bpc").err, HasSubstr("--type u8"));
    std::ofstream(path("empty.bin"));
    EXPECT_THAT(run("show %/empty.bin").err, HasSubstr("is empty"));
}

// One statement of orientation: [chip][y][x], row 0 on top. One corner pixel in each chip, each a different one.
TEST_F(QdlProgram, PicturesHaveRowZeroOnTop) {
    std::vector<int> frame(4 * QDL_CHIP_PIXELS);
    frame[0] = 1;                                // chip 0, top left
    frame[QDL_CHIP_PIXELS + 255] = 2;            // chip 1, top right
    frame[2 * QDL_CHIP_PIXELS + 255 * 256] = 3;  // chip 2, bottom left
    frame[4 * QDL_CHIP_PIXELS - 1] = 4;          // chip 3, bottom right
    std::ofstream text(path("frame.txt"));
    for (const int pixel : frame)
        text << pixel << ' ';
    text.close();

    ASSERT_EQ(0, run("show %/frame.txt --plain --range 0,4 --png %/square.png").status);
    const Png square = readPng(path("square.png"));
    ASSERT_EQ(512u, square.width);
    ASSERT_EQ(512u, square.height);
    EXPECT_LT(square.at(1, 0), square.at(0, 0));
    EXPECT_LT(square.at(0, 0), square.at(511, 0));
    EXPECT_LT(square.at(511, 0), square.at(0, 511));
    EXPECT_LT(square.at(0, 511), square.at(511, 511));
    EXPECT_EQ(square.at(1, 0), square.at(255, 255));

    ASSERT_EQ(0, run("show %/frame.txt --plain --range 0,4 --layout 4 --png %/row.png").status);
    const Png row = readPng(path("row.png"));
    ASSERT_EQ(1024u, row.width);
    EXPECT_EQ(square.at(511, 0), row.at(511, 0));
    EXPECT_EQ(square.at(0, 511), row.at(512, 255));
    EXPECT_EQ(square.at(511, 511), row.at(1023, 255));

    setenv("NO_COLOR", "1", 1);
    const Outcome preview = run("show %/frame.txt --preview --chips 1 --frame 0 --range 0,0.001");
    unsetenv("NO_COLOR");
    std::istringstream lines(preview.out);
    std::string title, first, second;
    std::getline(lines, title), std::getline(lines, first), std::getline(lines, second);
    EXPECT_EQ("@" + std::string(79, ' '), first);
    EXPECT_EQ(std::string(80, ' '), second);
}

TEST_F(QdlProgram, ContactSheetsShowAllFramesWithinTwoThousandDots) {
    ASSERT_EQ(0, run("acquire 1 -n 12 -t 0.001 --png %/sheet.png --save %/one.png").status);
    const Png sheet = readPng(path("sheet.png")), one = readPng(path("one.png"));
    EXPECT_LE(std::max(sheet.width, sheet.height), 2000u);
    EXPECT_GT(one.width, 2 * 512u) << "a single frame is enlarged";
    EXPECT_LT(sheet.at(2, 2), 64) << "dark border";
}

TEST_F(QdlProgram, SettingsOutliveTheProgram) {
    const Outcome set = run("config 1 set VthL@2 190");
    EXPECT_EQ(0, set.status);
    EXPECT_THAT(set.out, HasSubstr(path("lib/configs/Simulator_SIM-4CHIP.qcf")));
    EXPECT_EQ(0, run("config 1 set flux 2345.5").status);
    EXPECT_EQ(0, run("config 1 set hwTimer never").status);
    EXPECT_EQ(0, run("config 1 pixels mask 3,4 200,100,3").status);
    const json config = run("config 1 show --json").document();
    EXPECT_EQ(json({200, 200, 190, 200}), config["dacs"]["VthL"]);
    EXPECT_EQ(2345.5, config["items"]["flux"]);
    EXPECT_EQ("never", config["flags"]["hwTimer"]);
    EXPECT_EQ(1, config["pixels"][0]["masked"]);
    EXPECT_EQ(1, config["pixels"][3]["masked"]);
    EXPECT_EQ("190\n", run("config 1 get VthL@2").out);

    ASSERT_EQ(0, run("config 1 save %/kept.qcf").status);
    ASSERT_EQ(0, run("config 1 pixels planes %/planes").status);
    EXPECT_EQ(0, run("config 1 set VthL 1").status);
    EXPECT_EQ(0, run("config 1 pixels unmask").status);
    EXPECT_EQ(0, run("config 1 load %/kept.qcf").status);
    EXPECT_EQ(0, run("config 1 pixels planes %/planes --load").status);
    EXPECT_EQ(config, run("config 1 show --json").document());
    EXPECT_EQ(0, run("config 1 picture %/pixels.png").status);
    EXPECT_GT(readPng(path("pixels.png")).width, 1000u);

    // A file that is too short would be half loaded, and the mixture saved.
    std::ofstream(path("short.bpc")) << "short";
    EXPECT_EQ(7, run("config 1 pixels load %/short.bpc").status);
    std::ofstream(path("foreign.qcf")) << "[Other]\nVthL:1\n";
    ASSERT_EQ(0, mkfifo(path("pipe.qcf").c_str(), 0600));
    for (const char* wrong : {"missing.qcf", "foreign.qcf", "pipe.qcf", "lib"})
        EXPECT_EQ(7, run("config 1 load %/" + std::string(wrong)).status) << wrong;
    EXPECT_EQ(config, run("config 1 show --json").document());
    EXPECT_EQ(7, run("config 1 picture %/pipe.qcf --overwrite").status);
    EXPECT_TRUE(fs::is_fifo(path("pipe.qcf")));
}

TEST_F(QdlProgram, SettingsThatCannotBeSavedAreAFailureOfAnyCommand) {
    std::ofstream(path("lib/configs")) << "in the way of the folder";
    for (const char* command : {"list --init", "acquire 0 -t 0", "config 0 get VthL", "config 0 set VthL 1"}) {
        const Outcome done = run(command);
        EXPECT_EQ(7, done.status) << command;
        EXPECT_THAT(done.err, HasSubstr("are not saved"));
        EXPECT_THAT(done.err, Not(HasSubstr("message -4"))) << "told once";
    }
}

}  // namespace
