#include "app/rules.h"

#include <gtest/gtest.h>

namespace {

TEST(SeekParse, FormsTargetsAndVoidWords) {
    struct Case {
        const char* word;
        int64_t position;
        int32_t expected;  // -1: void or out of range
    } cases[] = {
        {"90", 0, 90},
        {"1:30", 0, 90},
        {"1.2:3", 0, 62},
        {"1x.30y", 0, 90},
        {".5", 0, 5},
        {"", 0, 0},
        {"+10", 50, 60},
        {"-0.10", 50, 40},
        {"-51", 50, -1},
        {"300", 0, -1},
        {"+abc", 0, -1},
        {"pf100", 0, -1},
        {"99999999999999999999", 0, -1},
        {"+153722867280912930:0", 10, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        std::optional<SeekCommand> seek = parseSeek(c.word);
        std::optional<int32_t> target;
        if (seek) target = seekTarget(*seek, c.position, 300);
        EXPECT_EQ(target.value_or(-1), c.expected);
    }
    EXPECT_EQ(parseSeek("+5")->kind, SeekKind::Forward);  // only relative seeks print the time
    EXPECT_EQ(parseSeek("5")->kind, SeekKind::Absolute);
}

TEST(NumberCommand, EntryAndTrack) {
    struct Case {
        const char* word;
        bool valid;
        int64_t entry, track;
    } cases[] = {
        {"12", true, 12, 0}, {"5.3", true, 5, 3}, {"..", true, 0, 0},
        {".3", true, 0, 3},  {"5.x", true, 5, 0}, {"-1", false, 0, 0},
        {"1a", false, 0, 0}, {" 1", false, 0, 0}, {"99999999999999999999999", true, INT64_MAX, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.word);
        std::optional<NumberCommand> n = parseNumberCommand(c.word);
        ASSERT_EQ(n.has_value(), c.valid);
        if (!c.valid) continue;
        EXPECT_EQ(std::make_pair(n->entry, n->track), std::make_pair(c.entry, c.track));
    }
}

TEST(PlayQueue, PlayableEntriesMoreFilesThanSlotsAndPathsThatDoNotFit) {
    std::vector<std::string> entries{"..", "sub", "a.flac", "b.txt", "c.FLAC", "d.Flac", "e.cue"};
    QueuePlan plan = planQueue(entries, "/music", "/music/c.FLAC", 1000, 512);
    EXPECT_EQ(plan.paths, (std::vector<std::string>{"/music/a.flac", "/music/c.FLAC"}));
    EXPECT_EQ(plan.index, 1);
    EXPECT_EQ(planQueue({"y.mp3"}, "/", "/y.mp3", 1000, 512).paths.front(), "/y.mp3");

    std::vector<std::string> names;
    for (int i = 0; i < 2500; ++i) names.push_back(std::to_string(10000 + i) + ".flac");
    struct Case {
        int selected;
        size_t size;
        int index;
        int first;
    } cases[] = {{999, 1000, 999, 0}, {1000, 1000, 0, 1000}, {2400, 100, 0, 2400}};
    for (const Case& c : cases) {
        plan = planQueue(names, "/m", "/m/" + names[c.selected], 1000, 512);
        ASSERT_EQ(plan.paths.size(), c.size);
        EXPECT_EQ(plan.index, c.index);
        EXPECT_EQ(plan.paths.front(), "/m/" + names[c.first]);
    }
    std::string folder = "/" + std::string(499, 'f');  // with "/" and 10 bytes: 511 fits
    plan = planQueue({"123456.wav", "1234567.wav", "abcdef.wav"}, folder, folder + "/abcdef.wav",
                     1000, 512);
    EXPECT_EQ(plan.paths,
              (std::vector<std::string>{folder + "/123456.wav", folder + "/abcdef.wav"}));
    EXPECT_EQ(plan.index, 1);
}

TEST(ElapsedText, MinutesNeverWrapIntoHours) {
    EXPECT_EQ(elapsedText(9999), "time 00:09");
    EXPECT_EQ(elapsedText(75 * 60000), "time 75:00");
    EXPECT_EQ(elapsedText(100 * 60000 + 5000), "time 100:05");
}

}  // namespace
