// DSD files on the virtual card: native DSD_U32 words, DoP on 32- and 24-bit
// cards, and DSD converted to PCM, compared with the raw DSD references.
#include <gtest/gtest.h>

#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

struct DsdCase {
    int32_t dsdMode;
    std::vector<std::string> cardFormats;  // the first is the one played
    int32_t format;                        // outputFormat
    int pcmRate = 88200;
    Fixture f = {};
    Mode mode = {};
};

std::vector<DsdCase> cases() {
    const DsdCase rows[] = {
        {kDsdNative, {"DSD_U32_BE", "S32_LE"}, kFormatS32},
        {kDsdNative, {"DSD_U32_LE", "S32_LE"}, kFormatS32},
        {kDsdDop, {"S32_LE"}, kFormatS32},
        {kDsdDop, {"S24_3LE"}, kFormatS24_3},
        {kDsdNative, {"S24_3LE"}, kFormatS24_3},  // no native words on a 24-bit card
        {kDsdPcm, {"S32_LE"}, kFormatS32, 176400},
        {kDsdPcm, {"S24_3LE"}, kFormatS24_3},
        {kDsdPcm, {"S16_LE"}, kFormatS16},
    };
    std::vector<DsdCase> out;
    for (DsdCase c : rows)
        for (const Fixture& f : fixtures())
            for (Mode m : {Mode{false, false}, {false, true}, {true, false}, {true, true}})
                if (f.kind == "dsd" && (c.dsdMode != kDsdPcm || f.file == "dsf-dsd64-2ch.dsf")) {
                    c.f = f, c.mode = m;
                    out.push_back(c);
                }
    return out;
}

void PrintTo(const DsdCase& c, std::ostream* os) {
    *os << c.f.file << " " << c.dsdMode << " " << c.cardFormats[0];
}

// Raw DSD bytes (interleaved by channel, earliest first) regrouped per channel
// into native words or DoP words that carry markers alternating from marker.
std::vector<uint8_t> cardWords(const DsdCase& c, uint8_t marker) {
    const std::vector<uint8_t> dsd = readFileBytes(c.f.refPath());
    const size_t ch = size_t(c.f.channels);
    const bool native = c.cardFormats[0].starts_with("DSD"), be = c.cardFormats[0] == "DSD_U32_BE";
    const size_t take = native ? 4 : 2;
    std::vector<uint8_t> out;
    for (size_t i = 0; i + take * ch <= dsd.size(); i += take * ch, marker ^= 0xFF)
        for (size_t k = 0; k < ch; ++k) {
            if (!native && c.format == kFormatS32) out.push_back(0);
            for (size_t b = 0; b < take; ++b)
                out.push_back(dsd[i + (be ? b : take - 1 - b) * ch + k]);
            if (!native) out.push_back(marker);
        }
    return out;
}

class DsdPlayback : public testing::TestWithParam<DsdCase> {};

TEST_P(DsdPlayback, CaptureIsTheDsdReferenceInTheCardsWords) {
    const DsdCase& c = GetParam();
    resetPlayerState();
    settings.dsdMode = c.dsdMode;
    settings.dsdPcmRate = c.pcmRate;
    if (c.cardFormats[0].starts_with("DSD"))
        (c.cardFormats[0] == "DSD_U32_BE" ? dsdNativeBE : dsdNativeLE).store(1);
    Card card(c.cardFormats);
    RunText text = play({c.f.path()}, c.mode, c.format);
    std::vector<uint8_t> cap = card.capture();
    auto hw = eventsOfKind(card.events(), "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["format"], c.cardFormats[0]);
    if (c.dsdMode == kDsdPcm) {
        EXPECT_EQ(hw[0].fields["rate"], std::to_string(c.pcmRate));
        // One second of DSD becomes one second of PCM.
        EXPECT_EQ(cap.size() / frameBytes(c.format, c.f.channels),
                  c.f.frames * 8 * uint64_t(c.pcmRate) / uint64_t(c.f.rate));
        return;
    }
    const bool native = c.cardFormats[0].starts_with("DSD");
    EXPECT_EQ(hw[0].fields["rate"], std::to_string(c.f.rate / (native ? 32 : 16)));
    // DoP may start on either marker; anything else fails as a wrong first byte.
    const size_t at = frameBytes(c.format, 1) - 1;
    EXPECT_EQ(cap,
              cardWords(c, cap.size() > at && cap[at] == kDopMarkerB ? kDopMarkerB : kDopMarkerA));
    if (!native) return;
    EXPECT_EQ(streamBits.load(), 1);
    EXPECT_NE(text.out.find("Samplerate: " + std::to_string(c.f.rate)), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, DsdPlayback, testing::ValuesIn(cases()), [](const auto& info) {
    const DsdCase& c = info.param;
    return testName(c.f.file + "_" + std::to_string(c.dsdMode) + "_" + c.cardFormats[0] + "_" +
                    std::to_string(c.pcmRate) + (c.mode.di ? "_DI" : "_FM") +
                    (c.mode.rw ? "_RW" : "_MMAP"));
});

}  // namespace
