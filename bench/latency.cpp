// Key-to-heard latency of pause, seek and stop (next is a stop followed by
// the next file) on the virtual card at real time, in milliseconds of audio:
// the frames the card played between the key and the change it caused,
// counted from its own log. With the default buffer and with 2 s (bt2000000).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "control/control.h"
#include "engine/packing.h"
#include "engine/player.h"
#include "settings/settings.h"
#include "settings/tuning.h"
#include "tests/support/fixtures.h"
#include "tests/support/vdac.h"

namespace {

enum class Key { Pause, Seek, Stop };

void hold(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

size_t eventAfter(const std::vector<VdacEvent>& events, size_t from, const std::string& kind) {
    while (from < events.size() && events[from].kind != kind) ++from;
    return from;
}

// First frame at or after from whose 8 bytes equal want (or are all zero).
uint64_t firstFrame(const std::vector<uint8_t>& cap, uint64_t from, const uint8_t* want) {
    static const uint8_t zero[8] = {};
    if (!want) want = zero;
    while (from * 8 + 8 <= cap.size() && !std::equal(want, want + 8, &cap[from * 8])) ++from;
    return from;
}

// One run: plays the fixture, presses the key after 700 ms, returns the
// latency in milliseconds of audio.
double measure(Key key, int32_t bufferTimeUs) {
    TempDir dir;
    VdacConfig config;
    config.formats = {"S32_LE"};
    config.speed = 1;
    config.capturePath = dir.file("capture.raw");
    config.logPath = dir.file("events.log");
    writeVdacConfig(dir.file("alsa.conf"), config);
    useAlsaConfig(dir.file("alsa.conf"));
    settings = Settings{};
    settings.bufferTimeUs = bufferTimeUs;
    tuningSeams.configuredCpus = [] { return 1L; };
    const Fixture f = fixture("wav-s16-44k1-stereo.wav");
    copyPathSlot(playerControl.currentPath, f.path().c_str());
    playerControl.queue.queuePaths = {f.path()};
    playerControl.queue.queueCount.store(1);
    playerControl.queue.queueIndex.store(0);
    playerControl.seekSeconds.store(-1);
    playerControl.stopRequest.store(0);
    playerControl.showKeyHints.store(0);

    // The reports go nowhere; the numbers are in the card's log.
    const int out = dup(1), err = dup(2), null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    pthread_t thread;
    pthread_create(&thread, nullptr, playerRoutineFor(true, kFormatS32), &playerControl);
    hold(700);
    markVdacLog(config.logPath, "key");
    if (key == Key::Pause) playerControl.pauseRequest.store(1);
    if (key == Key::Seek) playerControl.seekSeconds.store(2);
    if (key == Key::Stop) playerControl.stopRequest.store(1);
    hold(400);
    playerControl.stopRequest.store(1);
    playerControl.pauseRequest.store(0);
    pthread_join(thread, nullptr);
    dup2(out, 1);
    dup2(err, 2);
    close(out);
    close(err);
    close(null);

    const std::vector<VdacEvent> events = readVdacLog(config.logPath);
    const size_t mark = eventAfter(events, 0, "mark");
    const uint64_t at = vdacFramesAt(events, mark);
    uint64_t heard = at;
    if (key == Key::Stop) {
        heard = vdacFramesAt(events, eventAfter(events, mark, "drop"));
    } else {
        const std::vector<uint8_t> cap = readFileBytes(config.capturePath);
        std::vector<uint8_t> ref = readFileBytes(f.refPath());  // left-justified = S32_LE
        heard = firstFrame(cap, at, key == Key::Seek ? &ref[2 * 44100 * 8] : nullptr);
    }
    return double(heard - at) * 1000.0 / 44100.0;
}

void BM_Latency(benchmark::State& state, Key key) {
    const int32_t bufferTimeUs = int32_t(state.range(0));
    double worst = 0, sum = 0;
    int runs = 0;
    for (auto _ : state) {
        const double ms = measure(key, bufferTimeUs);
        worst = std::max(worst, ms);
        sum += ms;
        ++runs;
        state.SetIterationTime(ms / 1000.0);
    }
    state.counters["mean_ms"] = sum / runs;
    state.counters["worst_ms"] = worst;
}

BENCHMARK_CAPTURE(BM_Latency, pause, Key::Pause)
    ->Arg(-1)
    ->Arg(2000000)
    ->Iterations(3)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Latency, seek, Key::Seek)
    ->Arg(-1)
    ->Arg(2000000)
    ->Iterations(3)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Latency, stop_or_next, Key::Stop)
    ->Arg(-1)
    ->Arg(2000000)
    ->Iterations(3)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
