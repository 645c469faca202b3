// DSD to PCM throughput as a multiple of real time on one core, beside the
// FFmpeg command line converting the same file: `ffmpeg -i FILE -ar RATE -f
// s32le -y /dev/null`, pinned to one processor. Both are timed in CPU seconds
// (the process's own thread, the child's user + system time), so other load
// on the machine changes the figures little. Counter x_realtime: seconds of
// audio per CPU second; Direct Input needs well above 1.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "decode/decode.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

constexpr double kSeconds = 3.0;

// One stereo DSF per DSD rate, made once per run in a folder of our own.
class Files {
  public:
    ~Files() {
        if (!dir_.empty()) std::filesystem::remove_all(dir_);
    }
    const std::string& get(int multiple, int32_t base) {
        std::string& path = paths_[{multiple, base}];
        if (!path.empty()) return path;
        if (dir_.empty()) {
            char tmpl[] = "/tmp/tovrin-bench-XXXXXX";
            dir_ = mkdtemp(tmpl) ? tmpl : "/tmp";
        }
        path = dir_ + "/dsd" + std::to_string(multiple) + "-" + std::to_string(base) + ".dsf";
        dsdgen::Signal s = dsdgen::toneSignal(multiple, 2, kSeconds, 1000, -6, base);
        if (!dsdgen::writeDsf(path, dsdgen::modulate(s), 2, multiple, s.bits, base)) path.clear();
        return path;
    }

  private:
    std::string dir_;
    std::map<std::pair<int, int32_t>, std::string> paths_;
};

Files& files() {
    static Files f;
    return f;
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
    const std::string& path = files().get(multiple, base);
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
    const std::string& path = files().get(multiple, base);
    const std::string ar = std::to_string(rate);
    double cpu = 0;
    for (auto _ : state) {
        pid_t pid = fork();
        if (pid == 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(sched_getcpu() >= 0 ? sched_getcpu() : 0, &one);
            sched_setaffinity(0, sizeof one, &one);
            execlp("ffmpeg", "ffmpeg", "-nostdin", "-v", "error", "-i", path.c_str(), "-ar",
                   ar.c_str(), "-f", "s32le", "-y", "/dev/null", static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        rusage use{};
        if (pid < 0 || wait4(pid, &status, 0, &use) != pid || !WIFEXITED(status) ||
            WEXITSTATUS(status) != 0) {
            state.SkipWithError("ffmpeg failed");
            break;
        }
        cpu += double(use.ru_utime.tv_sec + use.ru_stime.tv_sec) +
               double(use.ru_utime.tv_usec + use.ru_stime.tv_usec) * 1e-6;
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
