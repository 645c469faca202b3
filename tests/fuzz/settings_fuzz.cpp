// Feeds arbitrary bytes to the settings loader as config.dat. Whatever the
// file holds, every field must come out as stored or as its default, and
// every one that indexes or selects something in range. Run long with
// -close_fd_mask=2: a damaged file is one line on stderr each time.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    // Each field is the stored one or its default; a size voids its time.
    const Settings fresh{};
    int32_t got[sizeof s / 4], defaults[sizeof s / 4];
    std::memcpy(got, &s, sizeof s);
    std::memcpy(defaults, &fresh, sizeof s);
    for (size_t i = 0; i < sizeof s / 4; ++i) {
        int32_t raw = 0;
        if ((i + 1) * 4 <= size) std::memcpy(&raw, data + i * 4, 4);
        const bool voided = (i == 1 || i == 3) && got[i - 1] > 0 && got[i] == -1;
        if (got[i] != defaults[i] && got[i] != raw && !voided) std::abort();
    }
    return 0;
}
