// What the three output formats of the player routines differ in, as data.
// Each traits type answers for one routine pair (Full Memory and Direct Input);
// the load-mode templates and the transfer loops take the rules from here.
// Packing itself is the packer's, by the file's ALSA format.
#pragma once
#include <cstdint>

#include "engine/packing.h"

enum class LoadMode { FullMemory = 0, DirectInput = 1 };

struct FormatS32 {
    static constexpr int32_t kOutputFormat = kFormatS32;
    // Bytes per sample the loading dots count in (one per 16 MiB).
    static constexpr uint32_t kDecodedSampleBytes = 4;
    static constexpr int32_t kDefaultBits[2] = {32, 32};  // by LoadMode
    static constexpr bool kReportExtraLine[2] = {false, true};
    // A failed read in the memory-mapped loop ends only the file.
    static constexpr bool kMmapReadEndStopsRun = false;
    static constexpr uint32_t kDecodeBufferBytes = 16u << 20;
};

struct FormatS24 {
    static constexpr int32_t kOutputFormat = kFormatS24_3;
    static constexpr uint32_t kDecodedSampleBytes = 4;
    static constexpr int32_t kDefaultBits[2] = {24, 32};
    static constexpr bool kReportExtraLine[2] = {true, true};
    static constexpr bool kMmapReadEndStopsRun = true;
    static constexpr uint32_t kDecodeBufferBytes = 16u << 20;
};

struct FormatS16 {
    static constexpr int32_t kOutputFormat = kFormatS16;
    static constexpr uint32_t kDecodedSampleBytes = 2;
    static constexpr int32_t kDefaultBits[2] = {16, 16};
    static constexpr bool kReportExtraLine[2] = {true, true};
    static constexpr bool kMmapReadEndStopsRun = true;
    static constexpr uint32_t kDecodeBufferBytes = 8u << 20;
};

struct PlayerControl;
// The two load modes, instantiated for the three formats in their own files.
template <class Fmt>
void* fullMemoryPlayer(PlayerControl& pc);
template <class Fmt>
void* directInputPlayer(PlayerControl& pc);
