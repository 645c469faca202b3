// The whole program at its console on the virtual card at real time: how long
// `s` and `n` take from the byte written to the card's drop (in the card's
// own clock), and how many playing commands a second the console takes.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/fixtures.h"
#include "tests/support/harness.h"

namespace {

namespace fs = std::filesystem;

// A folder of two files that path.txt names, the program on it, the first
// file playing.
struct Session {
    Session() : fx(paced()) {
        const std::string album = fx.workdir + "/album";
        fs::create_directories(album);
        for (const char* name : {"1.flac", "2.flac"})
            fs::copy_file(fixture("flac-s16-44k1-stereo.flac").path(), album + "/" + name);
        writeFileBytes(fx.workdir + "/path.txt", {album.begin(), album.end()});
        ok = fx.start(run) && run.waitFor(Stream::Out, "2.flac", 30) &&
             run.waitFor(Stream::Err, "\n> ", 30);
        ok = ok && run.send("1\n") && run.waitFor(Stream::Out, "Card: ", 30);
    }
    ~Session() {
        run.send("x\n");
        run.waitExit(10);
    }
    static VdacConfig paced() {
        VdacConfig config;
        config.speed = 1;
        return config;
    }
    PlayerFixture fx;
    ProgramRun run;
    bool ok = false;
};

void BM_KeyToDrop(benchmark::State& state, const char* key) {
    double sum = 0;
    int runs = 0;
    for (auto _ : state) {
        Session s;
        if (!s.ok) {
            state.SkipWithError("the player did not start");
            break;
        }
        markVdacLog(s.fx.vdac.logPath, "key");
        s.run.send(key);
        s.run.waitFor(Stream::Out, "(2/2)", 2);  // n: the next file's report
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const std::vector<VdacEvent> events = s.fx.events();
        uint64_t mark = 0, drop = 0;
        for (const VdacEvent& e : events) {
            if (e.kind == "mark") mark = e.us;
            if (e.kind == "drop" && mark && !drop) drop = e.us;
        }
        const double ms = drop > mark ? double(drop - mark) / 1000.0 : 0;
        state.SetIterationTime(ms / 1000.0);
        sum += ms;
        ++runs;
    }
    state.counters["mean_ms"] = runs ? sum / runs : 0;
}

// 1000 elapsed-time commands in one write, while a file plays: the time
// until the last one's answer.
void BM_CommandsPerSecond(benchmark::State& state) {
    for (auto _ : state) {
        Session s;
        if (!s.ok) {
            state.SkipWithError("the player did not start");
            break;
        }
        std::string burst;
        for (int i = 0; i < 1000; ++i) burst += "t\n";
        const size_t err = s.run.err().size();
        const auto start = std::chrono::steady_clock::now();
        s.run.send(burst);
        // Each answer is one "time MM:SS" on stderr; count them as they come.
        size_t seen = 0;
        for (int waits = 0; seen < 1000 && waits < 1000; ++waits) {
            s.run.waitFor(Stream::Err, "\x7f", 0.01);  // only takes in output
            seen = 0;
            for (size_t at = s.run.err().find("time ", err); at != std::string::npos;
                 at = s.run.err().find("time ", at + 1))
                ++seen;
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        state.counters["commands_per_s"] = double(seen) / seconds;
    }
}

BENCHMARK_CAPTURE(BM_KeyToDrop, stop, "s\n")->Iterations(3)->UseManualTime();
BENCHMARK_CAPTURE(BM_KeyToDrop, next, "n\n")->Iterations(3)->UseManualTime();
BENCHMARK(BM_CommandsPerSecond)->Iterations(2)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
