// In-process harness for the player routines: a virtual card as "default",
// the fixture manifest, expected card bytes, and a run of a routine with its
// stdout/stderr captured. One test thread at a time.
#pragma once
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "app/control.h"
#include "tests/support/vdac.h"

struct Fixture {
    std::string file, kind, container;
    int rate = 0, channels = 0, bits = 0;
    uint64_t frames = 0;
    std::string ref;
    std::string path() const;
    std::string refPath() const;
};

// Every row of the generated manifest; kind filters when not empty.
std::vector<Fixture> fixtures(const std::string& kind = "");
// The row of one file (fails the test when missing).
Fixture fixture(const std::string& file);

// A vdac made the process's "default" PCM, with its capture and event log.
class Card {
  public:
    explicit Card(std::vector<std::string> formats, double speed = 0);
    std::vector<uint8_t> capture() const { return readFileBytes(config_.capturePath); }
    std::vector<VdacEvent> events() const { return readVdacLog(config_.logPath); }

  private:
    TempDir dir_;
    VdacConfig config_;
};

// Resets settings and control fields to a quiet, fast default for tests:
// small buffer, no affinity changes, colours off.
void resetPlayerState();

PlayerRoutine routineFor(bool directInput, int32_t outputFormat);
const char* formatName(int32_t alsaFormat);

// Sets the queue to paths with queueIndex at index and currentPath to match.
void setQueue(const std::vector<std::string>& paths, int index = 0);

// Redirects fds 1 and 2 into files while alive; text() returns what came.
class OutputCapture {
  public:
    OutputCapture();
    ~OutputCapture();
    void finish();  // restores the terminal; idempotent
    const std::string& out() const { return out_; }
    const std::string& err() const { return err_; }

  private:
    TempDir dir_;
    int savedOut_ = -1, savedErr_ = -1;
    std::string out_, err_;
};

struct RunText {
    std::string out, err;
};
// Runs the routine to its end on this thread, as background mode does.
RunText playInline(PlayerRoutine routine);

// A routine on its own detached-style thread (joined here for tidiness).
class PlayerThread {
  public:
    explicit PlayerThread(PlayerRoutine routine);
    ~PlayerThread();
    // Waits until playerRunning reads want; false on timeout.
    static bool waitRunning(uint8_t want, double seconds);
    void join();

  private:
    pthread_t thread_{};
    bool joined_ = false;
};

// Card bytes from a lossless .s32 reference or a float .f32 reference.
std::vector<uint8_t> expectedCardBytes(const Fixture& f, int32_t alsaFormat);
uint32_t frameBytes(int32_t alsaFormat, int channels);
