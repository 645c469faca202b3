#include "engine/now_playing.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "app/control.h"
#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

// Runs f with stdout and stderr captured; returns both texts.
template <typename F>
std::pair<std::string, std::string> captured(F f) {
    testfiles::Capture out(stdout), err(stderr);
    f();
    return {out.text(), err.text()};
}

TEST(FormatDuration, ClockText) {
    const std::pair<int, const char*> cases[] = {
        {0, "00:00"},      {245, "04:05"},      {3599, "59:59"},
        {3600, "1:00:00"}, {36000, "10:00:00"}, {359999, "99:59:59"},
    };
    for (auto [s, text] : cases) EXPECT_EQ(formatDuration(s), text) << s;
}

void setStream(int rate, int channels, int bits, const char* path, int index, int count) {
    streamRate.store(rate);
    streamChannels.store(channels);
    streamBits.store(bits);
    std::strcpy(currentPath, path);
    std::strcpy(lengthText, "04:05");
    queueIndex.store(index);
    queueCount.store(count);
}

TEST(TrackReport, PlainAndColoured) {
    setColors(false);
    setStream(44100, 2, 16, "/music/a.flac", 2, 12);
    auto [out, err] = captured(printTrackInfo);
    EXPECT_EQ(out,
              "\n(3/12)   \n/music/a.flac\nLength: 04:05   Channels: 2   Samplerate: 44100   "
              "Bits per sample: 16\n\n");
    EXPECT_EQ(err, "> ");

    setColors(true);
    setStream(88200, 2, 1, "/d.dsf", 0, 0);  // native DSD64 shows the DSD bit rate
    auto [cout, cerr] = captured(printTrackInfo);
    EXPECT_EQ(cout,
              "\n\033[0;33m(1/0)   \n\033[1;32m/d.dsf\033[0m\n\033[0;33mLength: 04:05   "
              "Channels: 2   Samplerate: 2822400   Bits per sample: 1\033[0m\n\n");
    setColors(false);
}

}  // namespace
