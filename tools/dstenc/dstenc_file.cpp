// DSDIFF in and out. The twin keeps the input's properties but for the
// compression type, and holds FRTE, then DSTF and DSTC chunks per frame, then
// a DSTI index pointing at each DSTF chunk.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tools/dstenc/dstenc.h"

namespace dstenc {
namespace {

uint64_t be(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | p[i];
    return v;
}
void putBE(std::vector<uint8_t>& v, uint64_t x, int n) {
    for (int i = n - 1; i >= 0; --i) v.push_back(uint8_t(x >> (8 * i)));
}
void putId(std::vector<uint8_t>& v, const char* id) {
    for (int i = 0; i < 4; ++i) v.push_back(uint8_t(id[i]));
}
void putChunk(std::vector<uint8_t>& v, const char* id, const std::vector<uint8_t>& body) {
    putId(v, id);
    putBE(v, body.size(), 8);
    v.insert(v.end(), body.begin(), body.end());
    if (body.size() & 1) v.push_back(0);
}

struct Input {
    std::vector<uint8_t> prop;  // "SND " and the property chunks but CMPR
    int channels = 0;
    uint32_t rate = 0;
    std::vector<uint8_t> dsd;
};

bool parse(const std::vector<uint8_t>& f, Input* in, std::string* error) {
    if (f.size() < 16 || memcmp(f.data(), "FRM8", 4) != 0 || memcmp(f.data() + 12, "DSD ", 4))
        return *error = "not a DSDIFF file", false;
    bool plain = true;
    for (size_t pos = 16; pos + 12 <= f.size();) {
        const uint64_t size = be(f.data() + pos + 4, 8);
        if (size > f.size() - pos - 12) return *error = "chunk runs past the end", false;
        const uint8_t* body = f.data() + pos + 12;
        if (memcmp(f.data() + pos, "PROP", 4) == 0 && size >= 4) {
            in->prop.assign(body, body + 4);
            for (size_t p = 4; p + 12 <= size;) {
                const uint64_t s = be(body + p + 4, 8);
                if (s > size - p - 12) break;
                const uint8_t* b = body + p + 12;
                if (memcmp(body + p, "FS  ", 4) == 0 && s >= 4) in->rate = uint32_t(be(b, 4));
                if (memcmp(body + p, "CHNL", 4) == 0 && s >= 2) in->channels = int(be(b, 2));
                if (memcmp(body + p, "CMPR", 4) == 0)
                    plain = s >= 4 && memcmp(b, "DSD ", 4) == 0;
                else
                    in->prop.insert(in->prop.end(), body + p, b + s + (s & 1));
                p += 12 + s + (s & 1);
            }
        } else if (memcmp(f.data() + pos, "DSD ", 4) == 0) {
            in->dsd.assign(body, body + size);
        }
        pos += 12 + size + (size & 1);
    }
    if (!plain) return *error = "input is not uncompressed DSD", false;
    if (in->channels < 1 || in->channels > 6 || in->rate == 0 || in->rate % 600 != 0)
        return *error = "channels or rate not supported", false;
    return true;
}

}  // namespace

bool encodeFile(const std::string& inPath, const std::string& outPath, const Options& options,
                std::string* error) {
    std::string dummy;
    if (!error) error = &dummy;
    std::ifstream is(inPath, std::ios::binary);
    if (!is) return *error = "cannot read " + inPath, false;
    const std::vector<uint8_t> raw((std::istreambuf_iterator<char>(is)),
                                   std::istreambuf_iterator<char>());
    Input in;
    if (!parse(raw, &in, error)) return false;

    const uint32_t frameBytes = in.rate / 75 / 8;
    const size_t frameSize = size_t(frameBytes) * size_t(in.channels);
    const size_t frames = (in.dsd.size() / size_t(in.channels) + frameBytes - 1) / frameBytes;
    in.dsd.resize(frames * frameSize, 0x69);

    std::vector<uint8_t> prop = in.prop, cmpr;
    putId(cmpr, "DST ");
    const char name[] = "DST Encoded";
    cmpr.push_back(uint8_t(sizeof name - 1));
    cmpr.insert(cmpr.end(), name, name + sizeof name - 1);
    putChunk(prop, "CMPR", cmpr);

    std::vector<uint8_t> head, sound, index;
    putId(head, "FVER");
    putBE(head, 4, 8);
    putBE(head, 0x01050000, 4);
    putChunk(head, "PROP", prop);
    const uint64_t soundAt = 16 + head.size() + 12;  // where the DST chunk's contents start
    std::vector<uint8_t> frte;
    putBE(frte, frames, 4);
    putBE(frte, 75, 2);
    putChunk(sound, "FRTE", frte);
    for (size_t n = 0; n < frames; ++n) {
        const uint8_t* dsd = in.dsd.data() + n * frameSize;
        const std::vector<uint8_t> coded = encodeFrame(dsd, in.channels, frameBytes, options);
        putBE(index, soundAt + sound.size(), 8);
        putBE(index, coded.size(), 4);
        putChunk(sound, "DSTF", coded);
        if (options.crc) {
            std::vector<uint8_t> c;
            putBE(c, frameCrc(dsd, frameSize), 4);
            putChunk(sound, "DSTC", c);
        }
    }
    putChunk(head, "DST ", sound);
    if (options.index) putChunk(head, "DSTI", index);

    std::vector<uint8_t> file;
    putId(file, "FRM8");
    putBE(file, 4 + head.size(), 8);
    putId(file, "DSD ");
    file.insert(file.end(), head.begin(), head.end());
    std::ofstream os(outPath, std::ios::binary | std::ios::trunc);
    os.write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
    if (!os.flush()) return *error = "cannot write " + outPath, false;
    return true;
}

}  // namespace dstenc
