// SPDX-License-Identifier: MIT
#pragma once

#include "platform/platform.h"

using platform::CriticalSection;

// Holds a critical section for the length of a block.
//
// Locks of a device, in the order in which they may be taken: the device lock first, then one of the others. No
// operation holds two of the others at a time.
//   csDevice                       the configuration and a device operation as a whole; a run holds it to its end
//   streamBuff, frameBuff, integralBuff (.cs)
//                                  replacing, releasing and reading that buffer, resetting its count of filled frames,
//                                  and each update of the sum
//   csRunFiles                     the base name of the numbered files and the number of the run they belong to
class SCOPED_CAPABILITY CsLock {
 public:
    explicit CsLock(CriticalSection& section) ACQUIRE(section) : cs(section) { cs.enter(); }
    ~CsLock() RELEASE() { cs.leave(); }
    CsLock(const CsLock&) = delete;
    CsLock& operator=(const CsLock&) = delete;

 private:
    CriticalSection& cs;
};
