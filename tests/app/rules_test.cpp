#include "app/rules.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

namespace {

TEST(SeekParse, FormsTargetsAndVoidWords) {
    const char *huge = "99999999999999999999", *hugeMinutes = "+153722867280912930:0";
    const std::tuple<const char*, int64_t, int32_t> cases[] = {
        // -1: void or out of range
        {"90", 0, 90},   {"1:30", 0, 90},  {"1.2:3", 0, 62},      {"1x.30y", 0, 90}, {".5", 0, 5},
        {"", 0, 0},      {"+10", 50, 60},  {"-0.10", 50, 40},     {"-51", 50, -1},   {"300", 0, -1},
        {"+abc", 0, -1}, {"pf100", 0, -1}, {hugeMinutes, 10, -1}, {huge, 0, -1},
    };
    for (auto [word, position, expected] : cases) {
        std::optional<SeekCommand> seek = parseSeek(word);
        EXPECT_EQ(seek ? seekTarget(*seek, position, 300).value_or(-1) : -1, expected) << word;
    }
}

TEST(NumberCommand, EntryAndTrack) {
    using Pair = std::pair<int64_t, int64_t>;
    const std::pair<const char*, Pair> cases[] = {
        // -1: not a number command
        {"12", {12, 0}},  {"5.3", {5, 3}},  {"..", {0, 0}},
        {".3", {0, 3}},   {"5.x", {5, 0}},  {"-1", {-1, -1}},
        {"1a", {-1, -1}}, {" 1", {-1, -1}}, {"99999999999999999999999", {INT64_MAX, 0}},
    };
    for (auto [word, expected] : cases) {
        std::optional<NumberCommand> n = parseNumberCommand(word);
        EXPECT_EQ(n ? Pair(n->entry, n->track) : Pair(-1, -1), expected) << word;
    }
}

TEST(PlayQueue, PlayableEntriesMoreFilesThanSlotsAndPathsThatDoNotFit) {
    QueuePlan plan = planQueue({"..", "sub", "a.flac", "b.txt", "c.FLAC", "d.Flac", "e.cue"},
                               "/music", "/music/c.FLAC", 1000, 512);
    EXPECT_EQ(plan.paths, (std::vector<std::string>{"/music/a.flac", "/music/c.FLAC"}));
    EXPECT_EQ(plan.index, 1);
    EXPECT_EQ(planQueue({"y.mp3"}, "/", "/y.mp3", 1000, 512).paths.front(), "/y.mp3");

    std::vector<std::string> names;
    for (int i = 0; i < 2500; ++i) names.push_back(std::to_string(10000 + i) + ".flac");
    // selected, then the queue's size, index and first entry
    for (auto [selected, size, index, first] :
         {std::array{999, 1000, 999, 0}, {1000, 1000, 0, 1000}, {2400, 100, 0, 2400}}) {
        plan = planQueue(names, "/m", "/m/" + names[selected], 1000, 512);
        ASSERT_EQ(plan.paths.size(), size_t(size));
        EXPECT_EQ(plan.index, index);
        EXPECT_EQ(plan.paths.front(), "/m/" + names[first]);
    }
    std::string folder = "/" + std::string(499, 'f');  // with "/" and 10 bytes: 511 fits
    plan = planQueue({"123456.wav", "1234567.wav", "abcdef.wav"}, folder, folder + "/abcdef.wav",
                     1000, 512);
    EXPECT_EQ(plan.paths,
              (std::vector<std::string>{folder + "/123456.wav", folder + "/abcdef.wav"}));
    EXPECT_EQ(plan.index, 1);
}

TEST(ElapsedText, MinutesNeverWrapIntoHours) {
    EXPECT_EQ(elapsedText(75 * 60000), "time 75:00");
    EXPECT_EQ(elapsedText(100 * 60000 + 5000), "time 100:05");
}

}  // namespace
