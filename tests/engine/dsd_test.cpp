// DSD files on the virtual card: native DSD_U32 words, DoP on 32- and 24-bit
// cards, and DSD converted to PCM.
#include <gtest/gtest.h>

#include "engine/packing.h"
#include "settings/settings.h"
#include "tests/engine/player_harness.h"

namespace {

std::vector<Fixture> dsdFixtures(const std::string& container) {
    std::vector<Fixture> out;
    for (const Fixture& f : fixtures("dsd"))
        if (f.container == container && f.rate == 2822400) out.push_back(f);
    return out;
}

RunText playDsd(const Fixture& f, bool di, bool rw, int32_t format) {
    settings.directInput = di;
    settings.rwAccess = rw;
    outputFormat.store(format);
    setQueue({f.path()});
    return playInline(routineFor(di, format));
}

// Checks DoP words in the card's layout against the raw DSD reference:
// per frame one marker for all channels, alternating, then the earlier and the
// later byte of each channel. Returns the number of frames checked.
size_t checkDop(const std::vector<uint8_t>& cap, const std::vector<uint8_t>& dsd, int channels,
                int32_t format) {
    const size_t width = format == kFormatS24_3 ? 3 : 4;
    const size_t lsb = width - 3;  // S32_LE words carry the 24-bit word in their top bytes
    const size_t frame = width * size_t(channels);
    EXPECT_EQ(cap.size() % frame, 0u);
    size_t frames = cap.size() / frame;
    EXPECT_EQ(frames * 2 * size_t(channels), dsd.size());
    uint8_t prev = 0;
    for (size_t i = 0; i < frames; ++i) {
        for (int ch = 0; ch < channels; ++ch) {
            const uint8_t* w = &cap[i * frame + size_t(ch) * width];
            if (lsb) {
                EXPECT_EQ(w[0], 0) << "frame " << i;
            }
            uint8_t marker = w[lsb + 2];
            EXPECT_TRUE(marker == kDopMarkerA || marker == kDopMarkerB) << "frame " << i;
            if (i > 0) {
                EXPECT_NE(marker, prev) << "markers repeat at frame " << i;
            }
            size_t early = (2 * i) * size_t(channels) + size_t(ch);
            if (early + size_t(channels) < dsd.size()) {
                EXPECT_EQ(w[lsb + 1], dsd[early]) << "frame " << i;
                EXPECT_EQ(w[lsb], dsd[early + size_t(channels)]) << "frame " << i;
            }
            if (ch == channels - 1) prev = marker;
            if (::testing::Test::HasFailure()) return i;
        }
    }
    return frames;
}

TEST(DsdPlayback, NativeWordsOnBigAndLittleEndianCards) {
    std::vector<Fixture> files = dsdFixtures("dsf");
    for (const Fixture& f : dsdFixtures("dff")) files.push_back(f);
    if (files.empty()) GTEST_SKIP() << "no DSD fixtures";
    for (bool be : {true, false})
        for (const Fixture& f : files)
            for (bool di : {false, true})
                for (bool rw : {false, true}) {
                    SCOPED_TRACE(testing::Message() << f.file << (be ? " BE" : " LE") << di << rw);
                    resetPlayerState();
                    settings.dsdMode = kDsdNative;
                    (be ? dsdNativeBE : dsdNativeLE).store(1);
                    Card card({be ? "DSD_U32_BE" : "DSD_U32_LE", "S32_LE"});
                    RunText text = playDsd(f, di, rw, kFormatS32);
                    std::vector<uint8_t> want = readFileBytes(f.refPath());
                    (be ? packDsdU32BE : packDsdU32LE)(want.data(), uint32_t(want.size()),
                                                       f.channels);
                    EXPECT_EQ(card.capture(), want);
                    auto hw = eventsOfKind(card.events(), "hw_params");
                    ASSERT_EQ(hw.size(), 1u);
                    EXPECT_EQ(hw[0].fields["format"], be ? "DSD_U32_BE" : "DSD_U32_LE");
                    EXPECT_EQ(hw[0].fields["rate"], "88200");
                    EXPECT_EQ(streamBits.load(), 1);
                    EXPECT_NE(text.out.find("Samplerate: 2822400"), std::string::npos);
                }
}

TEST(DsdPlayback, DopOnThirtyTwoAndTwentyFourBitCards) {
    std::vector<Fixture> files = dsdFixtures("dsf");
    if (files.empty()) GTEST_SKIP() << "no DSD fixtures";
    struct Mode {
        int32_t format;
        int32_t dsdMode;
    } modes[] = {{kFormatS32, kDsdDop}, {kFormatS24_3, kDsdDop}, {kFormatS24_3, kDsdNative}};
    for (const Mode& m : modes)
        for (const Fixture& f : files)
            for (bool di : {false, true})
                for (bool rw : {false, true}) {
                    SCOPED_TRACE(testing::Message()
                                 << f.file << formatName(m.format) << m.dsdMode << di << rw);
                    resetPlayerState();
                    settings.dsdMode = m.dsdMode;
                    Card card({formatName(m.format)});
                    playDsd(f, di, rw, m.format);
                    checkDop(card.capture(), readFileBytes(f.refPath()), f.channels, m.format);
                    auto hw = eventsOfKind(card.events(), "hw_params");
                    ASSERT_EQ(hw.size(), 1u);
                    EXPECT_EQ(hw[0].fields["rate"], "176400");
                }
}

TEST(DsdPlayback, PcmModeRunsTheCardAtTheChosenRate) {
    std::vector<Fixture> files = dsdFixtures("dsf");
    if (files.empty()) GTEST_SKIP() << "no DSD fixtures";
    const Fixture& f = files.front();
    for (int32_t format : {kFormatS32, kFormatS24_3, kFormatS16})
        for (int32_t rate : {88200, 176400}) {
            SCOPED_TRACE(testing::Message() << formatName(format) << rate);
            resetPlayerState();
            settings.dsdMode = kDsdPcm;
            settings.dsdPcmRate = rate;
            Card card({formatName(format)});
            playDsd(f, true, false, format);
            auto hw = eventsOfKind(card.events(), "hw_params");
            ASSERT_EQ(hw.size(), 1u);
            EXPECT_EQ(hw[0].fields["rate"], std::to_string(rate));
            // One second of DSD becomes one second of PCM.
            size_t frames = card.capture().size() / frameBytes(format, f.channels);
            EXPECT_EQ(frames, f.frames * 8 * size_t(rate) / 2822400);
        }
}

}  // namespace
