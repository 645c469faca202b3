// Feeds arbitrary bytes to the DSF and DSDIFF readers through a real file
// (they read by position from a path). An opened file must state a sane
// shape, read inside its length and refuse to read past it.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "decode/dsd_file.h"
#include "tests/fuzz/scratch.h"

namespace {

void readSome(DsdFile& f) {
    const DsdFileInfo& info = f.info();
    if (info.channels < 1 || info.channels > 8 || info.bitRate <= 0) std::abort();
    if (info.dst) return;
    const uint64_t length = info.bytesPerChannel;
    const uint32_t count = uint32_t(std::min<uint64_t>(length, 4096));
    std::vector<uint8_t> out(size_t(count) * info.channels + 1, 0xA5);
    if (count > 0) {
        // The start, and the very end, possibly across a block border.
        f.read(0, count, out.data());
        f.read(length - count, count, out.data());
        f.read(length / 2, count / 2, out.data());
    }
    if (out.back() != 0xA5) std::abort();  // wrote past count * channels
    if (f.read(length, 1, out.data())) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = writeInput("input", data, size);
    dsdFileProbe(path.c_str());
    std::string error;
    std::unique_ptr<DsdFile> f = dsdFileOpen(path.c_str(), &error);
    if (f)
        readSome(*f);
    else if (error.empty())
        std::abort();  // every refusal says why
    return 0;
}
