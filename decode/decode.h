// Tovrin's decoding layer: opens an audio file by its content and delivers its
// samples as it decodes them, exactly, with an exact length and sample-exact
// seeking. Packing into a card's format is not done here. Includes no ALSA
// header. Not thread-safe per stream; different streams may live on
// different threads.
#pragma once
#include <cstdint>
#include <string>

enum class StreamKind {
    Pcm,     // a PCM file's samples (DSD content is converted as for DsdPcm)
    DsdRaw,  // a DSD file's bytes interleaved by channel, earliest bit in the MSB
    DsdPcm,  // a DSD file converted to PCM at pcmRate
};

// How one delivered sample is stored.
enum class SampleType {
    Int32,    // integer source, left-justified in 32 bits (any width up to 32)
    Float32,  // float and lossy sources, full scale +-1.0
    Float64,  // DSD converted to PCM, full scale +-1.0
    DsdByte,  // one byte of DSD per channel
};

struct StreamInfo {
    int32_t rate = 0;  // frames per second (DsdRaw: DSD bit rate / 8)
    int32_t channels = 0;
    int32_t sourceBits = 0;  // bit depth of lossless integer sources; 0 for lossy, float and DSD
    SampleType sample = SampleType::Float32;
};

// DSD silence: as many ones as zeros. Shared by everything that pads DSD.
constexpr uint8_t kDsdIdleByte = 0x69;

struct DecodeStream;  // opaque

// The all-ones value a read returns at the end of the stream or on an error.
constexpr uint32_t kDecodeEnd = 0xFFFFFFFFu;

// Opens path as kind. pcmRate is the output rate for DSD converted to PCM:
// 1, 2, 4 or 8 times 44100 for DSD of the 44.1 kHz family, of 48000 for the
// 48 kHz family. Returns null and sets *error on failure.
DecodeStream* decodeOpen(const char* path, StreamKind kind, int32_t pcmRate,
                         std::string* error = nullptr);
void decodeClose(DecodeStream* s);

StreamInfo decodeInfo(const DecodeStream* s);
// Exact length of the delivered data in bytes (DsdRaw: the file's own bytes,
// no padding).
uint64_t decodeLength(const DecodeStream* s);
// Bytes of one delivered frame: sample size x channels.
uint32_t decodeFrameBytes(const DecodeStream* s);

// Delivers at most `bytes` bytes, always a whole number of frames. Returns
// kDecodeEnd after the last byte or on a fatal error; never more than the
// stated length in all.
uint32_t decodeRead(DecodeStream* s, void* buffer, uint32_t bytes);
// Sample-exact: the next read starts at the frame holding byte position pos.
bool decodeSeek(DecodeStream* s, uint64_t pos);
// True when a seek delivers exactly what reading on from the start would:
// DSD, and lossless sources whose frames carry exact timestamps. A lossy
// decoder's state after a seek only settles after some frames.
bool decodeSeekExact(const DecodeStream* s);

// True when path names a regular file; anything else (a FIFO, a device) is
// refused with its reason in *why, never opened for reading. decodeOpen
// makes the same check first.
bool decodeRegularFile(const char* path, std::string* why = nullptr);

// True when the file's content is DSD (DSF, DSDIFF); used by tests and tools.
bool decodeIsDsdContent(const char* path);
// The DSD bit rate per channel of a DSF or DSDIFF file (2822400 for DSD64), or
// 0 when it is not one or cannot be read: the PCM rate depends on its family.
int32_t decodeDsdBitRate(const char* path);
