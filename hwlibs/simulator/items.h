// SPDX-License-Identifier: MIT
#pragma once

#include "simdevice.h"

namespace qdlsim {

// The info items of a device, by index. Those kept in configuration files have one digit, so that no reader that
// compares only the beginnings of keys can take one for another.
//
//    0 scene            string  kept  flat, spot, star or phantom
//    1 photonEnergy     double  kept  keV, 1 to 200
//    2 flux             double  kept  photons a second that a fully lit pixel absorbs, 0 to 1e9
//    3 noise            float   kept  electrons RMS, 0 to 10000
//    4 thresholdSpread  float   kept  electrons RMS, 0 to 10000
//    5 seed             u32     kept  setting it, even to the same value, begins its sequence of frames again
//    6 readoutTime      double  kept  seconds that a read-out takes at least, 0 to 10
//    7 failReadoutRate  double        share of read-outs that fail, 0 to 1
//    8 failStart        bool          exposures do not start
//    9 stuckBusy        bool          the busy line never falls
//   10 exposures        u32           read only: exposures since the seed was set
//   11 chipLayout       u16[2]        read only: columns and rows of the chips in the picture
//   12 serial           char[8]       read only: serial number, padded with blanks
//   13 temperature      float[chips]  read only: degrees Celsius
//   14 thresholds       float[pixels] read only: threshold of each pixel as set and adjusted, electrons
//   15 pixelNoise       float[pixels] read only: noise of each pixel, electrons RMS
//   16 deadPixels       u8[pixels]    read only: 1 is a dead pixel
//   17 hotPixels        u8[pixels]    read only: 1 is a hot pixel
int32_t itemCount();
Failure getItem(const SimDevice& device, uint32_t index, InfoItem& item, uint32_t& bytes);
Failure setItem(SimDevice& device, uint32_t index, const void* data, uint32_t bytes);

}  // namespace qdlsim
