#include <fstream>
#include <thread>

#include "tests/vdac/pcm_util.h"

namespace {

struct Rig {
    explicit Rig(VdacConfig c = {}) : config(std::move(c)) {
        config.capturePath = dir.file("capture.raw");
        config.logPath = dir.file("vdac.log");
        writeVdacConfig(dir.file("alsa.conf"), config);
    }
    std::string conf() const { return dir.file("alsa.conf"); }
    TempDir dir;
    VdacConfig config;
};

// Writes all of data, in chunks of varying size so transfers straddle the ring's end.
void writeAll(Pcm& p, const PcmSetup& s, const std::vector<uint8_t>& data) {
    std::mt19937 gen(7);
    std::uniform_int_distribution<snd_pcm_uframes_t> chunk(1, s.period + s.period / 3);
    const snd_pcm_uframes_t total = data.size() / p.frameBytes;
    snd_pcm_uframes_t done = 0;
    while (done < total) {
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
            if (snd_pcm_state(p.pcm) == SND_PCM_STATE_PREPARED) {
                ASSERT_EQ(snd_pcm_start(p.pcm), 0);
            }
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
    double speed;
    snd_pcm_uframes_t buffer;
};

void PrintTo(const CaptureCase& c, std::ostream* os) {
    *os << c.name;
}

class CaptureSweep : public testing::TestWithParam<CaptureCase> {};

TEST_P(CaptureSweep, CaptureIsExactlyWhatWasWrittenAcrossManyRingWraps) {
    const CaptureCase& c = GetParam();
    Rig rig(vdacConfig(c.speed, {"S16_LE", "S24_3LE", "S32_LE", "DSD_U32_BE"}));
    Pcm p(rig.conf());
    ASSERT_EQ(p.openError, 0);
    PcmSetup s{c.access, c.format, c.channels, c.rate, c.buffer, c.buffer / 4};
    ASSERT_EQ(p.configure(s), 0);
    auto data = randomBytes(p.frameBytes * 20011, c.channels);  // not a whole number of buffers
    writeAll(p, s, data);
    ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    EXPECT_TRUE(readFileBytes(rig.config.capturePath) == data);

    auto events = readVdacLog(rig.config.logPath);
    auto hw = eventsOfKind(events, "hw_params");
    ASSERT_EQ(hw.size(), 1u);
    EXPECT_EQ(hw[0].fields["access"], snd_pcm_access_name(c.access));
    EXPECT_EQ(hw[0].fields["format"], snd_pcm_format_name(c.format));
    EXPECT_EQ(hw[0].fields["channels"], std::to_string(c.channels));
    EXPECT_EQ(hw[0].fields["buffer"], std::to_string(s.buffer));
    auto drain = eventsOfKind(events, "drain");
    ASSERT_EQ(drain.size(), 1u);
    EXPECT_EQ(drain[0].bytes, data.size());
    EXPECT_TRUE(eventsOfKind(events, "xrun").empty());
}

INSTANTIATE_TEST_SUITE_P(
    AccessFormatSpeed, CaptureSweep,
    testing::Values(
        // Instant consumption: small rings, so nearly every transfer wraps.
        CaptureCase{"RwS16", SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_FORMAT_S16_LE, 2, 44100, 0,
                    1000},
        CaptureCase{"MmapS16", SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_FORMAT_S16_LE, 2, 44100, 0,
                    1000},
        CaptureCase{"MmapS24_3", SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_FORMAT_S24_3LE, 3, 96000,
                    0, 1000},
        CaptureCase{"MmapDsd", SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_FORMAT_DSD_U32_BE, 2,
                    176400, 0, 1000},
        // Clock-driven consumption: partial reads of the ring straddle its end.
        CaptureCase{"RwS24_3Clocked", SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_FORMAT_S24_3LE, 3,
                    44100, 1, 8000},
        CaptureCase{"MmapS32Clocked", SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_FORMAT_S32_LE, 1,
                    48000, 1, 8000}),
    [](const auto& info) { return std::string(info.param.name); });

struct RefusalCase {
    const char* what;
    snd_pcm_format_t format;
    unsigned channels, rate;
    bool accepted;
};

void PrintTo(const RefusalCase& c, std::ostream* os) {
    *os << c.what;
}

class Refusals : public testing::TestWithParam<RefusalCase> {};

TEST_P(Refusals, OnlyListedFormatsRatesAndChannelCountsAreAccepted) {
    const RefusalCase& c = GetParam();
    VdacConfig config = vdacConfig(0, {"S16_LE", "S32_LE", "DSD_U32_LE"});
    config.rates = {44100, 96000};
    config.channelsMax = 2;
    Rig rig(config);
    Pcm p(rig.conf());
    ASSERT_EQ(p.openError, 0);
    PcmSetup s{SND_PCM_ACCESS_RW_INTERLEAVED, c.format, c.channels, c.rate, 4096, 1024};
    if (c.accepted)
        EXPECT_EQ(p.configure(s), 0) << c.what;
    else
        EXPECT_LT(p.configure(s), 0) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Refusals,
    testing::Values(RefusalCase{"listed", SND_PCM_FORMAT_S32_LE, 2, 96000, true},
                    RefusalCase{"listed dsd", SND_PCM_FORMAT_DSD_U32_LE, 2, 44100, true},
                    RefusalCase{"format", SND_PCM_FORMAT_S24_3LE, 2, 44100, false},
                    RefusalCase{"dsd byte order", SND_PCM_FORMAT_DSD_U32_BE, 2, 44100, false},
                    RefusalCase{"rate", SND_PCM_FORMAT_S16_LE, 2, 48000, false},
                    RefusalCase{"rate between", SND_PCM_FORMAT_S16_LE, 2, 88200, false},
                    RefusalCase{"channels", SND_PCM_FORMAT_S16_LE, 3, 44100, false}),
    [](const auto& info) { return std::to_string(info.index); });

TEST(VdacConfigBlock, BadFieldsMakeTheOpenFail) {
    TempDir dir;
    const char* blocks[] = {"formats \"S16_LE NOT_A_FORMAT\"", "rates \"44100 fast\"",
                            "colour \"blue\"", "channels_min 4 channels_max 2", "speed -1"};
    for (const char* block : blocks) {
        std::ofstream(dir.file("bad.conf"))
            << "pcm_type.vdac { lib \"" VDAC_PLUGIN "\" }\npcm.!default { type vdac " << block
            << " }\n";
        Pcm p(dir.file("bad.conf"));
        EXPECT_LT(p.openError, 0) << block;
    }
}

TEST(VdacStream, StarvedStreamUnderrunsAndRecovers) {
    Rig rig(vdacConfig(1));
    PcmSetup s;  // 100 ms buffer
    s.explicitStart = true;
    auto first = randomBytes(4 * 1200, 1), second = randomBytes(4 * 4800, 2);
    {
        Pcm p(rig.conf());
        ASSERT_EQ(p.configure(s), 0);
        ASSERT_EQ(snd_pcm_writei(p.pcm, first.data(), 1200), 1200);
        ASSERT_EQ(snd_pcm_start(p.pcm), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        EXPECT_EQ(snd_pcm_avail(p.pcm), -EPIPE);
        EXPECT_EQ(snd_pcm_state(p.pcm), SND_PCM_STATE_XRUN);
        EXPECT_EQ(snd_pcm_writei(p.pcm, second.data(), 100), -EPIPE);

        ASSERT_EQ(snd_pcm_prepare(p.pcm), 0);
        ASSERT_EQ(snd_pcm_writei(p.pcm, second.data(), 4800), 4800);
        ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    }
    auto expected = first;
    expected.insert(expected.end(), second.begin(), second.end());
    EXPECT_TRUE(readFileBytes(rig.config.capturePath) == expected);
    auto events = readVdacLog(rig.config.logPath);
    auto xruns = eventsOfKind(events, "xrun");
    ASSERT_EQ(xruns.size(), 1u);
    EXPECT_EQ(xruns[0].bytes, first.size());
    EXPECT_EQ(eventsOfKind(events, "close").at(0).fields["xruns"], "1");
}

TEST(VdacStream, DropKeepsOnlyWhatTheClockPlayed) {
    Rig rig(vdacConfig(1));
    PcmSetup s{.buffer = 9600, .period = 2400, .explicitStart = true};  // 200 ms
    Pcm p(rig.conf());
    ASSERT_EQ(p.configure(s), 0);
    auto data = randomBytes(4 * s.buffer, 3);
    ASSERT_EQ(snd_pcm_writei(p.pcm, data.data(), s.buffer), snd_pcm_sframes_t(s.buffer));
    uint64_t beforeStart = monoUs();
    ASSERT_EQ(snd_pcm_start(p.pcm), 0);
    uint64_t afterStart = monoUs();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    uint64_t beforeDrop = monoUs();
    ASSERT_EQ(snd_pcm_drop(p.pcm), 0);
    uint64_t afterDrop = monoUs();

    auto captured = readFileBytes(rig.config.capturePath);
    uint64_t frames = captured.size() / 4;
    EXPECT_GE(frames, (beforeDrop - afterStart) * s.rate / 1000000);
    EXPECT_LE(frames, (afterDrop - beforeStart) * s.rate / 1000000 + 1);
    EXPECT_TRUE(std::equal(captured.begin(), captured.end(), data.begin()));
    auto drops = eventsOfKind(readVdacLog(rig.config.logPath), "drop");
    ASSERT_EQ(drops.size(), 1u);
    EXPECT_EQ(drops[0].bytes, captured.size());
}

TEST(VdacStream, PauseHoldsThePointer) {
    Rig rig(vdacConfig(1));
    PcmSetup s{.buffer = 9600, .period = 2400, .explicitStart = true};
    Pcm p(rig.conf());
    ASSERT_EQ(p.configure(s), 0);
    auto data = randomBytes(4 * s.buffer, 4);
    ASSERT_EQ(snd_pcm_writei(p.pcm, data.data(), s.buffer), snd_pcm_sframes_t(s.buffer));
    ASSERT_EQ(snd_pcm_start(p.pcm), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(snd_pcm_pause(p.pcm, 1), 0);
    snd_pcm_sframes_t held = snd_pcm_avail(p.pcm);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(snd_pcm_avail(p.pcm), held);
    ASSERT_EQ(snd_pcm_pause(p.pcm, 0), 0);
    ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
    EXPECT_TRUE(readFileBytes(rig.config.capturePath) == data);
}

TEST(VdacStream, SuccessiveOpensAppendToOneCapture) {
    Rig rig;
    std::vector<uint8_t> all;
    for (unsigned round = 0; round < 2; ++round) {
        Pcm p(rig.conf());
        PcmSetup s;
        ASSERT_EQ(p.configure(s), 0);
        auto data = randomBytes(4 * 3000, 10 + round);
        ASSERT_EQ(snd_pcm_writei(p.pcm, data.data(), 3000), 3000);
        ASSERT_EQ(snd_pcm_drain(p.pcm), 0);
        all.insert(all.end(), data.begin(), data.end());
    }
    EXPECT_TRUE(readFileBytes(rig.config.capturePath) == all);
    auto events = readVdacLog(rig.config.logPath);
    EXPECT_EQ(eventsOfKind(events, "open").size(), 2u);
    EXPECT_EQ(eventsOfKind(events, "close").size(), 2u);
    std::vector<std::string> kinds;
    for (const auto& e : events) kinds.push_back(e.kind);
    EXPECT_EQ(kinds[0], "open");
    EXPECT_EQ(kinds[1], "hw_params");
    EXPECT_EQ(kinds[2], "prepare");
}

}  // namespace
