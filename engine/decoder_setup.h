// Per-file decoder setup shared by every player routine: picks the stream kind
// that the routine's output format and the DSD settings call for, opens the
// file and publishes its properties in the control block.
// Player thread only (or the only thread in background mode).
#pragma once
#include <cstdint>

#include "decode/decode.h"

// True for paths ending in ".dff", ".DFF", ".dsf" or ".DSF" (no mixed case).
bool isDsdFile(const char* path);

struct DecoderStream {
    DecodeStream* handle = nullptr;  // null: the file could not be opened
    int32_t alsaFormat = 0;          // OutputSampleFormat code the file plays in
    uint64_t lengthBytes = 0;        // exact length of the delivered data
    StreamKind kind = StreamKind::Float;
};

// Which stream kind and ALSA format a file gets; pure, for tests and setup.
struct StreamChoice {
    StreamKind kind;
    int32_t alsaFormat;
};
StreamChoice chooseStream(int32_t outputFormat, bool dsdFile, int32_t dsdMode, bool nativeBE);

// Opens currentPath for a routine of outputFormat. defaultBits is shown when
// the source has no integer resolution. On success writes streamRate,
// streamChannels, streamBits, streamSeconds and lengthText. On failure the
// handle is null and nothing is published.
DecoderStream openDecoder(int32_t outputFormat, int32_t defaultBits);
void closeDecoder(DecoderStream& stream);

// The text a routine prints when a file cannot be opened ("GetInfo" report).
enum class GetInfoReport { FullMemoryS32, FullMemoryOther, DirectInput };
void printGetInfoError(GetInfoReport which);
