// SPDX-License-Identifier: MIT
// Any text in blocks of any length gives the items that fscanf takes.
#include <algorithm>

#include "frames/frametext.h"
#include "fuzzing.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const MemoryFile file;
    if (size < 2) return 0;
    const size_t wanted = data[0];
    const unsigned blockLimit = data[1] % 64 + 1u;
    const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);

    std::vector<int16_t> items(wanted);
    frametext::Parser parser(items.data(), wanted);
    unsigned block = blockLimit;
    for (size_t at = 0; at < text.size(); at += block) {
        block = (block * 5 + 3) % blockLimit + 1;
        const std::string part = text.substr(at, block);
        const std::vector<char> onItsOwn(part.begin(), part.end());  // so that a step beyond the block shows
        if (!parser.take(onItsOwn.data(), onItsOwn.size())) break;
    }
    const bool complete = parser.finish();
    file.write(text);
    const std::vector<int16_t> scanned = file.scan(wanted);
    require(complete == (scanned.size() == wanted));
    require(std::equal(scanned.begin(), scanned.end(), items.begin()));
    return 0;
}
