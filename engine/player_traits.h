// What the three output formats of the player routines differ in, as data.
// Each traits type answers for one routine pair (Full Memory and Direct Input);
// the load-mode templates and the transfer loops take the rules from here.
#pragma once
#include <cstdint>

#include "app/control.h"
#include "engine/packing.h"

enum class LoadMode { FullMemory = 0, DirectInput = 1 };

struct FormatS32 {
    static constexpr int32_t kOutputFormat = kFormatS32;
    static constexpr uint32_t kCardSampleBytes = 4;       // also one DSD_U32 word
    static constexpr uint32_t kDecodedSampleBytes = 4;    // float, or 4 raw DSD bytes
    static constexpr int32_t kDefaultBits[2] = {32, 32};  // by LoadMode
    static constexpr bool kReportExtraLine[2] = {false, true};
    // A failed read in the memory-mapped loop ends only the file.
    static constexpr bool kMmapReadEndStopsRun = false;
    static constexpr uint32_t kDecodeBufferBytes = 16u << 20;
    static constexpr uint32_t kFloatBufferBytes = 0;
    static constexpr bool kDecodesInPlace = true;  // straight into the card's bytes

    // Packs n decoded bytes at src into card bytes at dst (here dst == src).
    static void pack(uint8_t* src, uint8_t*, uint32_t n, int32_t alsaFormat, int channels) {
        if (alsaFormat == kFormatDsdU32BE)
            packDsdU32BE(src, n, channels);
        else if (alsaFormat == kFormatDsdU32LE)
            packDsdU32LE(src, n, channels);
        else
            convertFloatToS32(src, n);
    }
    static uint64_t cardBytes(uint64_t decoded) { return decoded; }
    static uint64_t fullMemoryAlloc(uint64_t length) { return length + 32768; }
};

struct FormatS24 {
    static constexpr int32_t kOutputFormat = kFormatS24_3;
    static constexpr uint32_t kCardSampleBytes = 3;
    static constexpr uint32_t kDecodedSampleBytes = 4;
    static constexpr int32_t kDefaultBits[2] = {24, 32};
    static constexpr bool kReportExtraLine[2] = {true, true};
    static constexpr bool kMmapReadEndStopsRun = true;
    static constexpr uint32_t kDecodeBufferBytes = 16u << 20;
    static constexpr uint32_t kFloatBufferBytes = 16u << 20;
    static constexpr bool kDecodesInPlace = false;  // floats first, then 3-byte samples

    // Compacts 4-byte floats into 3-byte samples; dst may equal src.
    static void pack(uint8_t* src, uint8_t* dst, uint32_t n, int32_t, int) {
        convertFloatToS24_3LE(src, dst, n);
    }
    static uint64_t cardBytes(uint64_t decoded) { return decoded / 4 * 3; }
    static uint64_t fullMemoryAlloc(uint64_t length) { return length * 3 / 4 + 65536; }
};

struct FormatS16 {
    static constexpr int32_t kOutputFormat = kFormatS16;
    static constexpr uint32_t kCardSampleBytes = 2;
    static constexpr uint32_t kDecodedSampleBytes = 2;
    static constexpr int32_t kDefaultBits[2] = {16, 16};
    static constexpr bool kReportExtraLine[2] = {true, true};
    static constexpr bool kMmapReadEndStopsRun = true;
    static constexpr uint32_t kDecodeBufferBytes = 8u << 20;
    static constexpr uint32_t kFloatBufferBytes = 0;
    static constexpr bool kDecodesInPlace = true;

    static void pack(uint8_t*, uint8_t*, uint32_t, int32_t, int) {}  // already card samples
    static uint64_t cardBytes(uint64_t decoded) { return decoded; }
    static uint64_t fullMemoryAlloc(uint64_t length) { return length + 32768; }
};
