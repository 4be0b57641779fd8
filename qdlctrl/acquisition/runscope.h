// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include "device/qdldevice.h"

// Built and destroyed by an acquisition that holds the device lock, which is why the analysis may be off.
class QdlDevice::RunScope {
 public:
    explicit RunScope(QdlDevice& device) NO_THREAD_SAFETY_ANALYSIS : device(device) { device.acquiring = true; }
    ~RunScope() NO_THREAD_SAFETY_ANALYSIS {
        device.acquiring = false;
        device.freeAll(std::exchange(device.deferredFrees, 0));
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

 private:
    QdlDevice& device;
};
