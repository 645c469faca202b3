// DST decoding speed as a multiple of real time (the "x_realtime" counter),
// DSD64 and DSD128 stereo, beside the time FFmpeg takes to decode the same
// file to float PCM (`ffmpeg -i file.dff -f f32le -y /dev/null`, which also
// converts to PCM). Both are timed in CPU time of one core, so that other
// work on the machine does not count. The files are a tone made by dsdgen
// and compressed by dstenc, under /tmp while the bench runs.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "decode/decode.h"
#include "tools/dsdgen/dsdgen.h"
#include "tools/dstenc/dstenc.h"

namespace {

constexpr double kSeconds = 4.0;

struct Files {
    std::map<int, std::string> paths;
    ~Files() {
        for (auto& [multiple, path] : paths) unlink(path.c_str());
    }
    const std::string& dst(int multiple) {
        std::string& path = paths[multiple];
        if (!path.empty()) return path;
        const std::string base =
            "/tmp/tovrin-bench-dst" + std::to_string(multiple) + "-" + std::to_string(getpid());
        dsdgen::Signal s = dsdgen::toneSignal(multiple, 2, kSeconds, 1000, -6);
        const std::string plain = base + "-plain.dff";
        if (dsdgen::writeDff(plain, dsdgen::modulate(s), 2, multiple, s.bits) &&
            dstenc::encodeFile(plain, base + ".dff"))
            path = base + ".dff";
        unlink(plain.c_str());
        return path;
    }
} files;

double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

double childSeconds() {
    rusage u{};
    getrusage(RUSAGE_CHILDREN, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

void report(benchmark::State& state, double audio, double cpu) {
    state.counters["x_realtime"] = audio / cpu;
}

std::string ffmpegCommand(const std::string& path) {
    return "ffmpeg -nostdin -v error -threads 1 -i '" + path + "' -f f32le -y /dev/null";
}

// FFmpeg's CPU time for the whole file, the better of two runs; 0 if it fails.
double ffmpegSeconds(const std::string& path) {
    static std::map<std::string, double> known;
    if (!known.count(path)) {
        double best = 0;
        for (int run = 0; run < 2; ++run) {
            const double start = childSeconds();
            if (std::system(ffmpegCommand(path).c_str()) != 0) return 0;
            const double spent = childSeconds() - start;
            best = run == 0 ? spent : std::min(best, spent);
        }
        known[path] = best;
    }
    return known[path];
}

void BM_DstDecode(benchmark::State& state) {
    const std::string path = files.dst(int(state.range(0)));
    std::vector<uint8_t> buf(1 << 16);
    double audio = 0, cpu = 0;
    for (auto _ : state) {
        const double start = threadSeconds();
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::DsdRaw, 88200);
        if (!s) return state.SkipWithError("cannot open the DST file");
        while (decodeRead(s, buf.data(), uint32_t(buf.size())) != kDecodeEnd) {
        }
        audio += double(decodeLength(s)) / decodeFrameBytes(s) / decodeInfo(s).rate;
        decodeClose(s);
        const double spent = threadSeconds() - start;
        cpu += spent;
        state.SetIterationTime(spent);
    }
    report(state, audio, cpu);
    // Our time over FFmpeg's on the same file: below 1 is faster.
    if (const double ff = ffmpegSeconds(path); ff > 0 && state.iterations() > 0)
        state.counters["time_vs_ffmpeg"] = cpu / double(state.iterations()) / ff;
}

void BM_FfmpegDecode(benchmark::State& state) {
    const std::string path = files.dst(int(state.range(0)));
    const std::string command = ffmpegCommand(path);
    double audio = 0, cpu = 0;
    for (auto _ : state) {
        const double start = childSeconds();
        if (std::system(command.c_str()) != 0) return state.SkipWithError("ffmpeg failed");
        const double spent = childSeconds() - start;
        audio += kSeconds;
        cpu += spent;
        state.SetIterationTime(spent);
    }
    report(state, audio, cpu);
}

BENCHMARK(BM_DstDecode)->Arg(64)->Arg(128)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_FfmpegDecode)->Arg(64)->Arg(128)->Unit(benchmark::kMillisecond)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
