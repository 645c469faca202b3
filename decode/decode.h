// Tovrin's decoding layer: opens an audio file by its content and delivers its
// samples in one of a few stream kinds, exactly, with an exact length and
// sample-exact seeking. Includes no ALSA header. Not thread-safe per stream;
// different streams may live on different threads.
#pragma once
#include <cstdint>
#include <string>

enum class StreamKind {
    Float,   // 32-bit float PCM; integer sources of up to 24 bits as sample / 2^(bits-1)
    Int16,   // 16-bit signed PCM (DSD sources converted to PCM at pcmRate first)
    DsdRaw,  // raw DSD bytes interleaved by channel, earliest bit in the MSB
    Dop,     // DoP 1.1 words as float (signed 24-bit word / 8388608)
    DsdPcm,  // DSD converted to float PCM at pcmRate
};

struct StreamInfo {
    int32_t rate = 0;  // frames per second of the delivered data (DsdRaw: DSD bit rate / 8)
    int32_t channels = 0;
    int32_t sourceBits = 0;  // bit depth of lossless integer sources; 0 for lossy, float and DSD
};

struct DecodeStream;  // opaque

// The all-ones value a read returns at the end of the stream or on an error.
constexpr uint32_t kDecodeEnd = 0xFFFFFFFFu;

// Opens path as kind. pcmRate is the output rate for DSD converted to PCM
// (44100, 88200, 176400 or 352800). Returns null and sets *error on failure.
DecodeStream* decodeOpen(const char* path, StreamKind kind, int32_t pcmRate,
                         std::string* error = nullptr);
void decodeClose(DecodeStream* s);

StreamInfo decodeInfo(const DecodeStream* s);
// Exact length of the delivered data in bytes.
uint64_t decodeLength(const DecodeStream* s);
double decodeBytesToSeconds(const DecodeStream* s, uint64_t bytes);

// Delivers at most `bytes` bytes, always a whole number of frames (DsdRaw: of
// 4-byte groups per channel). Returns kDecodeEnd after the last byte or on a
// fatal error; never more than the stated length in all.
uint32_t decodeRead(DecodeStream* s, void* buffer, uint32_t bytes);
// Sample-exact: the next read starts at the frame holding byte position pos.
bool decodeSeek(DecodeStream* s, uint64_t pos);

// True when the file's content is DSD (DSF, DSDIFF); used by tests and tools.
bool decodeIsDsdContent(const char* path);
