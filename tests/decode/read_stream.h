// Whole-stream reading for the decoder and DSD tests.
#pragma once
#include <gtest/gtest.h>

#include <vector>

#include "decode/decode.h"

// Reads a stream to its end in odd sizes, some below one frame, so the frame
// queue is cut everywhere; a read that breaks the whole-frame or the length
// contract fails the test. from: where an earlier seek left the stream.
inline std::vector<uint8_t> readStream(DecodeStream* s, uint32_t frameBytes, uint64_t from = 0) {
    const uint64_t length = decodeLength(s) - from;
    const uint32_t sizes[] = {frameBytes * 4099 + 3, 1, frameBytes, 777};
    std::vector<uint8_t> out, buf(sizes[0]);
    for (size_t i = 0; out.size() <= length; ++i) {
        const uint32_t ask = sizes[i % 4], n = decodeRead(s, buf.data(), ask);
        if (n == kDecodeEnd) break;
        EXPECT_LE(n, ask);
        EXPECT_EQ(n % frameBytes, 0u) << "read of " << ask << " gave a partial frame";
        EXPECT_FALSE(n == 0 && ask >= frameBytes) << "empty read before the end";
        if (n == 0 && ask >= frameBytes) break;
        out.insert(out.end(), buf.begin(), buf.begin() + n);
    }
    EXPECT_EQ(out.size(), length);
    return out;
}
