// The track report exactly as printed, plain and in colour.
#include "engine/now_playing.h"

#include <gtest/gtest.h>

#include <cstring>

#include "control/control.h"
#include "settings/settings.h"

namespace {

TEST(FormatDuration, ClockText) {
    const std::pair<int, const char*> cases[] = {
        {0, "00:00"},      {245, "04:05"},      {3599, "59:59"},
        {3600, "1:00:00"}, {36000, "10:00:00"}, {359999, "99:59:59"},
    };
    for (auto [s, text] : cases) EXPECT_EQ(formatDuration(s), text) << s;
}

TEST(TrackReport, PlainAndColoured) {
    struct Case {
        bool colours;
        int rate, bits, index, count;
        const char *path, *out;
    } cases[] = {
        {false, 44100, 16, 2, 12, "/music/a.flac",
         "\n(3/12)   \n/music/a.flac\nLength: 04:05   Channels: 2   Samplerate: 44100   "
         "Bits per sample: 16\n\n"},
        // Native DSD64 shows the DSD bit rate.
        {true, 88200, 1, 0, 0, "/d.dsf",
         "\n\033[0;33m(1/0)   \n\033[1;32m/d.dsf\033[0m\n\033[0;33mLength: 04:05   "
         "Channels: 2   Samplerate: 2822400   Bits per sample: 1\033[0m\n\n"},
    };
    for (const Case& c : cases) {
        setColors(c.colours);
        playerControl.streamRate.store(c.rate);
        playerControl.streamChannels.store(2);
        playerControl.streamBits.store(c.bits);
        std::strcpy(playerControl.currentPath, c.path);
        std::strcpy(playerControl.lengthText, "04:05");
        playerControl.queue.queueIndex.store(c.index);
        playerControl.queue.queueCount.store(c.count);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        printTrackInfo(playerControl);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "> ");
    }
    setColors(false);
}

}  // namespace
