// SPDX-License-Identifier: MIT
// The free-standing modules: key search, typed values as text, frame text, numbered names, and loops over pixels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "config/cfgio.h"
#include "config/infotext.h"
#include "frames/framefiles.h"
#include "frames/frametext.h"
#include "frames/pixelops.h"
#include "qdltypes.h"

namespace {

std::mt19937 randomness(7);
uint32_t below(uint32_t limit) { return static_cast<uint32_t>(randomness()) % limit; }

File fileOf(const std::string& text) {
    File file(std::tmpfile());
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
    return file;
}
std::string contents(std::FILE* file) {
    std::string text;
    std::rewind(file);
    for (int c; (c = std::getc(file)) != EOF;)
        text += static_cast<char>(c);
    return text;
}

TEST(CfgIo, FindsKeys) {
    const std::string longLine(4095, 'x');
    const struct {
        std::string text;
        const char* value;  // of `key` in section A; null: not found
    } cases[] = {{"[A]\nkey:v", "v"},
                 {"key:1\n[A]]] x\nkey: a:b \r\nkey:3", " a:b \r\n"},
                 {"[A]\nkey x:1\nk:2\nkey:3\n", "2\n"},  // a prefix of the key will do
                 {"[A]\n:1\nkey:2\n", "1\n"},
                 {"[A]\nKey:1\n key:2\nkey :3\nkey\n", nullptr},
                 {"[AA]\nkey:1\n[ A]\nkey:2\n[a]\nkey:3\n[\n [A]\n[A\nkey:4\n[A]\nkey:5\n", "5\n"},
                 {"[A]\nj:1\n[A]\nkey:2\n", nullptr},  // any heading ends the section
                 {"[A]\nj:1\n[\nkey:2\n", nullptr},
                 {"[A]\n" + longLine + "key:1\n", "1\n"},  // pieces of a long line count as lines
                 {longLine + "[A]\nkey:1" + longLine, "1xxx"},
                 {std::string("[A]\nk\0:3\nkey:4\0\n", 17), "4"},
                 {"", nullptr}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.text);
        const File file = fileOf(test.text);
        char value[5] = "old";
        for (int pass = 0; pass < 2; ++pass) {  // wherever the stream stands
            EXPECT_EQ(cfgGetString(file.get(), "A", "key", value, sizeof value),
                      test.value ? CfgResult::found : CfgResult::notFound);
            EXPECT_EQ(value, std::string(test.value ? test.value : "old").substr(0, 4));
        }
    }
    int value = 0;
    for (const char* noSection : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(cfgGetInt(fileOf("x\nkey:1\n[A]\nkey:2").get(), noSection, "key", &value), CfgResult::found);
        EXPECT_EQ(value, 1);
        EXPECT_EQ(cfgGetInt(fileOf("[A]\nkey:2").get(), noSection, "key", &value), CfgResult::notFound);
    }
}

TEST(CfgIo, ConvertsOrTakesTheDefault) {
    const std::string missing = "Key not found: k.\n", failed = "Error occurred while reading key: k.\n";
    const struct {
        const char* line;
        int asInt, asByte;  // 77 is what was there, 9 the default
        std::string intError, byteError;
    } cases[] = {{"k:12abc\n", 12, 12, "", ""},    {"k: -3 4\n", -3, 9, "", failed}, {"k:+255\n", 255, 255, "", ""},
                 {"k:256\n", 256, 9, "", failed},  {"k: \n", 77, 9, "", failed},     {"k:", 77, 9, "", failed},
                 {"k:x1\n", 9, 9, failed, failed}, {"j:1\n", 9, 9, missing, missing}};
    for (const auto& test : cases) {
        const File file = fileOf(test.line);
        CfgErrors intErrors, byteErrors;
        int asInt = 77;
        uint8_t asByte = 77;
        cfgGetIntDef(file.get(), nullptr, "k", &asInt, 9, intErrors);
        cfgGetByteDef(file.get(), nullptr, "k", &asByte, 9, byteErrors);
        EXPECT_EQ(asInt, test.asInt) << test.line;
        EXPECT_EQ(asByte, test.asByte) << test.line;
        EXPECT_EQ(intErrors.text() + std::string("|") + byteErrors.text(), test.intError + "|" + test.byteError);
    }
}

TEST(CfgIo, WritesWholeLinesOrNone) {
    const File file = fileOf("");
    EXPECT_TRUE(cfgPutInt(file.get(), "a b", -5));
    EXPECT_TRUE(cfgPutString(file.get(), "k", std::string(4092, 'v').c_str()));
    EXPECT_FALSE(cfgPutString(file.get(), "k", std::string(4093, 'v').c_str()));
    EXPECT_EQ(contents(file.get()), "a b:-5\nk:" + std::string(4092, 'v') + "\n");
    const File closed(std::fopen("/dev/null", "r"));
    EXPECT_FALSE(cfgPutInt(closed.get(), "k", 1));
}

// A value block on the heap, exactly as long as it must be.
template <class Element>
struct Value {
    std::vector<Element> elements;
    bool read(uint32_t type, const std::string& text) {
        std::vector<char> area(text.begin(), text.end());
        area.resize(text.size() + 3);
        return infoTextToValue(type, elements.data(), static_cast<int32_t>(elements.size()), area.data(), area.size());
    }
    std::string write(uint32_t type, size_t size = 2048) const {
        std::vector<char> area(size, '#');
        const auto count = static_cast<int32_t>(elements.size());
        EXPECT_EQ(infoValueToText(type, elements.data(), count, area.data(), size), size > 0);
        return size ? std::string(area.data(), strnlen(area.data(), size)) : "";
    }
};

// The text gives these elements; it is refused if there are none.
template <class Element>
void expectRead(uint32_t type, const std::string& text, const std::vector<Element>& expected, size_t count = 2) {
    Value<Element> value{std::vector<Element>(count, Element{55})};
    EXPECT_EQ(value.read(type, text), !expected.empty()) << text;
    EXPECT_TRUE(expected.empty() || value.elements == expected) << text;
}

TEST(InfoText, TextToValue) {
    expectRead<int32_t>(QDL_TYPE_BOOL, "TRUE FALSE \n", {1, 0});
    expectRead<int32_t>(QDL_TYPE_BOOL, "false   trUE", {0, 1});
    expectRead<int32_t>(QDL_TYPE_BOOL, "FALSETRUE", {0, 1});
    expectRead<int32_t>(QDL_TYPE_BOOL, " 1 0", {1, 0});
    expectRead<int32_t>(QDL_TYPE_BOOL, "2", {2, 0});
    expectRead<int32_t>(QDL_TYPE_BOOL, "-7 x", {-7, 0});
    for (const char* refused : {"TRUE", "TRUE\n", "TRUEFALSE", " TRUE FALSE", "FALSE ", "", "yes"})
        expectRead<int32_t>(QDL_TYPE_BOOL, refused, {});
    expectRead<uint8_t>(QDL_TYPE_U8, "300 -1", {44, 255});
    expectRead<int8_t>(QDL_TYPE_CHAR, " 65\n66", {65, 66});
    expectRead<uint8_t>(QDL_TYPE_BYTE, "ab", {});
    expectRead<int16_t>(QDL_TYPE_I16, "32768 -32769 rest", {-32768, 32767});
    expectRead<uint16_t>(QDL_TYPE_U16, "65536 -1", {0, 65535});
    expectRead<int32_t>(QDL_TYPE_I32, "+12-5", {12, -5});
    expectRead<int32_t>(QDL_TYPE_I32, "12, 5", {});
    expectRead<int32_t>(QDL_TYPE_I32, "1 ", {});
    expectRead<uint32_t>(QDL_TYPE_U32, "4294967295 4294967296", {UINT32_MAX, 0});
    expectRead<float>(QDL_TYPE_FLOAT, "0.1 -1e3", {0.1F, -1000.0F});
    expectRead<double>(QDL_TYPE_DOUBLE, ".5 0x10", {0.5, 16.0});
    expectRead<double>(QDL_TYPE_DOUBLE, "0.5 e", {});
    expectRead<char>(QDL_TYPE_STRING, "ab", {'a', 'b', 0, 0}, 4);
    expectRead<char>(QDL_TYPE_STRING, "abcdef", {'a', 'b', 'c', 'd'}, 4);
    expectRead<int32_t>(11, "1 2", {});
    expectRead<int32_t>(0xFFFFFFFF, "1 2", {});
    Value<int32_t> none;
    EXPECT_TRUE(none.read(QDL_TYPE_I32, ""));
}

TEST(InfoText, ValueToText) {
    EXPECT_EQ(Value<uint32_t>({{0, 256}}).write(QDL_TYPE_BOOL), "FALSE TRUE ");
    EXPECT_EQ(Value<char>({{'a', ' ', 'b'}}).write(QDL_TYPE_CHAR), "a b");
    EXPECT_EQ(Value<char>({{'x', 'y', 'z'}}).write(QDL_TYPE_BYTE, 3), "xy");
    EXPECT_EQ(Value<uint8_t>({{0, 200}}).write(QDL_TYPE_U8), "0 200 ");
    EXPECT_EQ(Value<float>({{-0.5F, 1e10F}}).write(QDL_TYPE_FLOAT), "-0.500000 10000000000.000000 ");
    EXPECT_EQ(Value<double>({{0.0000005, 2.5}}).write(QDL_TYPE_DOUBLE), "0.000000 2.500000 ");
    EXPECT_EQ(Value<char>({{'a', 'b', 0, 'c'}}).write(QDL_TYPE_STRING), "ab");
    EXPECT_EQ(Value<uint8_t>({{1}}).write(11), "NA");
    const Value<int32_t> cut{{12345, -678}};
    for (size_t size = 0; size <= 12; ++size)
        EXPECT_EQ(cut.write(QDL_TYPE_I32, size), std::string("12345 -678 ").substr(0, size ? size - 1 : 0));
    double value;
    for (int i = 0; i < 1000; ++i) {
        const uint64_t bits = uint64_t{randomness()} << 32 | randomness();
        memcpy(&value, &bits, sizeof value);
        char expected[400];
        std::snprintf(expected, sizeof expected, "%f ", value);
        EXPECT_EQ(Value<double>({{value}}).write(QDL_TYPE_DOUBLE), expected);
    }
}

TEST(InfoText, NoDecimalCommaEver) {
    std::string folder = std::filesystem::temp_directory_path() / "qdllocaleXXXXXX";
    ASSERT_TRUE(mkdtemp(folder.data()));
    const std::string make = std::string("localedef -i de_DE -f UTF-8 ") + folder + "/comma >/dev/null 2>&1";
    const bool comma =
        std::system(make.c_str()) == 0 && setenv("LOCPATH", folder.c_str(), 1) == 0 && std::setlocale(LC_ALL, "comma");
    EXPECT_EQ(Value<double>({{0.5}}).write(QDL_TYPE_DOUBLE), "0.500000 ");
    expectRead<double>(QDL_TYPE_DOUBLE, "0.25 1", {0.25, 1.0});
    std::setlocale(LC_ALL, "C");
    std::filesystem::remove_all(folder);
    if (!comma) GTEST_SKIP() << "no sources of locales here to make one with a decimal comma";
}

// What fscanf takes with "%hd" until `wanted` items are there or none comes.
std::vector<int16_t> scanned(const std::string& text, size_t wanted) {
    std::vector<int16_t> items;
    const File file = fileOf(text);
    for (int16_t item; items.size() < wanted && std::fscanf(file.get(), "%hd", &item) == 1;)
        items.push_back(item);
    return items;
}

void expectParsedAsScanned(const std::string& text, size_t wanted, uint32_t longestPiece = 9) {
    const std::vector<int16_t> expected = scanned(text, wanted);
    std::vector<int16_t> items(wanted, 99);
    frametext::Parser parser(items.data(), wanted);
    for (size_t at = 0; at < text.size();) {
        const size_t length = std::min(text.size() - at, size_t{1} + below(longestPiece));
        if (!parser.take(text.data() + at, length)) break;
        at += length;
    }
    EXPECT_EQ(parser.finish(), expected.size() == wanted) << text;
    for (size_t i = 0; i < wanted; ++i)
        EXPECT_EQ(items[i], i < expected.size() ? expected[i] : 99) << i << " of " << text;
}

TEST(FrameText, ParsesAsScanf) {
    for (const char* text :
         {"", "12-5+7", "0x10 1", "- 5", "--5", "+-5", "5 -", "7,8", "1e3", "\v\f\r\t\n 1 2", "32768 -32769 65536",
          "9223372036854775807 9223372036854775808", "-9223372036854775808 -9223372036854775809",
          "18446744073709551616", "-99999999999999999999999999 1", "00000000000000000000000000000012 -0",
          "\xA0"
          "1",
          "1\xFF", "\x85 1"})
        for (const size_t wanted : {0, 1, 2, 3})
            expectParsedAsScanned(text, wanted);
    expectParsedAsScanned(std::string("1 2\0003 4", 7), 4);
    const std::string letters = "0123456789012345678901234567890123456789      \n\n\t--+x";
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (size_t length = below(60); text.size() < length;)
            text += letters[below(static_cast<uint32_t>(letters.size()))];
        expectParsedAsScanned(text, below(9));
    }
}

// Long enough for whole blocks, with little enough in it that stops a block.
TEST(FrameText, ParsesLongTextsAsScanf) {
    const std::string separators[] = {" ", " ", " ", " ", " ", "  ", " \n", "\n", "\t", " -", "+", "        "};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        const uint32_t digits = 1 + below(9);
        for (int item = 0; item < 200; ++item) {
            text += std::to_string(static_cast<uint32_t>(randomness())).substr(0, 1 + below(digits));
            text += separators[below(below(2) ? 5 : 12)];
            if (below(500) == 0) text += "x";
        }
        expectParsedAsScanned(text, 32 + below(180), 1 + below(900));
        for (size_t at = 0; at + frametext::blankBlock <= text.size(); at += 1 + below(60))
            ASSERT_EQ(frametext::findBlanks(&text[at]), frametext::findBlanksPlain(&text[at])) << text.substr(at, 64);
    }
}

template <class Item>
void expectFormattedAsPrinted(const char* format, size_t count) {
    std::vector<Item> items(count);
    for (size_t i = 0; i < count; ++i)
        items[i] = static_cast<Item>(below(2) ? i * 31 - 40000 : randomness() >> below(32));
    std::string expected;
    char number[16];
    for (size_t i = 0; i < count; ++i) {
        std::snprintf(number, sizeof number, format, items[i]);
        expected += number;
        if (i % 256 == 255) expected += '\n';
    }
    std::vector<char> text(frametext::textRoom<Item>(count));
    EXPECT_EQ(std::string(text.data(), frametext::format(items.data(), count, text.data())), expected);
    const File file = fileOf("");
    EXPECT_TRUE(writeItems(file.get(), items.data(), count));  // by blocks
    EXPECT_EQ(contents(file.get()), expected);
}

TEST(FrameText, FormatsAsPrintf) {
    for (const size_t count : {0, 1, 255, 256, 257, 8192, 65536, 70000}) {
        expectFormattedAsPrinted<int16_t>("%hd ", count);
        expectFormattedAsPrinted<uint32_t>("%u ", count);
    }
}

TEST(FrameFiles, NumberGoesBeforeTheLastDot) {
    const struct {
        const char* name;
        uint32_t index;
        std::string expected;
    } cases[] = {{"frame.dat", 0, "frame0.dat"}, {"frame.dat", 123, "frame123.dat"}, {"frame", 12, "frame12"},
                 {"run.1.dat", 7, "run.17.dat"}, {"frame.", 7, "frame7."},           {".dat", 7, "7.dat"},
                 {"a.b/frame", 7, "a7.b/frame"}, {"a", UINT32_MAX, "a4294967295"},   {"", 1, "1"}};
    for (const auto& test : cases)
        for (const size_t limit : {1, 2, 7, 10, 260}) {
            std::vector<char> name(limit, '#');
            EXPECT_EQ(indexedFileName(name.data(), limit, test.name, test.index), test.expected.substr(0, limit - 1));
        }
    const std::string stem(256, 's');
    EXPECT_EQ(numberedName((stem + ".dat").c_str(), 123).text, stem + "123");
    EXPECT_STREQ(numberedName((stem + "s").c_str(), 123).text, "");  // two frames must never share a file
    EXPECT_STREQ(numberedName(nullptr, 0).text, "");
}

TEST(PixelOps, AgreeWithPlainLoops) {
    constexpr uint32_t chips = 2;
    constexpr size_t count = chips * QDL_CHIP_PIXELS;
    std::vector<int16_t> pixels(count), low(count), target;
    std::vector<uint32_t> counts(count), wide(count), sum;
    std::vector<double> real(count);
    std::vector<uint8_t> matrix(count), masked(count);
    for (size_t i = 0; i < count; ++i) {
        pixels[i] = static_cast<int16_t>(randomness());
        counts[i] = static_cast<uint32_t>(randomness());
        matrix[i] = static_cast<uint8_t>(randomness());
    }
    const auto extended = [&](size_t i) { return static_cast<uint32_t>(int32_t{pixels[i]}); };
    for (const size_t length : {size_t{1}, size_t{2}, size_t{3}, size_t{255}, size_t{257}, count}) {
        memcpy(wide.data(), pixels.data(), length * 2);
        memcpy(real.data(), pixels.data(), length * 2);
        pixelops::widenInPlace(wide.data(), length);
        pixelops::widenInPlace(real.data(), length);
        for (size_t i = 0; i < length; ++i)
            ASSERT_TRUE(wide[i] == extended(i) && real[i] == pixels[i]) << i << " of " << length;
    }
    pixelops::addFrame((sum = counts).data(), pixels.data(), count);
    pixelops::narrow(counts.data(), low.data(), count);
    pixelops::toDouble(counts.data(), real.data(), count);
    for (size_t i = 0; i < count; ++i)
        ASSERT_TRUE(sum[i] == counts[i] + extended(i) && (low[i] ^ counts[i]) << 16 == 0 && real[i] == counts[i]) << i;
    for (const int32_t spacing : {1, 2, 3, 8, 9, 255, 256})
        for (const int32_t k : {0, spacing - 1, spacing * spacing / 2, spacing * spacing - 1}) {
            const SubGrid grid(spacing, k);
            pixelops::scatter((target.assign(count, 1), target.data()), pixels.data(), chips, grid);
            pixelops::scatter((wide.assign(count, 1), wide.data()), pixels.data(), chips, grid);
            pixelops::maskSubGrid(masked.data(), matrix.data(), chips, grid);
            for (size_t i = 0; i < count; ++i) {
                const auto x = static_cast<int32_t>(i % 256), y = static_cast<int32_t>(i / 256 % 256);
                const bool open = x % spacing == k % spacing && y % spacing == k / spacing;
                ASSERT_TRUE(target[i] == (open ? pixels[i] : 1) && wide[i] == (open ? extended(i) : 1) &&
                            masked[i] == ((matrix[i] & 127) | (open ? 128 : 0)))
                    << "spacing " << spacing << " sub-step " << k << " pixel " << i;
            }
        }
}

}  // namespace
