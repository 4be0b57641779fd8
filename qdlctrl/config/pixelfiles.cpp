// SPDX-License-Identifier: MIT
// The pixel matrix in files: as one binary image, or taken apart into a text file for each field of its bytes.
#include <array>
#include <new>

#include "device/qdldevice.h"

namespace {

// A field of the configuration byte: its bits, and how far they are from the lowest one.
struct PixelField {
    unsigned bits;
    int shift;
};

// In the order of the arguments of the plane commands.
constexpr std::array<PixelField, 4> planeFields{
    {{QDL_PIXEL_MASK_BIT, 7}, {QDL_PIXEL_TEST_BIT, 6}, {QDL_PIXEL_ADJUST_LOW, 0}, {QDL_PIXEL_ADJUST_HIGH, 3}}};

void takePlane(uint8_t* matrix, const int16_t* values, std::size_t count, PixelField field) {
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned bits = (static_cast<unsigned>(values[i]) << field.shift) & field.bits;
        matrix[i] = static_cast<uint8_t>((matrix[i] & ~field.bits) | bits);
    }
}

void givePlane(const uint8_t* matrix, int16_t* values, std::size_t count, PixelField field) {
    for (std::size_t i = 0; i < count; ++i)
        values[i] = static_cast<int16_t>((matrix[i] & field.bits) >> field.shift);
}

}  // namespace

int32_t QdlDevice::loadPixelsCfg(const char* fileName) {
    CsLock cslock(csDevice);
    return loadMatrix(fileName);
}

int32_t QdlDevice::savePixelsCfg(const char* fileName) {
    CsLock cslock(csDevice);
    return saveMatrixTo(fileName ? fileName : "");
}

int32_t QdlDevice::loadMatrix(const char* fileName) {
    if (int32_t r = checkMatrix()) return r;
    if (fileName)
        if (int32_t r = readBinFile(fileName, currentCfg.pixels.get(), currentCfg.pixelCount())) return r;
    return sendPixelsCfg();
}

int32_t QdlDevice::saveMatrixTo(const char* fileName) {
    if (int32_t r = checkInitialized()) return r;
    return writeBinFile(fileName, currentCfg.pixels.get(), currentCfg.pixelCount(), false);
}

int32_t QdlDevice::loadPixelsCfgAscii(const char* maskFile, const char* testFile, const char* adjustLowFile,
                                      const char* adjustHighFile) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    const std::size_t count = currentCfg.pixelCount();
    const Scratch values = allocPlane();
    if (!values) return QDL_E_MEMORY;
    const std::array<const char*, 4> names{maskFile, testFile, adjustLowFile, adjustHighFile};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i]) continue;
        if (int32_t r = readAsciiFile(names[i], values.get(), static_cast<uint32_t>(count))) return r;
        takePlane(currentCfg.pixels.get(), values.get(), count, planeFields[i]);
    }
    return loadMatrix(nullptr);
}

int32_t QdlDevice::savePixelsCfgAscii(const char* maskFile, const char* testFile, const char* adjustLowFile,
                                      const char* adjustHighFile) {
    CsLock cslock(csDevice);
    if (int32_t r = checkInitialized()) return r;
    const std::size_t count = currentCfg.pixelCount();
    const Scratch values = allocPlane();
    if (!values) return QDL_E_MEMORY;
    const std::array<const char*, 4> names{maskFile, testFile, adjustLowFile, adjustHighFile};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i]) continue;
        givePlane(currentCfg.pixels.get(), values.get(), count, planeFields[i]);
        if (int32_t r = writeAscii16(names[i], values.get(), count, false)) return r;
    }
    return QDL_OK;
}

// Room for one value per pixel; null after the failure was reported.
QdlDevice::Scratch QdlDevice::allocPlane() {
    Scratch values(new (std::nothrow) int16_t[currentCfg.pixelCount()]);
    if (!values) reportDevMsg(msg::allocationFailed, static_cast<int64_t>(currentCfg.pixelCount() * sizeof(int16_t)));
    return values;
}
