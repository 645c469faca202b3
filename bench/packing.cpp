// Throughput of the packing steps beside memcpy of the same buffer, the floor
// any in-place conversion is measured against.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "engine/packing.h"

namespace {

constexpr size_t kBytes = 256 * 1024;  // about one large ALSA buffer of floats

std::vector<uint8_t> floats() {
    std::vector<uint8_t> buf(kBytes);
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    for (size_t i = 0; i < kBytes; i += 4) {
        float x = d(rng);
        std::memcpy(&buf[i], &x, 4);
    }
    return buf;
}

void run(benchmark::State& state, void (*op)(std::vector<uint8_t>&, std::vector<uint8_t>&)) {
    auto src = floats();
    std::vector<uint8_t> work(kBytes), dst(kBytes);
    for (auto _ : state) {
        std::memcpy(work.data(), src.data(), kBytes);  // fresh input every pass
        op(work, dst);
        benchmark::DoNotOptimize(dst.data());
        benchmark::DoNotOptimize(work.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBytes));
}

void BM_Memcpy(benchmark::State& s) {
    run(s, [](auto& w, auto& d) { std::memcpy(d.data(), w.data(), kBytes); });
}
constexpr size_t kSamples = kBytes / 4;

void BM_FloatToS32(benchmark::State& s) {
    run(s, [](auto& w, auto&) {
        packPcm(w.data(), SampleType::Float32, w.data(), kSamples, kFormatS32);
    });
}
void BM_FloatToS24_3LE_InPlace(benchmark::State& s) {
    run(s, [](auto& w, auto&) {
        packPcm(w.data(), SampleType::Float32, w.data(), kSamples, kFormatS24_3);
    });
}
void BM_FloatToS24_3LE_ToArea(benchmark::State& s) {
    run(s, [](auto& w, auto& d) {
        packPcm(w.data(), SampleType::Float32, d.data(), kSamples, kFormatS24_3);
    });
}
void BM_IntToS32(benchmark::State& s) {
    run(s, [](auto& w, auto&) {
        packPcm(w.data(), SampleType::Int32, w.data(), kSamples, kFormatS32);
    });
}
void BM_DsdU32BE_Stereo(benchmark::State& s) {
    run(s,
        [](auto& w, auto&) { packDsdNative(w.data(), w.data(), kBytes / 8, 2, kFormatDsdU32BE); });
}
void BM_DsdU32LE_Stereo(benchmark::State& s) {
    run(s,
        [](auto& w, auto&) { packDsdNative(w.data(), w.data(), kBytes / 8, 2, kFormatDsdU32LE); });
}
void BM_DsdU32BE_6ch(benchmark::State& s) {
    run(s,
        [](auto& w, auto&) { packDsdNative(w.data(), w.data(), kBytes / 24, 6, kFormatDsdU32BE); });
}
void BM_Dop_Stereo(benchmark::State& s) {
    // Raw bytes in the back half, DoP words written over the whole area.
    run(s, [](auto& w, auto&) {
        packDop(w.data() + kBytes / 2, w.data(), kBytes / 8, 2, kFormatS32, 0);
    });
}

BENCHMARK(BM_Memcpy);
BENCHMARK(BM_FloatToS32);
BENCHMARK(BM_FloatToS24_3LE_InPlace);
BENCHMARK(BM_FloatToS24_3LE_ToArea);
BENCHMARK(BM_IntToS32);
BENCHMARK(BM_DsdU32BE_Stereo);
BENCHMARK(BM_DsdU32LE_Stereo);
BENCHMARK(BM_DsdU32BE_6ch);
BENCHMARK(BM_Dop_Stereo);

}  // namespace

BENCHMARK_MAIN();
