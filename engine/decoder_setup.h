// Per-file decoder setup shared by every player routine: picks the stream
// that the routine's output format and the DSD settings call for, opens the
// file and says what it found. Player thread only (or the only thread in
// background mode).
#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "control/control.h"
#include "decode/decode.h"

// True for paths ending in ".dff", ".DFF", ".dsf" or ".DSF" (no mixed case).
bool isDsdFile(const char* path);

// What the card receives: PCM samples, DSD_U32 words or DoP frames.
enum class CardStream { Pcm, DsdNative, Dop };

// Which decoding, card stream and ALSA format a file gets; pure.
struct StreamChoice {
    StreamKind kind;
    CardStream card;
    int32_t alsaFormat;
};
StreamChoice chooseStream(int32_t outputFormat, bool dsdFile, int32_t dsdMode, bool nativeBE);

// The PCM rate DSD converts to: the setting (44100 to 352800) as it stands for
// the 44.1 kHz family, the same multiple of 48000 for DSD whose bit rate is a
// multiple of 48000 (3.072 MHz and up); pure.
int32_t dsdPcmRate(int32_t setting, int32_t dsdBitRate);

struct DecodeClose {
    void operator()(DecodeStream* s) const { decodeClose(s); }
};
using DecodeHandle = std::unique_ptr<DecodeStream, DecodeClose>;

// One opened file as a player routine sees it.
struct DecoderStream {
    DecodeHandle handle;  // null: the file could not be opened, for the reason in error
    std::string error;
    CardStream card = CardStream::Pcm;
    int32_t alsaFormat = 0;  // OutputSampleFormat code the file plays in
    SampleType sample = SampleType::Float32;
    int32_t rate = 0;  // card frames per second
    int32_t channels = 0;
    int32_t bits = 0;                // as the track report shows it
    int32_t sourceBits = 0;          // of an integer source; 0 when unknown
    uint64_t frames = 0;             // card frames of the whole file
    uint32_t decodedFrameBytes = 0;  // decoded bytes that make one card frame
    int32_t seconds = 0;             // whole seconds, truncated
};

// Opens path for a routine of outputFormat. defaultBits is shown when the
// source has no integer resolution.
DecoderStream openDecoder(const char* path, int32_t outputFormat, int32_t defaultBits,
                          bool nativeBE);

// How the file reaches the card: "bit-perfect", "DoP", "native DSD", "DSD to
// PCM" or "truncated to N bits".
std::string cardVerdict(const DecoderStream& ds);

// What the console and the track report need of the open file.
void publishStream(PlayerControl& pc, const DecoderStream& ds);

// The text a routine prints when a file cannot be opened ("GetInfo" report).
enum class GetInfoReport { FullMemoryS32, FullMemoryOther, DirectInput };
// why: "<path>: <reason>", printed on stderr after the report's own text.
void printGetInfoError(GetInfoReport which, const std::string& why);
