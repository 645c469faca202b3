#include "app/rules.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

struct SeekCase {
    const char* word;
    bool valid;
    SeekKind kind;
    int64_t seconds;
};

TEST(SeekParse, FormsAndVoidWords) {
    const SeekCase cases[] = {
        {"90", true, SeekKind::Absolute, 90},     {"1.30", true, SeekKind::Absolute, 90},
        {"1:30", true, SeekKind::Absolute, 90},   {"+10", true, SeekKind::Forward, 10},
        {"-5", true, SeekKind::Backward, 5},      {"-0.10", true, SeekKind::Backward, 10},
        {"+", true, SeekKind::Forward, 0},        {"", true, SeekKind::Absolute, 0},
        {".5", true, SeekKind::Absolute, 5},      {"2.", true, SeekKind::Absolute, 120},
        {"1.2:3", true, SeekKind::Absolute, 62},   // "." wins over ":"
        {"1x.30y", true, SeekKind::Absolute, 90},  // digits as far as they go
        {"ab:cd", true, SeekKind::Absolute, 0},   {"+abc", false, SeekKind::Forward, 0},
        {"pf100", false, SeekKind::Absolute, 0},  {"st", false, SeekKind::Absolute, 0},
        {"12a", false, SeekKind::Absolute, 0},    {"+-5", false, SeekKind::Forward, 0},
    };
    for (const SeekCase& c : cases) {
        SCOPED_TRACE(c.word);
        std::optional<SeekCommand> seek = parseSeek(c.word);
        ASSERT_EQ(seek.has_value(), c.valid);
        if (!c.valid) continue;
        EXPECT_EQ(seek->kind, c.kind);
        EXPECT_EQ(seek->seconds, c.seconds);
    }
}

TEST(SeekParse, TargetStaysInsideTheStream) {
    struct Case {
        const char* word;
        int64_t position;
        int32_t length;
        int32_t expected;  // -1: ignored
    } cases[] = {
        {"90", 0, 300, 90},
        {"299", 0, 300, 299},
        {"300", 0, 300, -1},
        {"+10", 50, 300, 60},
        {"-5", 50, 300, 45},
        {"-51", 50, 300, -1},
        {"-50", 50, 300, 0},
        {"+250", 50, 300, -1},
        {"0", 0, 0, -1},  // a stream of no whole second takes no seek
        {"99999999999999999999", 0, 300, -1},
        {"-99999999999999999.0", 10, 300, -1},
        {"+153722867280912930:0", 10, 300, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        std::optional<SeekCommand> seek = parseSeek(c.word);
        ASSERT_TRUE(seek);
        std::optional<int32_t> target = seekTarget(*seek, c.position, c.length);
        EXPECT_EQ(target.value_or(-1), c.expected);
    }
}

TEST(NumberCommand, EntryAndTrack) {
    struct Case {
        const char* word;
        bool valid;
        int64_t entry, track;
    } cases[] = {
        {"0", true, 0, 0},   {"12", true, 12, 0},   {"5.3", true, 5, 3},
        {"..", true, 0, 0},  {".3", true, 0, 3},    {"", true, 0, 0},
        {"5.x", true, 5, 0}, {"5.3.1", true, 5, 3}, {"5.-2", true, 5, -2},
        {"-1", false, 0, 0}, {"1a", false, 0, 0},   {"a.1", false, 0, 0},
        {" 1", false, 0, 0}, {"+1", false, 0, 0},   {"99999999999999999999999", true, INT64_MAX, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.word);
        std::optional<NumberCommand> n = parseNumberCommand(c.word);
        ASSERT_EQ(n.has_value(), c.valid);
        if (!c.valid) continue;
        EXPECT_EQ(n->entry, c.entry);
        EXPECT_EQ(n->track, c.track);
    }
}

TEST(CommandValue, ReadsLikeStrtolIntoThirtyTwoBits) {
    EXPECT_EQ(commandValue(""), 0);
    EXPECT_EQ(commandValue("abc"), 0);
    EXPECT_EQ(commandValue("  -12x"), -12);
    EXPECT_EQ(commandValue("+7"), 7);
    EXPECT_EQ(commandValue("2147483647"), INT32_MAX);
    EXPECT_EQ(commandValue("4294967297"), 1);  // wraps like an int assignment
}

std::vector<std::string> playableNames(int count) {
    std::vector<std::string> names{".."};
    for (int i = 0; i < count; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "%05d.flac", i);
        names.push_back(name);
    }
    return names;
}

TEST(PlayQueue, OnlyExactPlayableSuffixesInListOrder) {
    std::vector<std::string> entries{"..", "sub", "a.flac", "b.txt", "c.FLAC", "d.Flac", "e.cue"};
    QueuePlan plan = planQueue(entries, "/music", "/music/c.FLAC", 1000, 512);
    EXPECT_EQ(plan.paths, (std::vector<std::string>{"/music/a.flac", "/music/c.FLAC"}));
    EXPECT_EQ(plan.index, 1);

    plan = planQueue({"x.wav", "y.mp3"}, "/", "/y.mp3", 1000, 512);
    EXPECT_EQ(plan.paths, (std::vector<std::string>{"/x.wav", "/y.mp3"}));
    EXPECT_EQ(plan.index, 1);
}

TEST(PlayQueue, MoreFilesThanSlots) {
    std::vector<std::string> names = playableNames(2500);
    // Selection among the first slots: the queue is the first slots.
    QueuePlan plan = planQueue(names, "/m", "/m/00999.flac", 1000, 512);
    ASSERT_EQ(plan.paths.size(), 1000u);
    EXPECT_EQ(plan.paths.front(), "/m/00000.flac");
    EXPECT_EQ(plan.index, 999);
    // Beyond them: the queue starts at the selection.
    plan = planQueue(names, "/m", "/m/01000.flac", 1000, 512);
    ASSERT_EQ(plan.paths.size(), 1000u);
    EXPECT_EQ(plan.paths.front(), "/m/01000.flac");
    EXPECT_EQ(plan.index, 0);
    // Near the end it holds what is left.
    plan = planQueue(names, "/m", "/m/02400.flac", 1000, 512);
    ASSERT_EQ(plan.paths.size(), 100u);
    EXPECT_EQ(plan.paths.back(), "/m/02499.flac");
}

TEST(PlayQueue, PathsThatDoNotFitAreLeftOut) {
    std::string folder = "/" + std::string(499, 'f');  // 500 bytes
    // 500 + "/" + 10 = 511 fits; one more byte does not.
    std::vector<std::string> entries{"123456.wav", "1234567.wav", "abcdef.wav"};
    QueuePlan plan = planQueue(entries, folder, folder + "/abcdef.wav", 1000, 512);
    ASSERT_EQ(plan.paths.size(), 2u);
    EXPECT_EQ(plan.paths[1], folder + "/abcdef.wav");
    EXPECT_EQ(plan.index, 1);
    for (const std::string& p : plan.paths) EXPECT_LT(p.size(), 512u);
}

TEST(ElapsedText, MinutesNeverWrap) {
    EXPECT_EQ(elapsedText(0), "time 00:00");
    EXPECT_EQ(elapsedText(9999), "time 00:09");
    EXPECT_EQ(elapsedText(61000), "time 01:01");
    EXPECT_EQ(elapsedText(75 * 60000), "time 75:00");
    EXPECT_EQ(elapsedText(100 * 60000 + 5000), "time 100:05");
}

}  // namespace
