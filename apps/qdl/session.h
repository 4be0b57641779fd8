// SPDX-License-Identifier: MIT
// One use of the control library, from initQdlCtrl to exitQdlCtrl, with everything that it has to say.
#pragma once

#include "failure.h"
#include "library.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using Json = nlohmann::ordered_json;

// What every command gets: the global options, and the document that --json prints.
struct Context {
    std::string libraryPath;
    bool json = false;
    bool verbose = false;
    Json document = Json::object();
    std::function<void()> command;
    bool endAtOnce = false;  // a library call never came back, so nothing may be taken down in order
};

struct Device {
    uint32_t id = 0;
    uint32_t chips = 0;
    uint32_t infoValue = 0;
    std::string hwName;
    std::string devName;

    std::string title() const { return hwName + " " + devName; }
    size_t pixels() const { return size_t{chips} * QDL_CHIP_PIXELS; }
    Json json() const;
};

struct Message {
    int32_t device;  // -1: the library itself
    int32_t code;
    std::string text;
};

// Takes what the callbacks bring, on whatever thread they come. Callbacks carry a device id and nothing else, so there
// is one inbox for the process; it is never destroyed, since a stuck device may still call back while the program ends.
class Inbox {
 public:
    static Inbox& instance();

    void connect(decltype(&::getInfoMsg) getInfoMsg) { readMessage = getInfoMsg; }
    void messageArrived(int32_t id);
    void frameArrived() { ++frameCount; }
    void startRun() { frameCount = 0, lostCount = 0; }

    uint32_t frames() const { return frameCount; }
    uint32_t lostReadouts() const { return lostCount; }
    size_t waiting();
    // All messages but the `keep` newest, oldest first.
    std::vector<Message> take(size_t keep = 0);

 private:
    decltype(&::getInfoMsg) readMessage = nullptr;
    std::atomic<uint32_t> frameCount = 0;
    std::atomic<uint32_t> lostCount = 0;
    std::mutex mutex;
    std::deque<Message> messages;
};

// What a command did to the settings that the library saves at its end.
enum class Saving {
    Unchanged,  // where they are saved is no part of the output
    Changed     // or may have changed them
};

class Session {
 public:
    // Registers the callbacks, loads the HW libraries and reports what went wrong with them.
    explicit Session(Context& programContext);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const Api& api() const { return library.api(); }
    std::vector<Device> devices() const;
    Device device(uint32_t id) const;
    void initialize(const Device& device);

    // Throws the Failure of a negative `result`, with the text that the device stored.
    void check(const Device& device, int32_t result, const std::string& what, ExitStatus status = ExitStatus::Device);
    // Prints the messages that arrived; `keep` of them wait, as they may belong to a result not there yet.
    void printMessages(size_t keep = 0);

    // The default files of a device, in which its settings live between two runs of the program.
    std::string settingsFile(const Device& device) const { return defaultFile(device, ".qcf"); }
    std::string pixelsFile(const Device& device) const { return defaultFile(device, ".bpc"); }

    // Ends the library, which saves the settings of initialized devices, and tells where. Throws the first Failure to
    // save, after printing the others.
    void close(Saving saving);
    // A call has not come back and holds the device: nothing is taken down. What needs no lock of it still works.
    void abandon();

 private:
    std::string defaultFile(const Device& device, const char* extension) const;
    void print(const Message& message) const;
    std::vector<Failure> saveAndEnd();
    void tellSaved(const Device& device, Saving saving);
    bool isFirstStart(const Message& message) const;

    Context& context;
    Library library;
    std::vector<Device> initialized;
    const Device* initializing = nullptr;
    bool open = true;
};

// Which status a code ends the program with: failures of files are failures of files wherever they happen.
ExitStatus statusOf(int32_t code, ExitStatus otherwise);
