// SPDX-License-Identifier: MIT
// The files of a device, and the HW info items: what is written, what is read, and what survives a failure.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "qdltest.h"

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string flagLines =
    "[Quandel]\nPositive polarity:1\nCST enabled:0\nExternal shutter:0\nHW timer:2\nSpare FSR:0\n";
const std::string chip0Lines =
    "[Chip0]\nVbiasDelayN:0\nVbiasDisc:0\nVbiasPreamp:128\nVbiasSetDisc:240\nVbiasThs:110\nVbiasIkrum:210\n"
    "VbiasABuffer:255\nVthH:0\nVthL:200\nVfbk:255\nVgnd:128\nVbiasLVDStx:128\nVrefLVDStx:128\n";
const std::string defaultLines = flagLines + chip0Lines;

using Bytes = std::vector<uint8_t>;

// Elements as the raw value of an item.
template <class Element>
Bytes raw(const std::vector<Element>& elements) {
    Bytes bytes(elements.size() * sizeof(Element));
    if (!bytes.empty()) memcpy(bytes.data(), elements.data(), bytes.size());
    return bytes;
}
template <class Element>
ScriptedItem itemOf(uint32_t type, const std::vector<Element>& elements) {
    return {type, static_cast<int32_t>(elements.size()), QDL_ITEM_STORED, "item", raw(elements), 0};
}
ScriptedItem textItem(std::string text, size_t capacity) {
    text.resize(capacity);
    return itemOf(QDL_TYPE_STRING, std::vector<char>(text.begin(), text.end()));
}
std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}
// The lines that a load tells when all keys of these lines are missing.
std::string notFound(const std::string& lines) {
    std::string told, line;
    for (std::istringstream in(lines); std::getline(in, line);)
        if (line[0] != '[') told += "Key not found: " + line.substr(0, line.find(':')) + ".\n";
    return told;
}
std::string itemsText(const std::string& item, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += i % 256 == 255 ? item + " \n" : item + " ";
    return text;
}
uint8_t mixed(size_t i) { return static_cast<uint8_t>(i * 7 + i / 256 * 3 + i / 65536 * 101); }

class ConfigTest : public QdlTest {
 public:
    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string read(const std::string& name) {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    int32_t load(const std::string& text) { return qdl.loadQdlCfg(0, write("loaded.qcf", text).c_str()); }
    std::string saved() {
        EXPECT_QDL(0, "", qdl.saveQdlCfg(0, path("saved.qcf").c_str()));
        return read("saved.qcf");
    }
    Bytes matrix() {
        Bytes pixels(QDL_CHIP_PIXELS);
        EXPECT_EQ(qdl.getPixelsCfg(0, pixels.data(), 0), 0);
        return pixels;
    }
    Bytes setMatrix(const std::function<uint8_t(size_t)>& byteOf, size_t chips = 1) {
        Bytes pixels(chips * QDL_CHIP_PIXELS);
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = byteOf(i);
        EXPECT_QDL(0, "", qdl.setAllChipsPixelsCfg(0, pixels.data(), static_cast<int32_t>(chips)));
        return pixels;
    }
};

TEST_F(ConfigTest, QcfIsWrittenLineByLineAndReadBack) {
    ScriptedHw& hw = startDevice(2);
    const std::string chip1Lines = replaced(chip0Lines, "Chip0", "Chip1");
    EXPECT_EQ(saved(), defaultLines + chip1Lines + "[Interface]\n");

    const ChipDacs dacs = {1, 2, 3, 4, 5, 6, 7, 8, 254, 10, 11, 12, 13};
    EXPECT_QDL(0, "", qdl.setChipDACs(0, &dacs, 1));
    EXPECT_QDL(0, "", qdl.setPolarity(0, 0xFFFFFFFF));
    EXPECT_QDL(0, "", qdl.setHwTimer(0, 0x7FFFFFFF));
    const std::string text = saved();
    EXPECT_THAT(text, HasSubstr("Positive polarity:-1\nCST enabled:0\nExternal shutter:0\nHW timer:2147483647\n"));
    EXPECT_THAT(text, HasSubstr("VthL:254\nVfbk:10\nVgnd:11\nVbiasLVDStx:12\nVrefLVDStx:13\n[Interface]\n"));
    hw.clearLog();
    EXPECT_QDL(1, notFound(chip1Lines), load(defaultLines));
    EXPECT_EQ(saved(), defaultLines + chip1Lines + "[Interface]\n");
    EXPECT_QDL(0, "", load(replaced(chip0Lines, "Chip0", "Chip2") + text));
    EXPECT_EQ(saved(), text);
    EXPECT_CALLS(hw.log(), "5 5 5 5");  // only the items concern the HW library
}

TEST_F(ConfigTest, QcfReaderTellsWhatTookItsDefault) {
    startDevice();
    const auto with = [](const char* from, const char* to) { return replaced(defaultLines, from, to); };
    const struct {
        std::string text;
        int32_t result;
        std::string told, written;  // `written`: what a save then gives
    } cases[] = {{"", 1, notFound(defaultLines), defaultLines},
                 {flagLines, 1, notFound(chip0Lines), defaultLines},
                 {"Spare FSR:5\n" + chip0Lines, 1, notFound(flagLines), defaultLines},  // ahead of the first heading
                 {with("VthL:200", "VthL:300"), 1, "Error occurred while reading key: VthL.\n", defaultLines},
                 {chip0Lines + "# order is free, and this no key\n" + with("Spare FSR:0", "Spare FSR:-5"), 0, "",
                  with("Spare FSR:0", "Spare FSR:-5")}};
    for (const auto& test : cases) {
        clearMessages();
        EXPECT_QDL(test.result, test.told, load(test.text));
        EXPECT_EQ(saved(), test.written + "[Interface]\n") << test.text;
        if (test.result == 0) continue;
        ASSERT_THAT(messages(), SizeIs(2));
        EXPECT_EQ(messages()[0], (Message{0, -10,
                                          "Not all configuration data can be read from config file \"" +
                                              path("loaded.qcf") + "\", default values were used."}));
    }
    EXPECT_QDL(0, "", qdl.setHwTimer(0, 1));
    EXPECT_QDL(0, "", load(with("HW timer:2", "HW timer: ")));  // blank: read, and left as it was
    EXPECT_EQ(saved(), with("HW timer:2", "HW timer:1") + "[Interface]\n");
}

TEST_F(ConfigTest, QcfFilesThatFail) {
    ScriptedHw& hw = startDevice(1, false);
    const char* const notProperly = "Cannot perform command, Quandel was not properly initialized.";
    EXPECT_QDL(-21, notProperly, qdl.loadQdlCfg(0, "none"));
    EXPECT_QDL(-21, notProperly, qdl.saveQdlCfg(0, nullptr));
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_QDL(0, "", qdl.setCST(0, 9));
    hw.clearLog();
    EXPECT_QDL(-11, "Cannot open config file \"/nowhere/a\", default values will be used.",
               qdl.loadQdlCfg(0, "/nowhere/a"));
    EXPECT_QDL(-11, "Cannot open config file \"\", default values will be used.", qdl.loadQdlCfg(0, nullptr));
    EXPECT_THAT(hw.log(), IsEmpty());
    EXPECT_EQ(saved(), defaultLines + "[Interface]\n");

    for (const std::string name : {"/nowhere/a", ""})
        EXPECT_QDL(-4, "Cannot open file \"" + name + "\" for writing: " + strerror(ENOENT) + ".",
                   qdl.saveQdlCfg(0, name.c_str()));
    EXPECT_QDL(-1, "", qdl.saveQdlCfg(0, "/dev/full"));
    fs::remove_all(folder / "configs");
    EXPECT_QDL(0, "", qdl.saveQdlCfg(0, nullptr));  // makes its folder
    EXPECT_EQ(read("configs/Scripted_D1.qcf"), read("saved.qcf"));
}

TEST_F(ConfigTest, HostileFilesLoadLikeEmptyOnes) {
    startDevice(16);
    std::string told = notFound(flagLines);
    for (int chip = 0; chip < 16; ++chip)
        told += notFound(chip0Lines);
    std::string garbage(10'000'000, 0);
    for (size_t i = 0; i < garbage.size(); ++i)
        garbage[i] = static_cast<char>(i * 2654435761u >> 21);
    for (const std::string& text : {std::string(), std::string(10'000'000, '['), std::string(9000, 0), garbage,
                                    replaced(defaultLines, "[Q", "\n:[\n]:1\n[")}) {
        EXPECT_QDL(1, told.substr(0, 4095), load(text));  // more does not fit a message
        const std::string file = path("loaded.qcf");
        EXPECT_QDL(-7, "Reading 1048576 items from file " + file + " failed",
                   qdl.loadPixelsCfgAscii(0, nullptr, nullptr, nullptr, file.c_str()));
    }
}

TEST_F(ConfigTest, ItemsOfAllTypesComeBackAfterANewStart) {
    ScriptedHw& hw = startDevice(1, false);
    hw.items = {itemOf<uint32_t>(QDL_TYPE_BOOL, {7, 0}),
                {QDL_TYPE_I32, 1, 2, "not stored", raw<int32_t>({1}), 0},
                itemOf<char>(QDL_TYPE_CHAR, {'o', 'n'}),
                itemOf<uint8_t>(QDL_TYPE_BYTE, {'7'}),
                itemOf<uint8_t>(QDL_TYPE_U8, {0, 255}),
                itemOf<int16_t>(QDL_TYPE_I16, {-32768, 32767}),
                itemOf<uint16_t>(QDL_TYPE_U16, {65535}),
                itemOf<int32_t>(QDL_TYPE_I32, {1, -2, INT32_MIN}),
                itemOf<uint32_t>(QDL_TYPE_U32, {UINT32_MAX, 0}),
                itemOf<float>(QDL_TYPE_FLOAT, {1.5F, -0.1F}),
                itemOf<double>(QDL_TYPE_DOUBLE, {1e20, -2.25}),
                textItem("host: a b", 16),
                itemOf<uint8_t>(11, {1}),
                itemOf<int32_t>(QDL_TYPE_I32, {})};
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_QDL(0, "", qdl.setCST(0, 6));
    const Bytes pixels = setMatrix(mixed);
    qdl.exitQdlCtrl();
    EXPECT_EQ(read("configs/Scripted_D1.qcf"),
              replaced(defaultLines, "CST enabled:0", "CST enabled:6") +
                  "[Interface]\nhwitem0:TRUE FALSE \nhwitem2:on\nhwitem3:7\nhwitem4:0 255 \nhwitem5:-32768 32767 \n"
                  "hwitem6:65535 \nhwitem7:1 -2 -2147483648 \nhwitem8:4294967295 0 \nhwitem9:1.500000 -0.100000 \n"
                  "hwitem10:100000000000000000000.000000 -2.250000 \nhwitem11:host: a b\nhwitem12:NA\nhwitem13:\n");

    const auto before = hw.items;
    for (ScriptedItem& item : hw.items)
        std::fill(item.value.begin(), item.value.end(), uint8_t{9});
    hw.clearLog();
    qdl.initQdlCtrl();
    EXPECT_QDL(0, "", qdl.initQdlDevice(0, nullptr));
    for (size_t i = 0; i < before.size(); ++i) {
        Bytes expected = before[i].value;
        if (i == 0) expected = raw<int32_t>({1, 0});                           // every true value comes back as 1
        if (i == 3) expected = {7};                                            // raw characters are read as numbers
        if (i == 11) expected[9] = '\n';                                       // with the end of its line
        if (i == 1 || i == 2 || i == 12) expected.assign(expected.size(), 9);  // not stored, no number, no type
        EXPECT_EQ(hw.items[i].value, expected) << i;
    }
    EXPECT_THAT(hw.log({7}), SizeIs(11));
    EXPECT_EQ(hw.log({16})[0].data, pixels);
    EXPECT_THAT(saved(), HasSubstr("hwitem11:host: a b\n\nhwitem12"));
}

TEST_F(ConfigTest, HandEditedItems) {
    ScriptedHw& hw = startDevice();
    hw.items.assign(12, textItem("", 3));
    hw.items[1].name = "threshold";
    hw.items[3].flags = 0;
    hw.failAt(7, 2);
    const auto sent = [](uint32_t index, const char* text) {
        return testing::AllOf(testing::Field(&Call::index, index),
                              testing::Field(&Call::data, Bytes(text, text + strlen(text))));
    };
    EXPECT_QDL(0, "Set interface info for \"threshold\" failed",
               load(defaultLines + "[Interface]\nhwitem11:own\nhwitem1:one\nhwitem10:ten\nhwitem3:not\nhwitem04:not\n"
                                   "hwitem12:not\nhwitem0:a:b\nhwitem0:not\n"));
    EXPECT_EQ(messages().back().code, -16);
    EXPECT_THAT(hw.log({7}), ElementsAre(sent(0, "a:b"), sent(1, "one"), sent(10, "one"), sent(11, "own")));
}

TEST_F(ConfigTest, ItemsOfAnySize) {
    ScriptedHw& hw = startDevice();
    hw.items = {itemOf(QDL_TYPE_STRING, std::vector<char>(1024, 'x')),  // fills the area, no terminator
                itemOf(QDL_TYPE_I32, std::vector<int32_t>(512, 7)),
                itemOf(QDL_TYPE_I32, std::vector<int32_t>(500, -1000000)),  // its text is cut and does not come back
                {QDL_TYPE_I32, 4000, QDL_ITEM_STORED, "claims too much", raw<int32_t>({1}), 0},
                {QDL_TYPE_I32, -1, QDL_ITEM_STORED, "negative", raw<int32_t>({1}), 0},
                itemOf<int32_t>(QDL_TYPE_I32, {1}),  // fails, and says nothing of sizes
                itemOf<int32_t>(QDL_TYPE_I32, {2}),  // fails, wanting more each time
                itemOf<int32_t>(QDL_TYPE_I32, {3})};
    hw.setHook(6, [](Call& call) {
        if (call.index == 5 || call.index == 6) call.result = -1;
        if (call.index == 6) *call.itemBytes += 1;
    });
    std::string sevens, cut;
    for (int i = 0; i < 512; ++i)
        sevens += "7 ", cut += "-1000000 ";
    const std::string text = saved();
    EXPECT_EQ(text, defaultLines + "[Interface]\nhwitem0:" + std::string(1024, 'x') + "\nhwitem1:" + sevens +
                        "\nhwitem2:" + cut.substr(0, 2047) + "\nhwitem7:3 \n");
    std::vector<uint32_t> sizes;
    for (const Call& call : hw.log({6}))
        sizes.push_back(call.bytes);
    EXPECT_THAT(sizes, ElementsAre(1024, 1024, 2048, 2048, 2048, 2048, 2048, 2048, 2049, 2049));
    hw.clearLog();
    EXPECT_QDL(0, "", load(text));
    EXPECT_THAT(hw.log({7}), ElementsAre(testing::Field(&Call::bytes, 1024u), testing::Field(&Call::bytes, 2048u),
                                         testing::Field(&Call::index, 7u)));
}

TEST_F(ConfigTest, ItemsPassBetweenHostAndHwLibrary) {
    ScriptedHw& hw = startDevice(1, false);  // items need no initQdlDevice
    hw.items = {itemOf<int16_t>(QDL_TYPE_I16, {5, -6}), textItem("abc", 4)};
    int32_t count = 0;
    int16_t value[2] = {};
    uint32_t size = 3;
    InfoItem item{};
    item.data = value;
    EXPECT_QDL(0, "", qdl.getHwInfoCount(0, &count));
    EXPECT_EQ(count, 2);
    EXPECT_QDL(0, "", qdl.getHwInfoItem(0, 0, &item, &size));
    EXPECT_EQ(size, 4u);  // so much is needed, and nothing was delivered
    EXPECT_QDL(0, "", qdl.getHwInfoItem(0, 0, &item, &size));
    EXPECT_EQ(value[1], -6);
    EXPECT_EQ(item.type + item.flags, QDL_TYPE_I16 + QDL_ITEM_STORED);
    EXPECT_QDL(0, "", qdl.setHwInfoItem(0, 1, "xyz", 3));
    EXPECT_EQ(hw.items[1].value, (Bytes{'x', 'y', 'z'}));
    hw.failAlways(6, 1, "no answer");
    hw.failAlways(7, -9, "read only");
    EXPECT_QDL(-104, "Cannot get HW info item with index 1: no answer", qdl.getHwInfoItem(0, 1, &item, &size));
    EXPECT_QDL(-105, "Cannot set HW info item with index 0: read only", qdl.setHwInfoItem(0, 0, value, 4));
}

TEST_F(ConfigTest, BpcHoldsTheMatrix) {
    ScriptedHw& hw = startDevice(2);
    Bytes pixels = setMatrix(mixed, 2);
    const std::string file = path("a.bpc"), shorter = write("b.bpc", std::string(65536, 1)), none = path("none");
    for (int i = 0; i < 2; ++i)
        EXPECT_QDL(0, "", qdl.savePixelsCfg(0, file.c_str()));
    EXPECT_EQ(read("a.bpc"), std::string(pixels.begin(), pixels.end()));
    EXPECT_QDL(0, "", qdl.resetAllChipsPixelsCfg(0, 2));
    EXPECT_QDL(0, "", qdl.loadPixelsCfg(0, file.c_str()));
    EXPECT_EQ(hw.log({16})[2].data, pixels);

    EXPECT_QDL(-6, HasSubstr(none), qdl.loadPixelsCfg(0, none.c_str()));
    EXPECT_QDL(-7, "Error occurred while reading file \"" + shorter + "\": " + strerror(0) + ".",
               qdl.loadPixelsCfg(0, shorter.c_str()));
    EXPECT_QDL(-5, HasSubstr(strerror(ENOSPC)), qdl.savePixelsCfg(0, "/dev/full"));
    EXPECT_QDL(-4, HasSubstr(strerror(EISDIR)), qdl.savePixelsCfg(0, folder.c_str()));
    EXPECT_CALLS(hw.log(), "16 16 16");  // no failure sends
    std::fill_n(pixels.begin(), 65536, uint8_t{1});
    hw.failAt(16, 4, -1, "mask lost");
    EXPECT_QDL(-31, "Pixel mask setting failed: mask lost", qdl.loadPixelsCfg(0, nullptr));
    EXPECT_EQ(hw.log({16})[3].data, pixels);  // what was read is there

    hw.devices.clear();
    startDevice(1);
    EXPECT_QDL(0, "", qdl.loadPixelsCfg(0, file.c_str()));  // longer than the device needs
    EXPECT_EQ(matrix(), setMatrix(mixed));
}

TEST_F(ConfigTest, PlanesHoldOneFieldEach) {
    startDevice();
    const std::string files[] = {path("mask"), path("test"), path("low"), path("high")};
    const auto callAll = [&](auto function) {
        return function(0, files[0].c_str(), files[1].c_str(), files[2].c_str(), files[3].c_str());
    };
    EXPECT_QDL(0, "", callAll(qdl.savePixelsCfgAscii));
    EXPECT_EQ(read("test") + read("low"), itemsText("1", 65536) + itemsText("7", 65536));
    const Bytes pixels = setMatrix(mixed);
    EXPECT_QDL(0, "", callAll(qdl.savePixelsCfgAscii));
    setMatrix([](size_t i) { return static_cast<uint8_t>(~mixed(i)); });
    EXPECT_QDL(0, "", callAll(qdl.loadPixelsCfgAscii));
    EXPECT_EQ(matrix(), pixels);

    const uint8_t fields[] = {128, 64, 7, 56};
    const struct {
        const char* value;
        uint8_t bits[4];  // what it gives as mask, test, low and high
    } values[] = {{"5", {128, 64, 5, 40}}, {"2", {0, 0, 2, 16}}, {"9\n", {128, 64, 1, 8}}, {"-1", {128, 64, 7, 56}}};
    for (const auto& test : values)
        for (size_t i = 0; i < 4; ++i) {
            const uint8_t before = i % 2 ? 255 : 0;
            const char* names[4] = {};
            names[i] = files[0].c_str();
            setMatrix([=](size_t) { return before; });
            write("mask", itemsText(test.value, 65536));
            EXPECT_QDL(0, "", qdl.loadPixelsCfgAscii(0, names[0], names[1], names[2], names[3]));
            EXPECT_EQ(matrix(), Bytes(65536, static_cast<uint8_t>((before & ~fields[i]) | test.bits[i])));
        }
}

TEST_F(ConfigTest, PlanesThatFail) {
    ScriptedHw& hw = startDevice(1, false);
    const std::string zeros = write("zeros", itemsText("0", 65537)), shorter = write("shorter", itemsText("0", 65535));
    const std::string none = path("none"), out = path("out");
    const char* const notInitialized = "Cannot perform command, Quandel was not initialized.";
    EXPECT_QDL(-21, notInitialized, qdl.loadPixelsCfgAscii(0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_QDL(-21, notInitialized, qdl.savePixelsCfg(0, out.c_str()));
    EXPECT_QDL(-21, HasSubstr("properly"), qdl.loadPixelsCfg(0, nullptr));
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    hw.clearLog();
    EXPECT_QDL(-7, "Reading 65536 items from file " + shorter + " failed",
               qdl.loadPixelsCfgAscii(0, zeros.c_str(), zeros.c_str(), shorter.c_str(), none.c_str()));
    EXPECT_EQ(matrix(), Bytes(65536, 63));  // the fields ahead of the failure are changed, nothing is sent
    EXPECT_QDL(-6, HasSubstr(none), qdl.loadPixelsCfgAscii(0, nullptr, nullptr, nullptr, none.c_str()));
    EXPECT_QDL(-5, HasSubstr(strerror(ENOSPC)), qdl.savePixelsCfgAscii(0, nullptr, "/dev/full", out.c_str(), nullptr));
    EXPECT_FALSE(fs::exists(out));
    EXPECT_QDL(0, "", qdl.savePixelsCfgAscii(0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_THAT(hw.log(), IsEmpty());
    EXPECT_QDL(0, "", qdl.loadPixelsCfgAscii(0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(hw.log({16})[0].data, Bytes(65536, 63));
}

}  // namespace
