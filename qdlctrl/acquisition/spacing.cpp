// SPDX-License-Identifier: MIT
// Spaced acquisition: the mask of a sub-step, and the user's pixel matrix around it all.
#include "device/qdldevice.h"
#include "frames/pixelops.h"

int32_t QdlDevice::setAcqSpacing(int32_t spacing) {
    CsLock cslock(csDevice);
    if (spacing < 1 || spacing > QDL_CHIP_SIDE) return reportDevMsg(msg::invalidSpacing, spacing);
    acqSpacing = spacing;
    return QDL_OK;
}

int32_t QdlDevice::saveMatrix() {
    if (backupCfg.copyPixelsFrom(currentCfg)) return QDL_OK;
    return reportDevMsg(msg::allocationFailed, static_cast<int64_t>(currentCfg.pixelCount()));
}

// Always from the saved matrix: a callback may have changed the current one since the last sub-step. The user's masked
// pixels are open in the sub-step that reaches them.
int32_t QdlDevice::setSpacingStep(SubGrid grid) {
    pixelops::maskSubGrid(currentCfg.pixels.get(), backupCfg.pixels.get(), currentCfg.chipCount, grid);
    if (int32_t r = sendPixelsCfg()) return r;
    return resetMatrix();
}

void QdlDevice::putMatrixBack() { currentCfg.copyPixelsFrom(backupCfg); }

// Sends the matrix as it shall stay and ends the run. After a failure that is done quietly, so that code and text of
// the failure stay; at a normal end or an abort a failing send is the result.
int32_t QdlDevice::sendAndEndRun(int32_t outcome) {
    if (outcome != QDL_OK && outcome != QDL_E_ABORTED) {
        funcs.hwSetPixels(hwID, currentCfg.pixels.get());
        return outcome;
    }
    if (int32_t r = sendPixelsCfg()) return r;
    return endRun(outcome);
}

int32_t QdlDevice::endSpacedRun(const RunPlan& plan, int32_t outcome) {
    if (plan.spacing == 1) return endRun(outcome);
    putMatrixBack();
    return sendAndEndRun(outcome);
}
