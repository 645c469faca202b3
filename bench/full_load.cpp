// Full Memory's load of a whole file, wall time with the file in the page
// cache, against `ffmpeg -i FILE -f s32le -y /dev/null` on the same file
// (FFmpeg's own threads). The second figure of BM_Load is the number of
// pieces: 1 decodes on one core, 2 on both of a 2-core machine. Files: 10 minutes of 24/96 FLAC and
// one minute of DSD64 converted to 88.2 kHz, made once per run.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "engine/decoder_setup.h"
#include "engine/packing.h"
#include "engine/whole_load.h"
#include "settings/settings.h"
#include "tools/dsdgen/dsdgen.h"

namespace {

const std::string& flacFile() {
    static std::string path = [] {
        std::string p = benchDir() + "/long-24-96.flac";
        return runCommand({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                           "anoisesrc=r=96000:a=0.1:d=600,aformat=sample_fmts=s32:channel_"
                           "layouts=stereo",
                           "-c:a", "flac", "-bits_per_raw_sample", "24", "-y", p})
                   ? p
                   : std::string();
    }();
    return path;
}

const std::string& dsdFile() {
    static std::string path = [] {
        std::string p = benchDir() + "/long-dsd64.dsf";
        dsdgen::Signal s = dsdgen::toneSignal(64, 2, 60, 1000, -6);
        return dsdgen::writeDsf(p, dsdgen::modulate(s), 2, 64, s.bits) ? p : std::string();
    }();
    return path;
}

const std::string& file(int which) {
    return which == 0 ? flacFile() : dsdFile();
}

// Args: file (0 FLAC, 1 DSD), pieces.
void BM_Load(benchmark::State& state) {
    const std::string& path = file(int(state.range(0)));
    wholeLoadPieces = int(state.range(1));
    settings.dsdMode = kDsdPcm;
    settings.dsdPcmRate = 88200;
    auto open = [&] { return openDecoder(path.c_str(), kFormatS32, 32, false); };
    DecoderStream probe = open();
    if (path.empty() || !probe.handle) {
        state.SkipWithError("cannot make or open the file");
        return;
    }
    const uint64_t bytes = probe.frames * cardFrameBytes(probe.alsaFormat, probe.channels);
    std::unique_ptr<uint8_t[]> data(new uint8_t[bytes]);
    for (auto _ : state) {
        DecoderStream ds = open();
        if (loadWholeFile(playerControl, ds, data.get(), 1, open) != bytes) {
            state.SkipWithError("the load fell short");
            break;
        }
    }
    state.counters["MiB"] = double(bytes) / (1 << 20);
}

void BM_FfmpegCli(benchmark::State& state) {
    const std::string& path = file(int(state.range(0)));
    for (auto _ : state) {
        std::vector<std::string> args{"ffmpeg", "-nostdin", "-v", "error", "-i", path};
        if (state.range(0) == 1) args.insert(args.end(), {"-ar", "88200"});
        args.insert(args.end(), {"-f", "s32le", "-y", "/dev/null"});
        if (!runCommand(args)) {
            state.SkipWithError("ffmpeg failed");
            break;
        }
    }
}

BENCHMARK(BM_Load)
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FfmpegCli)
    ->Arg(0)
    ->Arg(1)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
