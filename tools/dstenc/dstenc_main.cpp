// dstenc IN.dff OUT.dff: writes the DST-compressed twin of an uncompressed
// DSDIFF file.
#include <cstdio>
#include <string>

#include "tools/dstenc/dstenc.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: dstenc IN.dff OUT.dff\n");
        return 2;
    }
    std::string error;
    if (!dstenc::encodeFile(argv[1], argv[2], {}, &error)) {
        fprintf(stderr, "dstenc: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
