// Whole-stream helpers for the decoder tests.
#pragma once
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "decode/decode.h"

// Reads a stream to its end in chunks of the given sizes (cycled), failing the
// test when a read breaks the whole-frame or the length contract.
inline std::vector<uint8_t> readStream(DecodeStream* s, uint32_t frameBytes,
                                       const std::vector<uint32_t>& chunks = {65536}) {
    const uint64_t length = decodeLength(s);
    std::vector<uint8_t> out, buf(*std::max_element(chunks.begin(), chunks.end()) + 16);
    for (size_t i = 0; out.size() <= length; ++i) {
        const uint32_t ask = chunks[i % chunks.size()], n = decodeRead(s, buf.data(), ask);
        if (n == kDecodeEnd) break;
        EXPECT_LE(n, ask);
        EXPECT_EQ(n % frameBytes, 0u) << "read of " << ask << " gave a partial frame";
        if (n == 0 && ask >= frameBytes) {
            ADD_FAILURE() << "empty read before the end";
            break;
        }
        out.insert(out.end(), buf.begin(), buf.begin() + n);
    }
    EXPECT_EQ(out.size(), length);
    return out;
}

template <typename T>
std::vector<T> asSamples(const std::vector<uint8_t>& bytes) {
    std::vector<T> v(bytes.size() / sizeof(T));
    std::memcpy(v.data(), bytes.data(), v.size() * sizeof(T));
    return v;
}
