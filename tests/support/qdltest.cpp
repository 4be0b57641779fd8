// SPDX-License-Identifier: MIT
#include "qdltest.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

fs::path makeScratchFolder() {
    std::string name = (fs::temp_directory_path() / "qdltest-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no scratch folder");
    // A copy, not a link: the loader would take two links to one file for the same module.
    fs::copy_file(QDL_LIBRARY, fs::path(name) / "libqdlctrl.so");
    return fs::canonical(name);
}

void* load(const fs::path& file) {
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw std::runtime_error(dlerror());
    return handle;
}

// "(8 9)x2" becomes "8 9 8 9", inner groups first.
std::string expand(std::string pattern) {
    for (size_t close; (close = pattern.find(")x")) != std::string::npos;) {
        const size_t open = pattern.rfind('(', close);
        size_t digits = 0;
        const int times = std::stoi(pattern.substr(close + 2), &digits);
        std::string repeated;
        for (int i = 0; i < times; ++i)
            repeated += pattern.substr(open + 1, close - open - 1) + " ";
        pattern.replace(open, close + 2 + digits - open, repeated);
    }
    return pattern;
}

}  // namespace

QdlLibrary::QdlLibrary(const fs::path& file) : handle_(load(file)) {
#define QDL_EXPORT(name) api.name = reinterpret_cast<decltype(api.name)>(symbol(#name));
#include QDL_EXPORTS
#undef QDL_EXPORT
}

QdlLibrary::~QdlLibrary() { dlclose(handle_); }

void* QdlLibrary::symbol(const std::string& name) const { return dlsym(handle_, name.c_str()); }

std::ostream& operator<<(std::ostream& out, const Message& message) {
    return out << "{" << message.id << ", " << message.code << ", \"" << message.text << "\"}";
}

QdlTest* QdlTest::current_ = nullptr;

QdlTest::QdlTest() : folder(makeScratchFolder()), library(folder / "libqdlctrl.so") {
    current_ = this;
    qdl.setCbInfoMsg(messageArrived);
    qdl.setCbAcqCompl(frameArrived);
}

QdlTest::~QdlTest() {
    onMessage = onFrame = nullptr;
    qdl.exitQdlCtrl();
    releaseHwLibraries();
    fs::remove_all(folder);
}

ScriptedHw& QdlTest::hwLibrary(const std::string& name) {
    void*& handle = hwLibraries_[name];
    if (!handle) {
        const fs::path file = folder / "hwlibs" / (name + ".so");
        fs::create_directories(file.parent_path());
        fs::copy_file(QDL_SCRIPTED, file);
        handle = load(file);
    }
    return *reinterpret_cast<ScriptedControlFn>(dlsym(handle, "scriptedControl"))();
}

void QdlTest::releaseHwLibraries() {
    for (const auto& [name, handle] : hwLibraries_)
        dlclose(handle);
    hwLibraries_.clear();
}

ScriptedHw& QdlTest::startDevice(uint32_t chips, bool initialize) {
    ScriptedHw& hw = hwLibrary();
    hw.addDevice(chips);
    EXPECT_EQ(qdl.initQdlCtrl(), 0);
    EXPECT_EQ(initialize ? qdl.initQdlDevice(0, nullptr) : 0, 0);
    hw.clearLog();
    clearMessages();
    return hw;
}

std::vector<Message> QdlTest::messages() {
    const std::lock_guard guard(mutex_);
    return messages_;
}

std::vector<int32_t> QdlTest::framesDone() {
    const std::lock_guard guard(mutex_);
    return framesDone_;
}

void QdlTest::clearMessages() {
    const std::lock_guard guard(mutex_);
    messages_.clear();
    framesDone_.clear();
}

Message QdlTest::stored(uint32_t id) {
    int32_t code = 0;
    const char* text = nullptr;
    EXPECT_EQ(qdl.getInfoMsg(id, &code, &text), 0);
    return {static_cast<int32_t>(id), code, text ? text : "(null)"};
}

void QdlTest::messageArrived(int32_t id) {
    const Message message = current_->stored(static_cast<uint32_t>(id));
    {
        const std::lock_guard guard(current_->mutex_);
        current_->messages_.push_back(message);
    }
    if (current_->onMessage) current_->onMessage(id);
}

void QdlTest::frameArrived(int32_t id) {
    {
        const std::lock_guard guard(current_->mutex_);
        current_->framesDone_.push_back(id);
    }
    if (current_->onFrame) current_->onFrame(id);
}

std::vector<int16_t> QdlTest::frame(uint32_t index, uint32_t id) {
    uint32_t chips = 0, infoValue = 0;
    qdl.getQuandelInfo(id, &chips, &infoValue, nullptr, nullptr);
    std::vector<int16_t> pixels(chips * QDL_CHIP_PIXELS);
    EXPECT_QDL(0, "", qdl.getFrame16(id, pixels.data(), static_cast<uint32_t>(pixels.size()), index, msg));
    return pixels;
}

testing::AssertionResult QdlTest::check(int32_t code, const testing::Matcher<const std::string&>& text,
                                        const char* expression, const std::function<int32_t()>& call) {
    const size_t before = messages().size();
    msg[0] = 0;
    const int32_t result = call();
    const std::vector<Message> all = messages();
    const Message last = all.size() > before ? all.back() : Message{0, result, ""};
    const std::string told = last.text.empty() || !*msg ? last.text + msg : last.text + " | " + msg;
    const bool sameCode = result == last.code || result >= 0 || result == -1;
    if (result == code && sameCode && text.Matches(told)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << expression << " gave " << result << " and told \"" << told << "\" with code "
                                       << last.code << "\nExpected: " << code << " and a text that "
                                       << testing::DescribeMatcher<const std::string&>(text);
}

testing::AssertionResult sameCalls(const std::vector<Call>& log, const std::string& pattern) {
    std::istringstream steps(expand(pattern));
    size_t at = 0;
    bool same = true;
    for (std::string step; same && steps >> step;) {
        const size_t first = at;
        const bool any = step.back() == '*';
        while (at < log.size() && log[at].position == std::stoi(step) && (any || at == first))
            ++at;
        same = any || at > first;
    }
    if (same && at == log.size()) return testing::AssertionSuccess();
    auto failure = testing::AssertionFailure() << "the calls differ from \"" << pattern << "\" at the mark:";
    for (size_t i = 0; i < log.size(); ++i)
        failure << (i == at ? " >>> " : " ") << log[i].position;
    return failure << (at == log.size() ? " >>>" : "");
}

std::vector<int16_t> expectedFrame(const ScriptedHw& hw, const std::function<uint32_t(uint32_t, uint32_t)>& readoutOf,
                                   size_t device) {
    std::vector<int16_t> pixels(hw.devices.at(device).info.chipCount * QDL_CHIP_PIXELS);
    for (uint32_t i = 0; i < pixels.size(); ++i) {
        const uint32_t x = i & 255, y = i >> 8 & 255;
        pixels[i] = hw.pixel(i >> 16, x, y, readoutOf(x, y));
    }
    return pixels;
}

std::vector<int16_t> expectedFrame(const ScriptedHw& hw, uint32_t readout, size_t device) {
    return expectedFrame(
        hw, [=](uint32_t, uint32_t) { return readout; }, device);
}
