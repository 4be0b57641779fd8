// SPDX-License-Identifier: MIT
// The exported names, the search for HW libraries, the enumeration of devices, messages and callbacks.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "qdltest.h"

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// The messages that the search gives for a module.
Message counted(const std::string& module, int devices) {
    return {-1, 0, "Number of successfully initialized devices (" + module + "): " + std::to_string(devices)};
}
auto refused(int32_t code, const std::string& opening) {
    return testing::AllOf(testing::Field(&Message::code, code),
                          testing::Field(&Message::text, testing::StartsWith(opening)));
}

std::set<std::string> definedSymbols(const std::string& module) {
    std::set<std::string> names;
    FILE* pipe = popen(("nm -D --defined-only --format=posix '" + module + "'").c_str(), "r");
    char line[4096];
    while (pipe && fgets(line, sizeof line, pipe))
        names.insert(std::string(line, strcspn(line, " ")));
    EXPECT_EQ(pipe ? pclose(pipe) : -1, 0);
    return names;
}

bool isLoaded(const fs::path& module) {
    void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle) dlclose(handle);
    return handle != nullptr;
}

// Calls a function with a device id and zeros for all else: nothing behind a pointer may be looked at.
template <class... Rest>
int32_t callWithId(int32_t (*function)(uint32_t, Rest...), uint32_t id) {
    return function(id, Rest{}...);
}
template <class Function>
int32_t callWithId(Function*, uint32_t) {
    return QDL_E_DEVICE_ID;  // the functions without an id
}

void expectUnknown(const Api& qdl, uint32_t id) {
    const auto expect = [&](const std::string& name, auto* function) {
        if (id == QDL_CTRL_ID && name == "getInfoMsg") return;
        EXPECT_EQ(callWithId(function, id), -100) << name;
    };
#define QDL_EXPORT(name) expect(#name, qdl.name);
#include QDL_EXPORTS
#undef QDL_EXPORT
}

class RegistryTest : public QdlTest {
 public:
    // Walks the enumeration to its end.
    uint32_t devices() {
        uint32_t id = 77, count = 77, walked = 0, value = 0;
        for (int32_t r = qdl.getFirstQdl(&id, &count); r == 0; r = qdl.getNextQdl(&id)) {
            EXPECT_EQ(id, walked++);
            EXPECT_EQ(qdl.getPolarity(id, &value), 0);
        }
        EXPECT_EQ(id, walked);
        EXPECT_EQ(count, walked);
        return walked;
    }
    std::string module(const std::string& name) const { return path("hwlibs/" + name + ".so"); }
};

TEST_F(RegistryTest, ExportsEachFunctionUnderTwoNamesAndNothingElse) {
    std::set<std::string> expected;
#define QDL_EXPORT(name) expected.insert({#name, "_" #name});
#include QDL_EXPORTS
#undef QDL_EXPORT
    EXPECT_EQ(expected.size(), 120u);
    EXPECT_EQ(definedSymbols(path("libqdlctrl.so")), expected);
    for (const std::string& name : expected)
        EXPECT_EQ(library.symbol(name), library.symbol(name[0] == '_' ? name.substr(1) : name)) << name;
}

TEST_F(RegistryTest, BeforeInitThereIsAStoreButNoDevice) {
    EXPECT_EQ(stored(QDL_CTRL_ID), (Message{-1, 0, ""}));
    expectUnknown(qdl, 0);
    EXPECT_QDL(0, "", qdl.exitQdlCtrl());
    uint32_t id = 7, count = 7;
    EXPECT_QDL(-1, "Quandel control library was not initialized.", qdl.getFirstQdl(&id, &count));
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_QDL(-1, "Quandel control library was not initialized.", qdl.getNextQdl(&id));
    EXPECT_EQ(id, 1u);
    EXPECT_QDL(-1, "Quandel control library was not initialized.", qdl.getFirstQdl(&id, nullptr));
    EXPECT_EQ(stored(QDL_CTRL_ID).code, -21);
}

TEST_F(RegistryTest, AnUnknownIdChangesNothing) {
    startDevice();
    for (const uint32_t id : {1u, 1000u, 0xFFFFFFFFu})
        expectUnknown(qdl, id);
    int32_t code = 7;
    const char* text = "kept";
    EXPECT_QDL(-100, "", qdl.getInfoMsg(1, &code, &text));
    EXPECT_EQ(code, 7);
    EXPECT_STREQ(text, "kept");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(stored(QDL_CTRL_ID), counted(module("a"), 1));
}

TEST_F(RegistryTest, LibrariesComeInByteOrderOfTheirNames) {
    const std::vector<std::string> order = {"B", "a-1", "a.1", "a", "a1", "a10", "a2", "b"};
    for (const size_t i : {7, 2, 5, 0, 3, 6, 1, 4})
        for (size_t device = 0; device < 1 + i % 2; ++device)  // the same hwIDs in each library
            hwLibrary(order[i]).addDevice(1, order[i] + (device ? "second" : "first"));
    EXPECT_QDL(0, counted(module("b"), 2).text, qdl.initQdlCtrl());
    for (size_t i = 0; i < order.size(); ++i)
        EXPECT_EQ(messages().at(i), counted(module(order[i]), static_cast<int>(1 + i % 2)));
    EXPECT_EQ(devices(), 12u);
    std::vector<std::string> names;
    for (uint32_t id = 0, chips = 0, infoValue = 0; id < 12; ++id) {
        char devName[QDL_NAME_TEXT_SIZE];
        EXPECT_EQ(qdl.getQuandelInfo(id, &chips, &infoValue, devName, nullptr), 0);
        names.push_back(devName);
    }
    EXPECT_THAT(names, ElementsAre("Bfirst", "a-1first", "a-1second", "a.1first", "afirst", "asecond", "a1first",
                                   "a10first", "a10second", "a2first", "bfirst", "bsecond"));
    EXPECT_QDL(0, _, qdl.initQdlDevice(11, nullptr));
    EXPECT_CALLS(hwLibrary("b").log(), "1 3 2 3 2 21 16 14");
    EXPECT_EQ(hwLibrary("b").log({21}).at(0).id, hwLibrary("b").devices[1].hwID);
    EXPECT_CALLS(hwLibrary("a").log(), "1 3 2 3 2");
}

TEST_F(RegistryTest, WithoutModulesTheMaskIsNamed) {
    const std::string text = "No HW library (" + path("hwlibs/*.so") + ") was found";
    uint32_t id = 7, count = 7;
    EXPECT_QDL(0, text, qdl.initQdlCtrl());
    EXPECT_QDL(1, "", qdl.getFirstQdl(&id, &count));
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(count, 0u);
    fs::create_directory(folder / "hwlibs");
    std::ofstream(folder / "hwlibs" / "readme.txt") << "no module";
    EXPECT_QDL(0, text, qdl.initQdlCtrl());
    EXPECT_THAT(messages(), ElementsAre(Message{-1, -101, text}, Message{-1, -101, text}));
}

TEST_F(RegistryTest, AModuleThatIsNoneDoesNotStopTheOthers) {
    hwLibrary("z").addDevice();
    hwLibrary("nulltable").withoutTable = true;
    fs::copy_file(QDL_EMPTY_MODULE, module("empty"));
    fs::create_directory(module("folder"));
    std::ofstream(module("text")) << "no module";
    EXPECT_EQ(qdl.initQdlCtrl(), 0);
    const auto failed = [&](const std::string& name) {
        return refused(-103, "Initialization of HW library " + module(name) + " has failed (");
    };
    EXPECT_THAT(messages(), ElementsAre(refused(-102, "Cannot load library " + module("folder") + " ("),
                                        refused(-102, "Cannot load library " + module("text") + " ("), failed("empty"),
                                        counted(module("empty"), 0), failed("nulltable"),
                                        counted(module("nulltable"), 0), counted(module("z"), 1)));
    EXPECT_EQ(devices(), 1u);
}

TEST_F(RegistryTest, FailuresOfTheDeviceSearchCarryTheTextOfTheLibrary) {
    const struct {
        int position, nth, result;
        const char* calls;
        int devices;
    } cases[] = {{1, 1, 1, "1 22", 0}, {1, 1, -5, "1 22", 0}, {2, 1, -1, "1 3 2 22", 1}, {2, 2, -9, "1 3 2 3 2 22", 2}};
    ScriptedHw& hw = hwLibrary();
    for (int i = 0; i < 3; ++i)
        hw.addDevice();
    for (const auto& test : cases) {
        hw.clearScript();
        hw.clearLog();
        clearMessages();
        hw.failAt(test.position, test.nth, test.result, "bus is gone");
        EXPECT_QDL(0, counted(module("a"), test.devices).text, qdl.initQdlCtrl());
        EXPECT_EQ(messages().at(0), (Message{-1, -103, "Device initialization error: bus is gone"}));
        EXPECT_EQ(messages().size(), 2u);
        EXPECT_CALLS(hw.log(), test.calls);
        EXPECT_EQ(devices(), static_cast<uint32_t>(test.devices));
    }
}

TEST_F(RegistryTest, ExitEndsAllAndInitBeginsAnew) {
    const fs::path cfg = folder / "configs" / "Scripted_D1.qcf";
    hwLibrary().addDevice();
    for (int round = 0; round < 3; ++round) {
        EXPECT_QDL(0, counted(module("a"), 1).text, qdl.initQdlCtrl());
        EXPECT_EQ(devices(), 1u);
        EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
        EXPECT_FALSE(fs::exists(cfg));
        EXPECT_QDL(0, "", qdl.exitQdlCtrl());
        EXPECT_TRUE(fs::remove(cfg));
        expectUnknown(qdl, 0);
        EXPECT_EQ(devices(), 0u);
        EXPECT_QDL(0, "", qdl.exitQdlCtrl());
        EXPECT_FALSE(fs::exists(cfg));
    }
    EXPECT_EQ(qdl.initQdlCtrl(), 0);
    releaseHwLibraries();
    EXPECT_TRUE(isLoaded(module("a")));
    qdl.exitQdlCtrl();
    EXPECT_FALSE(isLoaded(module("a")));
}

TEST_F(RegistryTest, InitWithDevicesInTheTableEndsThemFirst) {
    ScriptedHw& hw = startDevice();
    hw.addDevice(1, "D2");
    EXPECT_QDL(0, "", qdl.setPolarity(0, 5));
    EXPECT_QDL(0, counted(module("a"), 2).text, qdl.initQdlCtrl());
    EXPECT_EQ(devices(), 2u);
    EXPECT_QDL(0, _, qdl.initQdlDevice(0, nullptr));
    EXPECT_EQ(hw.devices[0].info.polarity, 5u);  // saved by the first, loaded by the second
}

TEST_F(RegistryTest, ADeviceKeepsTheCallbackItWasMadeWith) {
    hwLibrary().addDevice();
    qdl.setCbInfoMsg(nullptr);
    EXPECT_QDL(0, "", qdl.initQdlCtrl());
    qdl.setCbInfoMsg(messageArrived);
    EXPECT_QDL(-21, "", qdl.refreshDACs(0));
    EXPECT_EQ(stored(0), (Message{0, -21, "Cannot perform command, Quandel was not initialized."}));
    EXPECT_QDL(0, counted(module("a"), 1).text, qdl.initQdlCtrl());
    qdl.setCbInfoMsg(nullptr);
    EXPECT_QDL(-21, "Cannot perform command, Quandel was not initialized.", qdl.refreshDACs(0));
}

TEST_F(RegistryTest, MessagesAreCutToTheStoreAndStayAfterASuccess) {
    ScriptedHw& hw = startDevice();
    const std::string opening = "Error occurred while setting Quandel DACs: ";
    hw.failAt(14, 1, -1, std::string(6000, 'x'));
    EXPECT_QDL(-28, opening + std::string(QDL_TEXT_SIZE - 1 - opening.size(), 'x'), qdl.refreshDACs(0));
    hw.failAt(14, 2, -1, "100%s %n");
    EXPECT_QDL(-28, opening + "100%s %n", qdl.refreshDACs(0));
    EXPECT_QDL(0, "", qdl.refreshDACs(0));
    EXPECT_EQ(stored(0), (Message{0, -28, opening + "100%s %n"}));
    EXPECT_EQ(stored(QDL_CTRL_ID), counted(module("a"), 1));
}

TEST_F(RegistryTest, TheMessageCallbackMayCallBackIn) {
    ScriptedHw& hw = startDevice();
    onMessage = [&](int32_t id) { EXPECT_EQ(qdl.refreshDACs(static_cast<uint32_t>(id)), 0); };
    hw.failAt(14, 1);
    EXPECT_QDL(-28, _, qdl.refreshDACs(0));
    EXPECT_CALLS(hw.log(), "14 23 14");
}

TEST_F(RegistryTest, LoadsByRelativePathAndUnloadsTenTimes) {
    const fs::path before = fs::current_path(), other = folder / "other";
    fs::create_directories(other / "hwlibs");
    fs::copy_file(QDL_LIBRARY, other / "libqdlctrl.so");
    fs::copy_file(QDL_EMPTY_MODULE, other / "hwlibs" / "m.so");
    for (int round = 0; round < 10; ++round) {
        fs::current_path(other);
        const QdlLibrary again("./libqdlctrl.so");
        fs::current_path("/");
        EXPECT_TRUE(fs::remove(other / "configs"));
        EXPECT_TRUE(fs::remove(other / "plugins"));
        uint32_t id = 0;
        int32_t code = 7;
        const char* text = "";
        EXPECT_EQ(again.api.getFirstQdl(&id, nullptr), -1);
        EXPECT_EQ(again.api.initQdlCtrl(), 0);
        EXPECT_EQ(again.api.getInfoMsg(QDL_CTRL_ID, &code, &text), 0);
        EXPECT_THAT(text, testing::AllOf(HasSubstr("(" + other.string()), HasSubstr("/hwlibs/m.so): 0")));
        if (round % 2) again.api.exitQdlCtrl();
    }
    EXPECT_FALSE(isLoaded(other / "libqdlctrl.so"));
    fs::current_path(before);
}

// In a process of its own, where what the device holds may be lost.
TEST_F(RegistryTest, UnloadWithoutExitSavesNothing) {
    const auto abandon = [&] {
        startDevice();
        library.~QdlLibrary();
        std::_Exit(0);
    };
    EXPECT_EXIT(abandon(), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(fs::is_empty(folder / "configs"));
}

}  // namespace
