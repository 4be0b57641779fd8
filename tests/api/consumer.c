/* SPDX-License-Identifier: MIT */
/* A host that is linked against the library, valid in C and in C++: headers, linkage and the first calls. */
#include "qdlctrl.h"
#include "qdlhw.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;
static int messages = 0;

static void expectAt(int line, int condition) {
    if (condition) return;
    printf("line %d failed\n", line);
    ++failures;
}
#define EXPECT(condition) expectAt(__LINE__, (condition) != 0)

static void countMessage(int32_t id) {
    (void)id;
    ++messages;
}

static void useBeforeInit(void) {
    uint32_t id = 7, count = 7, value = 7;
    int32_t code = 7;
    const char* text = NULL;
    EXPECT(getInfoMsg(QDL_CTRL_ID, &code, &text) == QDL_OK && code == 0 && strcmp(text, "") == 0);
    EXPECT(getFirstQdl(&id, &count) == QDL_E_FAILED && id == 0 && count == 0);
    EXPECT(getInfoMsg(QDL_CTRL_ID, &code, &text) == QDL_OK && code == QDL_E_NOT_INITIALIZED && text[0] != '\0');
    EXPECT(getPolarity(0, &value) == QDL_E_DEVICE_ID && value == 7);
}

static void walkDevices(void) {
    uint32_t id = 7, count = 7, walked = 0, chips = 0, infoValue = 0;
    int32_t result;
    char devName[QDL_NAME_TEXT_SIZE], hwName[QDL_NAME_TEXT_SIZE];
    for (result = getFirstQdl(&id, &count); result == QDL_OK; result = getNextQdl(&id), ++walked) {
        EXPECT(id == walked);
        EXPECT(getQuandelInfo(id, &chips, &infoValue, devName, hwName) == QDL_OK && chips > 0);
    }
    EXPECT(result == QDL_NO_MORE_DEVICES && walked == count);
}

int main(void) {
    useBeforeInit();
    EXPECT(setCbInfoMsg(countMessage) == QDL_OK);
    EXPECT(initQdlCtrl() == QDL_OK && messages > 0);
    walkDevices();
    EXPECT(exitQdlCtrl() == QDL_OK);
    EXPECT(abortOperation(0) == QDL_E_DEVICE_ID);
    return failures == 0 ? 0 : 1;
}
