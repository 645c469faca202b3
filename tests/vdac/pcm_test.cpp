#include <thread>

#include "tests/vdac/pcm_util.h"

namespace {

// Writes all of data, in chunks of varying size so transfers straddle the ring's end.
void writeAll(Pcm& p, const PcmSetup& s, const std::vector<uint8_t>& data) {
    std::mt19937 gen(7);
    std::uniform_int_distribution<snd_pcm_uframes_t> chunk(1, s.period + s.period / 3);
    const snd_pcm_uframes_t total = data.size() / p.frameBytes;
    for (snd_pcm_uframes_t done = 0; done < total;) {
        snd_pcm_uframes_t want = std::min(chunk(gen), total - done);
        if (s.access == SND_PCM_ACCESS_RW_INTERLEAVED) {  // blocks, and starts when full
            snd_pcm_sframes_t n = snd_pcm_writei(p.pcm, &data[done * p.frameBytes], want);
            ASSERT_GT(n, 0) << snd_strerror(int(n));
            done += snd_pcm_uframes_t(n);
            continue;
        }
        snd_pcm_sframes_t avail = snd_pcm_avail_update(p.pcm);
        ASSERT_GE(avail, 0) << snd_strerror(int(avail));
        if (snd_pcm_uframes_t(avail) < want) {
            if (snd_pcm_state(p.pcm) == SND_PCM_STATE_PREPARED) ASSERT_EQ(snd_pcm_start(p.pcm), 0);
            ASSERT_GE(snd_pcm_wait(p.pcm, 2000), 0);
            continue;
        }
        const snd_pcm_channel_area_t* areas;
        snd_pcm_uframes_t offset, frames = want;
        ASSERT_EQ(snd_pcm_mmap_begin(p.pcm, &areas, &offset, &frames), 0);
        auto* dst = static_cast<uint8_t*>(areas[0].addr) + areas[0].first / 8 +
                    offset * (areas[0].step / 8);
        memcpy(dst, &data[done * p.frameBytes], frames * p.frameBytes);
        ASSERT_EQ(snd_pcm_mmap_commit(p.pcm, offset, frames), snd_pcm_sframes_t(frames));
        done += frames;
    }
}

struct CaptureCase {
    const char* name;
    snd_pcm_access_t access;
    snd_pcm_format_t format;
    unsigned channels, rate;
    double speed;  // 0: small rings that nearly every transfer wraps; 1: partial clocked reads
    snd_pcm_uframes_t buffer;
};

void PrintTo(const CaptureCase& c, std::ostream* os) {
    *os << c.name;
}

class CaptureSweep : public testing::TestWithParam<CaptureCase> {};

TEST_P(CaptureSweep, CaptureIsExactlyWhatWasWritten) {
    const CaptureCase& c = GetParam();
    PlayerFixture fx(vdacConfig(c.speed, {"S16_LE", "S24_3LE", "S32_LE", "DSD_U32_BE"}));
    Pcm p(fx.confPath);
    ASSERT_EQ(p.openError, 0);
    PcmSetup s{c.access, c.format, c.channels, c.rate, c.buffer, c.buffer / 4};
    ASSERT_EQ(p.configure(s), 0);
    auto data = randomBytes(p.frameBytes * 20011, c.channels);  // not a whole number of buffers
    writeAll(p, s, data);
    ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    EXPECT_TRUE(fx.captured() == data);

    auto events = fx.events();
    auto hw = eventsOfKind(events, "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["access"], snd_pcm_access_name(c.access));
    EXPECT_EQ(hw[0].fields["format"], snd_pcm_format_name(c.format));
    EXPECT_EQ(eventsOfKind(events, "drain").at(0).bytes, data.size());
    EXPECT_TRUE(eventsOfKind(events, "xrun").empty());
}

constexpr auto kRw = SND_PCM_ACCESS_RW_INTERLEAVED, kMmap = SND_PCM_ACCESS_MMAP_INTERLEAVED;

INSTANTIATE_TEST_SUITE_P(
    AccessFormatSpeed, CaptureSweep,
    testing::Values(CaptureCase{"RwS16", kRw, SND_PCM_FORMAT_S16_LE, 2, 44100, 0, 1000},
                    CaptureCase{"MmapS24_3", kMmap, SND_PCM_FORMAT_S24_3LE, 3, 96000, 0, 1000},
                    CaptureCase{"MmapDsd", kMmap, SND_PCM_FORMAT_DSD_U32_BE, 2, 176400, 0, 1000},
                    CaptureCase{"RwS24_3Clocked", kRw, SND_PCM_FORMAT_S24_3LE, 3, 44100, 1, 8000},
                    CaptureCase{"MmapS32Clocked", kMmap, SND_PCM_FORMAT_S32_LE, 1, 48000, 1, 8000}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vdac, OnlyListedFormatsRatesAndChannelCountsAreAccepted) {
    struct Case {
        snd_pcm_format_t format;
        unsigned channels, rate;
        bool accepted;
    };
    VdacConfig config = vdacConfig(0, {"S16_LE", "S32_LE", "DSD_U32_LE"});
    config.rates = {44100, 96000};
    config.channelsMax = 2;
    PlayerFixture fx(config);
    for (Case c : {Case{SND_PCM_FORMAT_S32_LE, 2, 96000, true},
                   Case{SND_PCM_FORMAT_DSD_U32_LE, 2, 44100, true},
                   Case{SND_PCM_FORMAT_S24_3LE, 2, 44100, false},
                   Case{SND_PCM_FORMAT_DSD_U32_BE, 2, 44100, false},
                   Case{SND_PCM_FORMAT_S16_LE, 2, 88200, false},
                   Case{SND_PCM_FORMAT_S16_LE, 3, 44100, false}}) {
        Pcm p(fx.confPath);
        ASSERT_EQ(p.openError, 0);
        PcmSetup s{kRw, c.format, c.channels, c.rate, 4096, 1024};
        EXPECT_EQ(p.configure(s) == 0, c.accepted)
            << snd_pcm_format_name(c.format) << " x" << c.channels << " @" << c.rate;
    }
}

TEST(Vdac, StarvedStreamUnderrunsAndRecovers) {
    PlayerFixture fx(vdacConfig(1));
    PcmSetup s;  // 100 ms buffer
    s.explicitStart = true;
    auto first = randomBytes(4 * 1200, 1), second = randomBytes(4 * 4800, 2);
    {
        Pcm p(fx.confPath);
        ASSERT_EQ(p.configure(s), 0);
        ASSERT_EQ(snd_pcm_writei(p.pcm, first.data(), 1200), 1200);
        ASSERT_EQ(snd_pcm_start(p.pcm), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        EXPECT_EQ(snd_pcm_avail(p.pcm), -EPIPE);
        EXPECT_EQ(snd_pcm_writei(p.pcm, second.data(), 100), -EPIPE);
        ASSERT_EQ(snd_pcm_prepare(p.pcm), 0);
        ASSERT_EQ(snd_pcm_writei(p.pcm, second.data(), 4800), 4800);
        ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    }
    first.insert(first.end(), second.begin(), second.end());
    EXPECT_TRUE(fx.captured() == first);
    auto xruns = eventsOfKind(fx.events(), "xrun");
    ASSERT_EQ(xruns.size(), 1u);
    EXPECT_EQ(xruns[0].bytes, 4u * 1200);
}

}  // namespace
