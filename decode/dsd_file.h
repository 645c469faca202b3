// DSF and DSDIFF readers. Both deliver the one internal form: bytes
// interleaved by channel, earliest bit in the MSB. Not thread-safe per file;
// failures come back as null / false with text.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct DsdFileInfo {
    int32_t channels = 0;
    int32_t bitRate = 0;           // DSD samples per second per channel
    uint64_t sampleBits = 0;       // DSD samples per channel, as the file states
    uint64_t bytesPerChannel = 0;  // ceil(sampleBits / 8)
    bool dst = false;              // DSDIFF with DST-compressed data
};

class DsdFile {
  public:
    virtual ~DsdFile() = default;
    const DsdFileInfo& info() const { return info_; }
    // Reads bytes [first, first + count) of every channel, interleaved, into
    // out (count * channels bytes). False on a read error or a range beyond
    // bytesPerChannel.
    virtual bool read(uint64_t first, uint32_t count, uint8_t* out) = 0;

  protected:
    DsdFileInfo info_;
};

// True when the file starts like a DSF or DSDIFF file.
bool dsdFileProbe(const char* path);
// Opens and checks the header. DST-compressed DSDIFF reads like any other
// (info().dst); see dst_file.h.
std::unique_ptr<DsdFile> dsdFileOpen(const char* path, std::string* error);
