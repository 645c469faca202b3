// Feeds arbitrary bytes to the settings loader as config.dat. Whatever the
// file holds, every field that indexes or selects something must come out
// in range. Run long with -close_fd_mask=2: a damaged file is one line on
// stderr each time.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "settings/settings.h"
#include "tests/fuzz/scratch.h"

namespace {

int home = -1;

bool within(int32_t v, int32_t lo, int32_t hi) {
    return v >= lo && v <= hi;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The fuzzer's own paths (corpus, artifacts) may be relative to here.
    home = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (home < 0) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    writeInput("config.dat", data, size);
    // The loader reads ./config.dat.
    if (chdir(scratchFolder().c_str()) != 0) std::abort();
    settings = Settings{};
    loadSettings();
    if (fchdir(home) != 0) std::abort();
    const Settings& s = settings;
    bool rate = s.dsdPcmRate == 44100 || s.dsdPcmRate == 88200 || s.dsdPcmRate == 176400 ||
                s.dsdPcmRate == 352800;
    if (!rate || !within(s.dsdMode, 0, 2) || !within(s.folderDepth, 0, 19) ||
        !within(s.coresSelect, 0, 2) || !within(s.rtPriority, 0, 99) ||
        !within(s.niceValue, -20, 19) || !within(s.directInput, 0, 1) || !within(s.rwAccess, 0, 1))
        std::abort();
    for (int32_t p : s.listPositions)
        if (p < 0) std::abort();
    if (s.periodFrames > 0 && s.periodTimeUs != -1) std::abort();
    if (s.bufferFrames > 0 && s.bufferTimeUs != -1) std::abort();
    return 0;
}
