// Feeds arbitrary bytes through the sheet reader, line parser and loader.
// The input goes through a real file because the loader takes a path.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "library/cue.h"
#include "tests/fuzz/scratch.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // The listing would flood the terminal; libFuzzer itself reports on stderr.
    if (!std::freopen("/dev/null", "w", stdout)) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    loadCueSheet(writeInput("sheet.cue", data, size));
    if (cueLines.empty()) std::abort();  // an existing file always gives a line
    size_t tracks = trackStartsMs.size();
    if (trackNames.size() != tracks || trackStartTexts.size() != tracks ||
        trackStartFrames.size() != tracks || trackFiles.size() != tracks)
        std::abort();
    for (size_t t = 0; t < tracks; ++t) {
        if (trackStartFrames[t] < -1) std::abort();
        resolveTrackFile(t);
    }
    cueHasManyFiles();
    for (const std::string& line : cueLines) {
        std::vector<std::string> values;
        parseCueLine(line, values);
        if (values.size() > 3) std::abort();
        cueTimeToMs(line);
        cueTimeToCdFrames(line);
    }
    return 0;
}
