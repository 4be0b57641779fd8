// SPDX-License-Identifier: MIT
#include "session.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace fs = std::filesystem;

Json Device::json() const {
    return {{"id", id}, {"hardware", hwName}, {"name", devName}, {"chips", chips}, {"infoValue", infoValue}};
}

Inbox& Inbox::instance() {
    static Inbox* const inbox = new Inbox;
    return *inbox;
}

void Inbox::messageArrived(int32_t id) {
    int32_t code = 0;
    const char* text = nullptr;
    if (!readMessage || readMessage(static_cast<uint32_t>(id), &code, &text) != QDL_OK || !text) return;
    if (code == QDL_E_READOUT) ++lostCount;
    Message message{id, code, std::string(text, strnlen(text, QDL_TEXT_SIZE))};
    // The system has more to say than the number in the message, here on the thread that tried to load.
    const char* reason = code == QDL_E_HW_LIBRARY_LOAD ? dlerror() : nullptr;
    if (reason) message.text += formatted(": %s", reason);
    const std::lock_guard lock(mutex);
    messages.push_back(std::move(message));
}

size_t Inbox::waiting() {
    const std::lock_guard lock(mutex);
    return messages.size();
}

std::vector<Message> Inbox::take(size_t keep) {
    const std::lock_guard lock(mutex);
    const auto end = messages.end() - static_cast<std::ptrdiff_t>(std::min(keep, messages.size()));
    std::vector<Message> taken(messages.begin(), end);
    messages.erase(messages.begin(), end);
    return taken;
}

ExitStatus statusOf(int32_t code, ExitStatus otherwise) {
    switch (code) {
        case QDL_E_OPEN_FOR_WRITING:
        case QDL_E_WRITE:
        case QDL_E_OPEN_FOR_READING:
        case QDL_E_READ:
        case QDL_E_CFG_OPEN:
            return ExitStatus::File;
        case QDL_E_DEVICE_ID:
            return ExitStatus::NoDevice;
        default:
            return otherwise;
    }
}

Session::Session(Context& programContext) : context(programContext), library(programContext.libraryPath) {
    Inbox::instance().connect(api().getInfoMsg);
    api().setCbInfoMsg([](int32_t id) { Inbox::instance().messageArrived(id); });
    api().setCbAcqCompl([](int32_t) { Inbox::instance().frameArrived(); });
    api().initQdlCtrl();
    printMessages();
}

Session::~Session() {
    if (open) api().exitQdlCtrl();
    printMessages();
}

std::vector<Device> Session::devices() const {
    std::vector<Device> found;
    uint32_t id = 0;
    for (int32_t r = api().getFirstQdl(&id, nullptr); r == QDL_OK; r = api().getNextQdl(&id))
        found.push_back(device(id));
    return found;
}

Device Session::device(uint32_t id) const {
    Device device;
    device.id = id;
    char devName[QDL_NAME_TEXT_SIZE + 1] = "", hwName[QDL_NAME_TEXT_SIZE + 1] = "";
    const int32_t result = api().getQuandelInfo(id, &device.chips, &device.infoValue, devName, hwName);
    if (result == QDL_E_DEVICE_ID) throw Failure(ExitStatus::NoDevice, formatted("there is no device %u", id), result);
    if (result != QDL_OK)
        throw Failure(ExitStatus::Device, formatted("device %u does not tell what it is", id), result);
    device.devName = devName;
    device.hwName = hwName;
    return device;
}

void Session::initialize(const Device& device) {
    if (device.chips == 0) throw Failure(ExitStatus::Device, formatted("device %u has no chips", device.id));
    initializing = &device;
    const int32_t result = api().initQdlDevice(device.id, nullptr);
    printMessages(result == QDL_OK ? 0 : 1);
    initializing = nullptr;
    check(device, result, formatted("cannot initialize device %u", device.id));
    initialized.push_back(device);
}

void Session::check(const Device& device, int32_t result, const std::string& what, ExitStatus status) {
    if (result >= 0) return printMessages();
    std::vector<Message> messages = Inbox::instance().take();
    std::string text;
    const auto own = std::find_if(messages.rbegin(), messages.rend(), [&](const Message& message) {
        return message.device == static_cast<int32_t>(device.id) && message.code == result;
    });
    if (own != messages.rend()) {
        text = own->text;
        messages.erase(std::next(own).base());
    }
    for (const Message& message : messages)
        print(message);
    throw Failure(statusOf(result, status), what, result, text);
}

void Session::printMessages(size_t keep) {
    for (const Message& message : Inbox::instance().take(keep))
        print(message);
}

// A detector that has never been used has no files yet: the library says so twice, and nothing is wrong.
bool Session::isFirstStart(const Message& message) const {
    if (!initializing) return false;
    std::error_code ignored;
    if (message.code == QDL_E_CFG_OPEN) return !fs::exists(settingsFile(*initializing), ignored);
    return message.code == QDL_E_OPEN_FOR_READING && !fs::exists(pixelsFile(*initializing), ignored);
}

void Session::print(const Message& message) const {
    if (message.code == QDL_OK || message.code == QDL_E_READOUT) {
        if (!context.verbose) return;
    } else if (isFirstStart(message)) {
        const char* note = message.code == QDL_E_CFG_OPEN ? "no configuration file yet, defaults are in force"
                                                          : "no pixel file yet, all pixels are open";
        std::fprintf(stderr, "qdl: note: device %d: %s\n", message.device, note);
        return;
    }
    const std::string source = message.device < 0 ? "library" : formatted("device %d", message.device);
    std::string text;
    for (const char character : message.text)
        text += character == '\n' ? std::string("\n    ") : std::string(1, character);
    text.erase(text.find_last_not_of(" \n") + 1);
    std::fprintf(stderr, "qdl: %s: %s", source.c_str(), message.code == QDL_OK ? "" : "message ");
    if (message.code != QDL_OK) std::fprintf(stderr, "%d (%s): ", message.code, meaningOf(message.code));
    std::fprintf(stderr, "%s\n", text.c_str());
}

std::string Session::defaultFile(const Device& device, const char* extension) const {
    return (library.folder() / "configs" / (device.hwName + "_" + device.devName + extension)).string();
}

void Session::close(Saving saving) {
    const std::vector<Failure> failures = saveAndEnd();
    if (failures.empty())
        for (const Device& device : initialized)
            tellSaved(device, saving);
    for (size_t i = 1; i < failures.size(); ++i)
        std::fprintf(stderr, "qdl: %s\n", describe(failures[i]).c_str());
    if (!failures.empty()) throw failures.front();
}

std::vector<Failure> Session::saveAndEnd() {
    std::vector<Failure> failures;
    printMessages();
    // The end of the library saves once more, but tells nothing of a write that fails half way.
    for (const Device& device : initialized)
        if (api().saveQdlCfg(device.id, nullptr) == QDL_E_FAILED)
            failures.emplace_back(ExitStatus::File, "the settings are not saved to " + settingsFile(device),
                                  QDL_E_FAILED);
    Inbox::instance().take();  // what else went wrong comes again
    open = false;
    api().exitQdlCtrl();
    for (const Message& message : Inbox::instance().take())
        if (statusOf(message.code, ExitStatus::Ok) == ExitStatus::File)
            failures.emplace_back(ExitStatus::File, "the settings are not saved", message.code, message.text);
        else
            print(message);
    return failures;
}

void Session::tellSaved(const Device& device, Saving saving) {
    context.document["saved"].push_back(settingsFile(device));
    context.document["saved"].push_back(pixelsFile(device));
    if (context.json) return;
    std::fprintf(saving == Saving::Changed ? stdout : stderr, "settings saved: %s and .bpc\n",
                 settingsFile(device).c_str());
}

void Session::abandon() {
    open = false;
    library.keepLoaded();
    context.endAtOnce = true;
}
