// Time to open a 10-minute file and learn its exact length, as Direct Input
// does before the first sound: decodeOpen then decodeClose, wall time with the
// file in the page cache. The files (noise at -20 dBFS, 16-bit 44.1 kHz
// stereo) are made once per run with the ffmpeg command line.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "decode/decode.h"

namespace {

constexpr int kSeconds = 600;

class Files {
  public:
    ~Files() {
        if (!dir_.empty()) std::filesystem::remove_all(dir_);
    }
    // Empty when ffmpeg cannot make it.
    const std::string& get(const std::string& ext) {
        auto [it, fresh] = paths_.try_emplace(ext);
        if (!fresh) return it->second;
        if (dir_.empty()) {
            char tmpl[] = "/tmp/tovrin-bench-XXXXXX";
            dir_ = mkdtemp(tmpl) ? tmpl : "/tmp";
        }
        const std::string path = dir_ + "/long." + ext;
        const std::string source = "anoisesrc=r=44100:a=0.1:d=" + std::to_string(kSeconds) +
                                   ",aformat=sample_fmts=s16:channel_layouts=stereo";
        std::vector<std::string> args{"ffmpeg", "-nostdin", "-v", "error",
                                      "-f",     "lavfi",    "-i", source};
        if (ext == "mp3") args.insert(args.end(), {"-c:a", "libmp3lame", "-b:a", "320k"});
        args.insert(args.end(), {"-y", path});
        pid_t pid = fork();
        if (pid == 0) {
            std::vector<char*> argv;
            for (auto& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            execvp("ffmpeg", argv.data());
            _exit(127);
        }
        int status = 0;
        if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
            WEXITSTATUS(status) == 0)
            it->second = path;
        return it->second;
    }

  private:
    std::string dir_;
    std::map<std::string, std::string> paths_;
};

Files& files() {
    static Files f;
    return f;
}

void open(benchmark::State& state, const char* ext) {
    const std::string& path = files().get(ext);
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
