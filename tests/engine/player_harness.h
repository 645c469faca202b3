// In-process harness for the player routines: a virtual card as "default",
// expected card bytes, and runs of a routine with fds 1 and 2 captured.
// One test thread at a time.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "control/control.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"

// Under ThreadSanitizer every step runs many times slower, so a card paced in
// real time may run dry: there the tests check what was played, not when.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kRealTiming = false;
#else
inline constexpr bool kRealTiming = true;
#endif

// A vdac made the process's "default" PCM, with its capture and event log.
// Making one also puts settings and control fields back to a quiet, fast
// default: small buffer, no affinity changes, colours off.
struct Card {
    explicit Card(std::vector<std::string> formats, double speed = 0);
    std::vector<uint8_t> capture() const { return readFileBytes(config.capturePath); }
    // Makes changes to config take effect for the next open.
    void reconfigure();
    size_t count(const std::string& kind) const {
        return eventsOfKind(readVdacLog(config.logPath), kind).size();
    }
    TempDir dir;
    VdacConfig config;
};

struct Mode {
    bool di, rw;  // Direct Input, read/write access
};
inline constexpr Mode kModes[] = {{false, false}, {false, true}, {true, false}, {true, true}};
inline std::string modeName(Mode m) {
    return std::string(m.di ? "DI" : "FM") + (m.rw ? "_RW" : "_MMAP");
}
struct RunText {
    std::string out, err;
};
// Plays the paths as a queue with the routine for mode and alsaFormat. Without
// drive it runs to its end on this thread, as background mode does; with it,
// on its own thread while drive() acts from this one once it is playing.
RunText play(const std::vector<std::string>& paths, Mode mode, int32_t alsaFormat,
             const std::function<void()>& drive = {});

const char* formatName(int32_t alsaFormat);
uint32_t frameBytes(int32_t alsaFormat, int channels);
// A lossless (.s32) or float (.f32) reference in the card's format.
std::vector<uint8_t> expectedCardBytes(const Fixture& f, int32_t alsaFormat);
