/* SPDX-License-Identifier: MIT */
#include <qdlctrl.h>
#include <stdio.h>

int main(void) {
    static int16_t frame[QDL_CHIP_PIXELS];
    char msg[QDL_TEXT_SIZE];
    initQdlCtrl();
    initQdlDevice(0, NULL);
    performFrameAcq(0, 1, 0.1, 0, NULL);
    if (getFrame16(0, frame, QDL_CHIP_PIXELS, 0, msg) != 0) return puts(msg), 1;
    printf("%d counts in the middle\n", frame[128 * QDL_CHIP_SIDE + 128]);
    return exitQdlCtrl();
}
