// SPDX-License-Identifier: MIT
// One device: identity, flags, initialization and its files, DACs and pixel matrix.
#include <cstring>
#include <fstream>
#include <numeric>

#include "qdltest.h"

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Bytes = std::vector<uint8_t>;

const std::string notInitialized = "Cannot perform command, Quandel was not initialized.";
const std::string notProperly = "Cannot perform command, Quandel was not properly initialized.";
// DACs of two chips.
const Bytes defaultDacs = {0, 0, 128, 240, 110, 210, 255, 0, 200, 255, 128, 128, 128,
                           0, 0, 128, 240, 110, 210, 255, 0, 200, 255, 128, 128, 128};

Bytes dacsFrom(uint8_t first) {
    Bytes dacs(2 * QDL_CHIP_DACS);
    std::iota(dacs.begin(), dacs.end(), first);
    return dacs;
}
ChipDacs* asDacs(Bytes& dacs, size_t chip = 0) { return reinterpret_cast<ChipDacs*>(&dacs[chip * QDL_CHIP_DACS]); }

Bytes planes(std::initializer_list<uint8_t> values) {
    Bytes matrix;
    for (const uint8_t value : values)
        matrix.insert(matrix.end(), QDL_CHIP_PIXELS, value);
    return matrix;
}
// Two planes in which no two rows, columns or chips are alike.
Bytes mixedMatrix() {
    Bytes matrix = planes({0, 0});
    for (size_t i = 0; i < matrix.size(); ++i)
        matrix[i] = static_cast<uint8_t>(i * 7 + i / 256 * 3 + i / 65536);
    return matrix;
}
Bytes fileBytes(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class DeviceTest : public QdlTest {
 public:
    // What the library holds for the two chips of device 0.
    Bytes heldDacs() {
        Bytes dacs = dacsFrom(77);
        EXPECT_QDL(0, "", qdl.getAllChipsDACs(0, asDacs(dacs), 2));
        return dacs;
    }
    Bytes heldMatrix() {
        Bytes matrix = planes({77, 77});
        EXPECT_QDL(0, "", qdl.getPixelsCfg(0, matrix.data(), 0));
        EXPECT_QDL(0, "", qdl.getPixelsCfg(0, &matrix[QDL_CHIP_PIXELS], 1));
        return matrix;
    }
    const std::string cfgFile = path("configs/Scripted_D1.qcf"), pixelFile = path("configs/Scripted_D1.bpc");
};

TEST_F(DeviceTest, TellsWhoItIsBeforeInit) {
    hwLibrary().addDevice(3, "SN-0042", "Scripted", 0xDEADBEEF);
    DevInfo& filled = hwLibrary().addDevice(1, std::string(64, 'd'), std::string(80, 'h')).info;
    memset(reinterpret_cast<char*>(&filled) + offsetof(DevInfo, devName) + 64, 'x',
           offsetof(DevInfo, hwName) - offsetof(DevInfo, devName) - 64);  // the gap does not end the name
    qdl.initQdlCtrl();
    uint32_t chips = 0, infoValue = 0;
    char devName[64], hwName[64];
    EXPECT_QDL(0, "", qdl.getQuandelInfo(0, &chips, &infoValue, nullptr, nullptr));
    EXPECT_QDL(0, "", qdl.getQuandelInfo(0, &chips, &infoValue, devName, hwName));
    EXPECT_EQ(chips, 3u);
    EXPECT_EQ(infoValue, 0xDEADBEEFu);
    EXPECT_STREQ(devName, "SN-0042");
    EXPECT_STREQ(hwName, "Scripted");
    EXPECT_QDL(0, "", qdl.getQuandelInfo(1, &chips, &infoValue, devName, hwName));
    EXPECT_EQ(devName, std::string(63, 'd'));
    EXPECT_EQ(hwName, std::string(63, 'h'));
    EXPECT_QDL(0, _, qdl.initQdlDevice(1, nullptr));
    qdl.exitQdlCtrl();
    EXPECT_TRUE(fs::exists(folder / "configs" / (std::string(80, 'h') + "_" + std::string(64, 'd') + ".qcf")));
    EXPECT_FALSE(fs::exists(folder / "configs" / "Scripted_SN-0042.qcf"));  // never initialized
}

TEST_F(DeviceTest, WithoutARecordItIsOfNoUseAndDoesNoHarm) {
    hwLibrary().addDevice().withoutInfo = true;
    qdl.initQdlCtrl();
    uint32_t chips = 7, infoValue = 7;
    EXPECT_QDL(-21, notProperly, qdl.getQuandelInfo(0, &chips, &infoValue, nullptr, nullptr));
    EXPECT_EQ(chips, 7u);
    EXPECT_QDL(-21, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_QDL(-21, notInitialized, qdl.refreshDACs(0));
    EXPECT_QDL(-21, notProperly, qdl.resetPixelsCfg(0, 0));
    EXPECT_QDL(0, "", qdl.setPolarity(0, 1));
}

TEST_F(DeviceTest, FlagsGoToTheirFieldAsGiven) {
    ScriptedHw& hw = startDevice(1, false);
    const DevInfo& info = hw.devices[0].info;
    const auto held = [&] {
        std::vector<uint32_t> values(5, 77);
        EXPECT_QDL(0, "", qdl.getPolarity(0, &values[0]));
        EXPECT_QDL(0, "", qdl.getCST(0, &values[1]));
        EXPECT_QDL(0, "", qdl.getExternalShutter(0, &values[2]));
        EXPECT_QDL(0, "", qdl.getSpareFSR(0, &values[3]));
        EXPECT_QDL(0, "", qdl.getHwTimer(0, &values[4]));
        return values;
    };
    const auto shared = [&] {
        return std::vector<uint32_t>{info.polarity, info.cst, info.extShutter, info.spareFSR, info.hwTimerUsed};
    };
    EXPECT_THAT(held(), ElementsAre(0, 0, 0, 0, 2));
    EXPECT_QDL(0, "", qdl.setPolarity(0, 11));
    EXPECT_QDL(0, "", qdl.setCST(0, 12));
    EXPECT_QDL(0, "", qdl.setExternalShutter(0, 0xFFFFFFFF));
    EXPECT_QDL(0, "", qdl.setSpareFSR(0, 14));
    EXPECT_QDL(0, "", qdl.setHwTimer(0, 7));
    EXPECT_THAT(held(), ElementsAre(11, 12, 0xFFFFFFFF, 14, 7));
    EXPECT_THAT(shared(), ElementsAre(11, 12, 0xFFFFFFFF, 14, 0));
    EXPECT_THAT(hw.log(), IsEmpty());
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));  // the defaults take the place of all that was set before
    EXPECT_THAT(held(), ElementsAre(1, 0, 0, 0, 2));
    EXPECT_THAT(shared(), ElementsAre(1, 0, 0, 0, 0));
}

TEST_F(DeviceTest, FirstStartUsesDefaultsAndExitWritesBothFiles) {
    ScriptedHw& hw = startDevice(2, false);
    hw.devices[0].info.hwTimerUsed = 1;
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_CALLS(hw.log(), "21 16 14");
    EXPECT_THAT(
        messages(),
        ElementsAre(Message{0, -11, "Cannot open config file \"" + cfgFile + "\", default values will be used."},
                    Message{0, -6, "Cannot open file \"" + pixelFile + "\" for reading: " + strerror(ENOENT) + "."}));
    const Call sent = hw.log({14})[0];
    EXPECT_EQ(sent.data, defaultDacs);
    EXPECT_THAT(std::make_tuple(sent.first, sent.second, sent.codes.size()), testing::FieldsAre(0u, 0u, 0u));
    EXPECT_EQ(hw.log({16})[0].data, planes({255, 255}));
    EXPECT_EQ(hw.devices[0].info.hwTimerUsed, 0u);
    qdl.exitQdlCtrl();
    EXPECT_EQ(fileBytes(pixelFile), planes({255, 255}));
    EXPECT_TRUE(fs::exists(cfgFile));
}

TEST_F(DeviceTest, FilesBringBackWhatWasSet) {
    ScriptedHw& hw = startDevice(2);
    const Bytes pixels = mixedMatrix();
    Bytes dacs = dacsFrom(30);
    const std::string own = path("own.qcf");
    EXPECT_QDL(0, "", qdl.setPolarity(0, 0));
    EXPECT_QDL(0, "", qdl.setCST(0, 4));
    EXPECT_QDL(0, "", qdl.setAllChipsDACs(0, asDacs(dacs), 2));
    EXPECT_QDL(0, "", qdl.saveQdlCfg(0, own.c_str()));
    EXPECT_QDL(0, "", qdl.setAllChipsPixelsCfg(0, pixels.data(), 2));
    EXPECT_QDL(0, "", qdl.setCST(0, 5));
    const Bytes ownBytes = fileBytes(own);
    const struct {
        const char* file;
        uint32_t cst;
    } starts[] = {{nullptr, 5}, {own.c_str(), 4}, {"", 4}};  // at its end each writes the default file anew
    for (const auto& begin : starts) {
        qdl.initQdlCtrl();
        hw.clearLog();
        EXPECT_QDL(0, "", qdl.initQdlDevice(0, begin.file));
        EXPECT_CALLS(hw.log(), "21 5 16 14");
        EXPECT_EQ(hw.log({14})[0].data, dacs);
        EXPECT_EQ(hw.log({16})[0].data, pixels);
        EXPECT_EQ(hw.devices[0].info.polarity, 0u);
        EXPECT_EQ(hw.devices[0].info.cst, begin.cst);
        EXPECT_QDL(0, "", qdl.setExternalShutter(0, 1));
    }
    qdl.exitQdlCtrl();
    EXPECT_EQ(fileBytes(own), ownBytes);
}

TEST_F(DeviceTest, SizesFollowTheChips) {
    for (const uint32_t chips : {1u, 2u, 3u}) {
        hwLibrary().devices.clear();
        ScriptedHw& hw = startDevice(chips);
        EXPECT_QDL(0, "", qdl.performFrameAcq(0, 1, 0.0, 0, nullptr));
        EXPECT_EQ(hw.log({18})[0].words, (std::vector<uint32_t>{0, 57345, 114689, 172034})[chips]);
        EXPECT_EQ(hw.log({25})[0].pixels, chips * 65536);
        EXPECT_FRAME(expectedFrame(hw, 0), frame(0));
        qdl.exitQdlCtrl();
    }
}

TEST_F(DeviceTest, AFailedDacTransferLeavesItHalfInitialized) {
    ScriptedHw& hw = startDevice(1, false);
    hw.failAt(14, 1, -1, "no link");
    EXPECT_QDL(-28, "Error occurred while setting Quandel DACs: no link", qdl.initQdlDevice(0, nullptr));
    EXPECT_QDL(-21, notInitialized, qdl.refreshDACs(0));
    EXPECT_QDL(-21, notInitialized, qdl.resetAllChipsPixelsCfg(0, 1));
    EXPECT_QDL(-21, notInitialized, qdl.performFrameAcq(0, 1, 0.0, 0, nullptr));
    EXPECT_QDL(0, "", qdl.setPixelsCfg(0, planes({3}).data(), 0));
    EXPECT_QDL(0, "", qdl.refreshPixelsCfg(0));
    EXPECT_EQ(hw.log({16}).back().data, planes({3}));
    qdl.initQdlCtrl();
    EXPECT_TRUE(fs::is_empty(folder / "configs"));
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    hw.failAt(14, 3);
    EXPECT_QDL(-28, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_QDL(0, "", qdl.refreshDACs(0));  // initialized once is initialized
}

TEST_F(DeviceTest, InitBearsAFailedPrepareAndAFailedMatrix) {
    ScriptedHw& hw = startDevice();
    EXPECT_QDL(0, "", qdl.setPixelsCfg(0, planes({17}).data(), 0));
    qdl.initQdlCtrl();
    hw.clearLog();
    hw.failAlways(21);
    hw.failAlways(16, -1, "mask lost");
    EXPECT_QDL(0, "Pixel mask setting failed: mask lost", qdl.initQdlDevice(0, nullptr));
    EXPECT_CALLS(hw.log(), "21 5 16 23 16 23 14");
    hw.clearScript();
    fs::resize_file(pixelFile, 1000);
    EXPECT_QDL(0, HasSubstr("Error occurred while reading file \"" + pixelFile), qdl.initQdlDevice(0, nullptr));
    Bytes expected = planes({255});
    std::fill_n(expected.begin(), 1000, uint8_t{17});
    EXPECT_EQ(hw.log({16}).back().data, expected);
}

TEST_F(DeviceTest, CommandsRefuseBeforeInitAndForWrongChips) {
    ScriptedHw& hw = startDevice(2, false);
    ChipDacs dacs[3] = {};
    double values[39] = {};
    int32_t index[3] = {};
    Bytes pixels = planes({0, 0});
    const std::string oneChip = "Invalid chip number (%), 2 chips present (0-1).";
    const std::string given = "Invalid parameter, DAC values supplied for % chips, but 2 chips present.";
    const std::string buffer = "Invalid parameter, buffer supplied for % chips DACs values, but 2 chips present.";
    const struct {
        std::function<int32_t(int32_t)> call;
        std::string beforeInit, text;
        std::vector<int32_t> refused;
    } cases[] = {
        {[&](int32_t c) { return qdl.setChipDACs(0, dacs, c); }, notInitialized, oneChip, {-1, 2}},
        {[&](int32_t c) { return qdl.getChipDACs(0, dacs, c); }, notInitialized, oneChip, {-1, 2}},
        {[&](int32_t c) { return qdl.setAllChipsDACs(0, dacs, c); }, notInitialized, given, {-1, 1, 3}},
        {[&](int32_t c) { return qdl.getAllChipsDACs(0, dacs, c); }, notInitialized, buffer, {-1, 1, 3}},
        {[&](int32_t c) { return qdl.getAllChipsDACsAnalog(0, values, c); }, notInitialized, buffer, {-1, 1}},
        {[&](int32_t c) { return qdl.getAllChipsSingleDacAnalog(0, values, index, c); },
         notInitialized,
         buffer,
         {0, 1}},
        {[&](int32_t c) { return qdl.setPixelsCfg(0, pixels.data(), c); }, notProperly, oneChip, {-1, 2}},
        {[&](int32_t c) { return qdl.getPixelsCfg(0, pixels.data(), c); }, notProperly, oneChip, {-1, 2}},
        {[&](int32_t c) { return qdl.resetPixelsCfg(0, c); }, notProperly, oneChip, {-1, 2}},
        {[&](int32_t c) { return qdl.setAllChipsPixelsCfg(0, pixels.data(), c); }, notInitialized, given, {-1, 1}},
        {[&](int32_t c) { return qdl.getAllChipsPixelsCfg(0, pixels.data(), c); }, notInitialized, given, {-1, 1}},
        {[&](int32_t c) { return qdl.resetAllChipsPixelsCfg(0, c); }, notInitialized, given, {-1, 1}}};
    for (const auto& test : cases)
        EXPECT_QDL(-21, test.beforeInit, test.call(1));
    EXPECT_QDL(-21, notInitialized, qdl.refreshDACs(0));
    EXPECT_QDL(-21, notProperly, qdl.refreshPixelsCfg(0));
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    hw.clearLog();
    for (const auto& test : cases)
        for (const int32_t chips : test.refused) {
            const std::string text = std::string(test.text).replace(test.text.find('%'), 1, std::to_string(chips));
            EXPECT_QDL(-2, text, test.call(chips));
        }
    for (const int32_t bad : {-1, 14}) {
        index[1] = bad;
        EXPECT_QDL(-2, "Invalid DAC index (" + std::to_string(bad) + "), valid indices are 0-13.",
                   qdl.getAllChipsSingleDacAnalog(0, values, index, 2));
    }
    EXPECT_THAT(hw.log(), IsEmpty());
    EXPECT_EQ(heldDacs(), defaultDacs);
    EXPECT_EQ(heldMatrix(), planes({255, 255}));
    EXPECT_EQ(pixels, planes({0, 0}));
}

TEST_F(DeviceTest, DacCommandsSendAllChips) {
    ScriptedHw& hw = startDevice(2);
    Bytes dacs = dacsFrom(1), one(13), expected = defaultDacs;
    std::copy(dacs.begin() + 13, dacs.end(), expected.begin() + 13);
    EXPECT_QDL(0, "", qdl.setChipDACs(0, asDacs(dacs, 1), 1));
    EXPECT_EQ(hw.log({14})[0].data, expected);
    EXPECT_QDL(0, "", qdl.getChipDACs(0, asDacs(one), 1));
    EXPECT_EQ(one, Bytes(dacs.begin() + 13, dacs.end()));
    dacs = dacsFrom(100);
    hw.failAt(14, 2, -1, "no link");
    EXPECT_QDL(-28, "Error occurred while setting Quandel DACs: no link", qdl.setAllChipsDACs(0, asDacs(dacs), 2));
    EXPECT_EQ(heldDacs(), dacs);
    EXPECT_QDL(0, "", qdl.refreshDACs(0));
    EXPECT_EQ(hw.log({14})[2].data, dacs);
    EXPECT_CALLS(hw.log(), "14 14 23 14");
}

TEST_F(DeviceTest, AnalogReadsSelectByCode) {
    ScriptedHw& hw = startDevice(2);
    const uint32_t codes[] = {1, 2, 3, 4, 5, 7, 14, 12, 11, 10, 13, 6, 9};
    const int32_t index[] = {6, 13, 5};
    std::vector<double> values(3, -1.0), expected(3 * 13, -1.0);
    EXPECT_QDL(0, "", qdl.getAllChipsSingleDacAnalog(0, values.data(), index, 3));
    EXPECT_THAT(values, ElementsAre(analogValue(0, 14), analogValue(1, 8), -1.0));
    EXPECT_CALLS(hw.log(), "14 15 15");
    const Call sensing = hw.log({14})[0];
    EXPECT_THAT(std::make_tuple(sensing.first, sensing.second), testing::FieldsAre(255u, 0u));
    EXPECT_EQ(sensing.data, defaultDacs);

    hw.clearLog();
    values.assign(3 * 13, -1.0);
    for (uint32_t i = 0; i < 2 * 13; ++i)
        expected[i] = analogValue(i / 13, codes[i % 13]);
    EXPECT_QDL(0, "", qdl.getAllChipsDACsAnalog(0, values.data(), 3));
    EXPECT_CALLS(hw.log(), "(14 15 15)x13");
    EXPECT_EQ(values, expected);

    hw.clearLog();
    values.assign(2 * 13, -1.0);
    hw.failAt(15, 4, -1, "no ADC");
    EXPECT_QDL(-33, "Error occurred while reading analog value from Quandel DACs (code 2): no ADC",
               qdl.getAllChipsDACsAnalog(0, values.data(), 2));
    EXPECT_CALLS(hw.log(), "14 15 15 14 15 15 23");
    EXPECT_EQ(values[13], analogValue(1, 1));
    hw.failFrom(14, 1, -1, "no link");
    EXPECT_QDL(-28, HasSubstr("no link"), qdl.getAllChipsSingleDacAnalog(0, values.data(), index, 2));
}

TEST_F(DeviceTest, PixelCommandsSendAllChips) {
    ScriptedHw& hw = startDevice(2);
    const Bytes mixed = mixedMatrix();
    Bytes expected = planes({255, 255}), out = planes({9, 9, 9});
    std::copy(mixed.begin() + QDL_CHIP_PIXELS, mixed.end(), expected.begin() + QDL_CHIP_PIXELS);
    EXPECT_QDL(0, "", qdl.setPixelsCfg(0, &mixed[QDL_CHIP_PIXELS], 1));
    EXPECT_EQ(heldMatrix(), expected);
    EXPECT_QDL(0, "", qdl.setAllChipsPixelsCfg(0, planes({1, 2, 3}).data(), 3));
    EXPECT_QDL(0, "", qdl.getAllChipsPixelsCfg(0, out.data(), 3));
    EXPECT_EQ(out, planes({1, 2, 9}));
    EXPECT_QDL(0, "", qdl.resetPixelsCfg(0, 1));
    EXPECT_QDL(0, "", qdl.resetAllChipsPixelsCfg(0, 3));
    const std::vector<Bytes> sent = {expected, planes({1, 2}), planes({1, 255}), planes({255, 255})};
    for (size_t i = 0; i < sent.size(); ++i)
        EXPECT_EQ(hw.log({16})[i].data, sent[i]);

    hw.failFrom(16, 5, -1, "mask lost");
    EXPECT_QDL(-31, "Pixel mask setting failed: mask lost", qdl.setAllChipsPixelsCfg(0, mixed.data(), 2));
    EXPECT_EQ(heldMatrix(), mixed);
    EXPECT_QDL(-31, "Pixel mask setting failed: mask lost", qdl.resetPixelsCfg(0, 0));
    hw.clearScript();
    EXPECT_QDL(0, "", qdl.refreshPixelsCfg(0));
    EXPECT_EQ(hw.log({16})[6].data, expected);
    EXPECT_CALLS(hw.log(), "16 16 16 16 16 23 16 23 16");
}

}  // namespace
