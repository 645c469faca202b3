// DSF (little-endian, block-planar, LSB-first bits) and DSDIFF (big-endian,
// byte-interleaved, MSB-first) writers over the internal form.
#include <cstdio>
#include <memory>

#include "tools/dsdgen/dsdgen.h"

namespace dsdgen {
namespace {

constexpr uint32_t kDsfBlock = 4096;

void putLE(std::vector<uint8_t>& v, uint64_t x, int n) {
    for (int i = 0; i < n; ++i) v.push_back(uint8_t(x >> (8 * i)));
}
void putBE(std::vector<uint8_t>& v, uint64_t x, int n) {
    for (int i = n - 1; i >= 0; --i) v.push_back(uint8_t(x >> (8 * i)));
}
void putId(std::vector<uint8_t>& v, const char* id) {
    v.insert(v.end(), id, id + 4);
}

uint8_t reverseBits(uint8_t b) {
    b = uint8_t((b & 0xF0) >> 4 | (b & 0x0F) << 4);
    b = uint8_t((b & 0xCC) >> 2 | (b & 0x33) << 2);
    return uint8_t((b & 0xAA) >> 1 | (b & 0x55) << 1);
}

bool writeAll(const std::string& path, const std::vector<uint8_t>& data) {
    std::unique_ptr<FILE, int (*)(FILE*)> f(fopen(path.c_str(), "wb"), fclose);
    if (!f) return false;
    return fwrite(data.data(), 1, data.size(), f.get()) == data.size();
}

uint32_t dsfChannelType(int channels) {
    // 1 mono, 2 stereo, 3 three channels, 4 quad, 5 four channels, 6 five, 7 5.1
    static const uint32_t types[] = {0, 1, 2, 3, 4, 6, 7};
    return channels >= 1 && channels <= 6 ? types[channels] : 0;
}

}  // namespace

bool writeDsf(const std::string& path, const std::vector<uint8_t>& dsd, int channels, int multiple,
              uint64_t bits, int32_t base) {
    uint64_t bytes = (bits + 7) / 8;
    uint64_t blocks = (bytes + kDsfBlock - 1) / kDsfBlock;
    uint64_t dataSize = blocks * kDsfBlock * channels;
    std::vector<uint8_t> f;
    putId(f, "DSD ");
    putLE(f, 28, 8);
    putLE(f, 28 + 52 + 12 + dataSize, 8);
    putLE(f, 0, 8);
    putId(f, "fmt ");
    putLE(f, 52, 8);
    putLE(f, 1, 4);
    putLE(f, 0, 4);
    putLE(f, dsfChannelType(channels), 4);
    putLE(f, channels, 4);
    putLE(f, bitRate(multiple, base), 4);
    putLE(f, 1, 4);
    putLE(f, bits, 8);
    putLE(f, kDsfBlock, 4);
    putLE(f, 0, 4);
    putId(f, "data");
    putLE(f, 12 + dataSize, 8);
    for (uint64_t b = 0; b < blocks; ++b)
        for (int c = 0; c < channels; ++c)
            for (uint64_t i = b * kDsfBlock; i < (b + 1) * kDsfBlock; ++i)
                f.push_back(i < bytes ? reverseBits(dsd[i * channels + c]) : 0);
    return writeAll(path, f);
}

bool writeDff(const std::string& path, const std::vector<uint8_t>& dsd, int channels, int multiple,
              uint64_t bits, int32_t base) {
    static const char* const ids[] = {"SLFT", "SRGT", "C   ", "LFE ", "LS  ", "RS  "};
    uint64_t bytes = (bits + 7) / 8 * channels;
    std::vector<uint8_t> prop;
    putId(prop, "SND ");
    putId(prop, "FS  ");
    putBE(prop, 4, 8);
    putBE(prop, bitRate(multiple, base), 4);
    putId(prop, "CHNL");
    putBE(prop, 2 + 4 * channels, 8);
    putBE(prop, channels, 2);
    for (int c = 0; c < channels; ++c) putId(prop, channels <= 6 ? ids[c] : "C000");
    putId(prop, "CMPR");
    putBE(prop, 4 + 1 + 14 + 1, 8);
    putId(prop, "DSD ");
    prop.push_back(14);
    for (const char* p = "not compressed"; *p; ++p) prop.push_back(uint8_t(*p));
    prop.push_back(0);  // pad to even

    std::vector<uint8_t> f;
    putId(f, "FRM8");
    uint64_t body = 4 + 12 + 4 + 12 + prop.size() + 12 + bytes + (bytes & 1);
    putBE(f, body, 8);
    putId(f, "DSD ");
    putId(f, "FVER");
    putBE(f, 4, 8);
    putBE(f, 0x01050000, 4);
    putId(f, "PROP");
    putBE(f, prop.size(), 8);
    f.insert(f.end(), prop.begin(), prop.end());
    putId(f, "DSD ");
    putBE(f, bytes, 8);
    f.insert(f.end(), dsd.begin(), dsd.begin() + bytes);
    if (bytes & 1) f.push_back(0);
    return writeAll(path, f);
}

}  // namespace dsdgen
