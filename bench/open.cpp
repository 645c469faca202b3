// Time to open a 10-minute file and learn its exact length, as Direct Input
// does before the first sound: decodeOpen then decodeClose, wall time with the
// file in the page cache. The files (noise at -20 dBFS, 16-bit 44.1 kHz
// stereo) are made once per run with the ffmpeg command line.
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "decode/decode.h"

namespace {

constexpr int kSeconds = 600;

// Made once per run with the ffmpeg command line; empty when it cannot.
const std::string& longFile(const std::string& ext) {
    static std::map<std::string, std::string> paths;
    auto [it, fresh] = paths.try_emplace(ext);
    if (!fresh) return it->second;
    const std::string path = benchDir() + "/long." + ext;
    const std::string source = "anoisesrc=r=44100:a=0.1:d=" + std::to_string(kSeconds) +
                               ",aformat=sample_fmts=s16:channel_layouts=stereo";
    std::vector<std::string> args{"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", source};
    if (ext == "mp3") args.insert(args.end(), {"-c:a", "libmp3lame", "-b:a", "320k"});
    args.insert(args.end(), {"-y", path});
    if (runCommand(args)) it->second = path;
    return it->second;
}

void open(benchmark::State& state, const char* ext) {
    const std::string& path = longFile(ext);
    if (path.empty()) {
        state.SkipWithError("ffmpeg cannot make the file");
        return;
    }
    uint64_t length = 0;
    for (auto _ : state) {
        std::string error;
        DecodeStream* s = decodeOpen(path.c_str(), StreamKind::Pcm, 44100, &error);
        if (!s) {
            state.SkipWithError(error.c_str());
            return;
        }
        length = decodeLength(s) / decodeFrameBytes(s);
        decodeClose(s);
    }
    state.counters["seconds"] = double(length) / 44100;
}

BENCHMARK_CAPTURE(open, wav, "wav")->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK_CAPTURE(open, flac, "flac")->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK_CAPTURE(open, mp3, "mp3")->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK_CAPTURE(open, wv, "wv")->Unit(benchmark::kMillisecond)->MinTime(0.5);

}  // namespace

BENCHMARK_MAIN();
