// DST-compressed DSDIFF sound data as a DsdFile: frames found through the
// DSTI index or one walk over the DSTF chunks at open, decoded one at a time
// on demand with the last two kept. A frame that cannot be decoded (cut,
// malformed, failing its DSTC check) reads as DSD silence with one line on
// standard error; reads never fail inside the length. Not thread-safe.
#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "decode/dsd_file.h"

// Where the DSDIFF reader found the pieces. Ends are clamped to the file.
struct DstLayout {
    uint64_t body = 0, bodyEnd = 0;    // the "DST " chunk's contents
    uint64_t index = 0, indexEnd = 0;  // the "DSTI" chunk's contents; empty if none
};

// info: channels and bitRate from the properties; the rest is filled here.
std::unique_ptr<DsdFile> dstFileOpen(const char* path, const DsdFileInfo& info,
                                     const DstLayout& layout, std::string* error);
