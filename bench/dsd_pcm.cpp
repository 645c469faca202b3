// DSD to PCM throughput as a multiple of real time on one core, beside the
// FFmpeg command line converting the same file: `ffmpeg -i FILE -ar RATE -f
// s32le -y /dev/null`, pinned to one processor. Both are timed in CPU seconds
// (the process's own thread, the child's user + system time), so other load
// on the machine changes the figures little. Counter x_realtime: seconds of
// audio per CPU second; Direct Input needs well above 1.
#include <benchmark/benchmark.h>

#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "decode/decode.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

constexpr double kSeconds = 3.0;

// One stereo DSF per DSD rate, made once per run.
const std::string& dsdFile(int multiple, int32_t base) {
    static std::map<std::pair<int, int32_t>, std::string> paths;
    std::string& path = paths[{multiple, base}];
    if (!path.empty()) return path;
    path = benchDir() + "/dsd" + std::to_string(multiple) + "-" + std::to_string(base) + ".dsf";
    dsdgen::Signal s = dsdgen::toneSignal(multiple, 2, kSeconds, 1000, -6, base);
    if (!dsdgen::writeDsf(path, dsdgen::modulate(s), 2, multiple, s.bits, base)) path.clear();
    return path;
}

double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Args: DSD multiple, family base, output rate.
void BM_Tovrin(benchmark::State& state) {
    const int multiple = int(state.range(0));
    const auto base = int32_t(state.range(1)), rate = int32_t(state.range(2));
    const std::string& path = dsdFile(multiple, base);
    std::vector<uint8_t> buf(1 << 16);
    double cpu = 0;
    for (auto _ : state) {
        const double start = threadSeconds();
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::DsdPcm, rate);
        if (!s) {
            state.SkipWithError("cannot open");
            break;
        }
        while (decodeRead(s, buf.data(), uint32_t(buf.size())) != kDecodeEnd) {
        }
        decodeClose(s);
        cpu += threadSeconds() - start;
    }
    state.counters["x_realtime"] = kSeconds * double(state.iterations()) / cpu;
}

// The FFmpeg command line on one processor; CPU time from the child's usage.
void BM_FfmpegCli(benchmark::State& state) {
    const int multiple = int(state.range(0));
    const auto base = int32_t(state.range(1)), rate = int32_t(state.range(2));
    const std::string& path = dsdFile(multiple, base);
    const std::string ar = std::to_string(rate);
    double cpu = 0;
    for (auto _ : state) {
        rusage use{};
        if (!runCommand({"ffmpeg", "-nostdin", "-v", "error", "-i", path, "-ar", ar, "-f", "s32le",
                         "-y", "/dev/null"},
                        &use, true)) {
            state.SkipWithError("ffmpeg failed");
            break;
        }
        cpu += cpuSeconds(use);
    }
    state.counters["x_realtime"] = kSeconds * double(state.iterations()) / cpu;
}

void rates(benchmark::internal::Benchmark* b) {
    for (int64_t base : {44100, 48000})
        for (int64_t multiple : {64, 128, 256, 512})
            for (int64_t times : {2, 8}) b->Args({multiple, base, base * times});
}

BENCHMARK(BM_Tovrin)->Apply(rates)->Iterations(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FfmpegCli)->Apply(rates)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
