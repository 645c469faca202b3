#include <sys/stat.h>

#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "settings/settings.h"
#include "tests/settings/test_files.h"

using testfiles::readFile;
using testfiles::writeFile;

namespace {

// File offsets of the scalar fields, as the file layout fixes them.
const std::map<std::string, int> kOffsets = {
    {"periodFrames", 0},  {"periodTimeUs", 4}, {"bufferFrames", 8}, {"bufferTimeUs", 12},
    {"directInput", 16},  {"dsdMode", 20},     {"dsdPcmRate", 24},  {"colorsOn", 28},
    {"linesPerPage", 32}, {"folderDepth", 36}, {"rwAccess", 120},   {"coresSelect", 124},
    {"rtPriority", 128},  {"niceValue", 132}};

int32_t field(const Settings& s, const std::string& name) {
    const std::map<std::string, int32_t> v = {
        {"periodFrames", s.periodFrames}, {"periodTimeUs", s.periodTimeUs},
        {"bufferFrames", s.bufferFrames}, {"bufferTimeUs", s.bufferTimeUs},
        {"directInput", s.directInput},   {"dsdMode", s.dsdMode},
        {"dsdPcmRate", s.dsdPcmRate},     {"colorsOn", s.colorsOn},
        {"linesPerPage", s.linesPerPage}, {"folderDepth", s.folderDepth},
        {"rwAccess", s.rwAccess},         {"coresSelect", s.coresSelect},
        {"rtPriority", s.rtPriority},     {"niceValue", s.niceValue}};
    return v.at(name);
}

void putLE(std::string& bytes, int offset, int32_t value) {
    for (int b = 0; b < 4; ++b) bytes[offset + b] = static_cast<char>(uint32_t(value) >> (8 * b));
}

// A valid 136-byte image of the defaults.
std::string defaultImage() {
    std::string bytes(136, '\0');
    putLE(bytes, 0, -1);
    putLE(bytes, 4, -1);
    putLE(bytes, 8, -1);
    putLE(bytes, 12, -1);
    putLE(bytes, 24, 44100);
    putLE(bytes, 28, 1);
    putLE(bytes, 32, 100);
    return bytes;
}

class SettingsFile : public ::testing::Test {
  protected:
    void SetUp() override {
        settings = Settings{};
        setColors(false);
    }
    void TearDown() override {
        settings = Settings{};
        setColors(false);
    }
    void load(const std::string& bytes) {
        writeFile(dir_ / "config.dat", bytes);
        loadSettings();
    }
    testfiles::TempDir dir_;
    testfiles::ScopedChdir cd_{dir_.path()};
};

TEST_F(SettingsFile, MissingFileKeepsDefaultsAndLeavesColoursOff) {
    loadSettings();
    EXPECT_EQ(0, memcmp(&settings, &static_cast<const Settings&>(Settings{}), sizeof settings));
    EXPECT_STREQ("", colorBrightGreen);
    EXPECT_STREQ("", colorReset);
}

struct Correction {
    std::vector<std::pair<std::string, int32_t>> stored;
    std::vector<std::pair<std::string, int32_t>> loaded;
};

TEST_F(SettingsFile, LoadCorrections) {
    const Correction cases[] = {
        {{{"periodFrames", 1024}, {"periodTimeUs", 500}},
         {{"periodFrames", 1024}, {"periodTimeUs", -1}}},
        {{{"periodFrames", 0}, {"periodTimeUs", 500}},
         {{"periodFrames", 0}, {"periodTimeUs", 500}}},
        {{{"bufferFrames", 4096}, {"bufferTimeUs", 100000}},
         {{"bufferFrames", 4096}, {"bufferTimeUs", -1}}},
        {{{"bufferFrames", -1}, {"bufferTimeUs", 100000}}, {{"bufferTimeUs", 100000}}},
        {{{"rtPriority", -1}}, {{"rtPriority", 0}}},
        {{{"rtPriority", 100}}, {{"rtPriority", 0}}},
        {{{"rtPriority", 99}}, {{"rtPriority", 99}}},
        {{{"niceValue", -21}}, {{"niceValue", 0}}},
        {{{"niceValue", 20}}, {{"niceValue", 0}}},
        {{{"niceValue", -20}}, {{"niceValue", -20}}},
        {{{"niceValue", 19}}, {{"niceValue", 19}}},
        {{{"folderDepth", -4}}, {{"folderDepth", 0}}},
        {{{"folderDepth", 20}}, {{"folderDepth", 19}}},
        {{{"folderDepth", 7}}, {{"folderDepth", 7}}},
        {{{"dsdPcmRate", 48000}}, {{"dsdPcmRate", 44100}}},
        {{{"dsdPcmRate", 352800}}, {{"dsdPcmRate", 352800}}},
        // Left as stored: the readers treat these values themselves.
        {{{"coresSelect", 7}, {"dsdMode", 2}, {"linesPerPage", 0}},
         {{"coresSelect", 7}, {"dsdMode", 2}, {"linesPerPage", 0}}},
    };
    for (const Correction& c : cases) {
        settings = Settings{};
        std::string bytes = defaultImage();
        for (auto& [name, value] : c.stored) putLE(bytes, kOffsets.at(name), value);
        load(bytes);
        for (auto& [name, value] : c.loaded)
            EXPECT_EQ(value, field(settings, name))
                << name << " after storing " << c.stored.front().first;
    }
}

TEST_F(SettingsFile, ColourStringsFollowTheStoredFlag) {
    std::string bytes = defaultImage();
    load(bytes);
    EXPECT_STREQ("\033[1;32m", colorBrightGreen);
    EXPECT_STREQ("\033[1;33m", colorBrightYellow);
    EXPECT_STREQ("\033[0;36m", colorCyan);
    EXPECT_STREQ("\033[0;33m", colorYellow);
    EXPECT_STREQ("\033[1;36m", colorBrightCyan);
    EXPECT_STREQ("\033[0m", colorReset);
    putLE(bytes, 28, 0);
    load(bytes);
    EXPECT_STREQ("", colorBrightGreen);
    EXPECT_STREQ("", colorReset);
}

// A short file overlays only the bytes it holds; a cut field keeps the high
// bytes of its default.
TEST_F(SettingsFile, ShortFilesOverlayTheBytesPresent) {
    std::string full = defaultImage();
    putLE(full, 0, 0x00000800);    // periodFrames 2048
    putLE(full, 24, 0x00015888);   // dsdPcmRate 88200
    putLE(full, 36, 3);            // folderDepth
    putLE(full, 40 + 3 * 4, 250);  // listPositions[3]
    putLE(full, 132, -5);          // niceValue
    struct Case {
        size_t length;
        int32_t periodFrames, dsdPcmRate, position3, niceValue;
    };
    const Case cases[] = {
        {0, -1, 44100, 0, 0},
        {1, static_cast<int32_t>(0xFFFFFF00), 44100, 0, 0},  // low byte 0x00 over -1
        {2, static_cast<int32_t>(0xFFFF0800), 44100, 0, 0},
        {26, 2048, 44100, 0, 0},  // 0x5888 over 0xAC44 gives no known rate
        {60, 2048, 88200, 250, 0},
        {135, 2048, 88200, 250, 0},  // three bytes of -5 over 0: out of range, so 0
        {136, 2048, 88200, 250, -5},
    };
    for (const Case& c : cases) {
        settings = Settings{};
        load(full.substr(0, c.length));
        EXPECT_EQ(c.periodFrames, settings.periodFrames) << c.length;
        EXPECT_EQ(c.dsdPcmRate, settings.dsdPcmRate) << c.length;
        EXPECT_EQ(c.position3, settings.listPositions[3]) << c.length;
        EXPECT_EQ(c.niceValue, settings.niceValue) << c.length;
    }
}

TEST_F(SettingsFile, SaveWritesTheLayoutWithMode0666AndDropsExtraBytes) {
    std::string image = defaultImage();
    putLE(image, 16, 1);
    putLE(image, 20, 1);
    putLE(image, 36, 2);
    for (int i = 0; i < 20; ++i) putLE(image, 40 + i * 4, 1000 + i);
    putLE(image, 120, 1);
    putLE(image, 124, 2);
    putLE(image, 128, 80);
    putLE(image, 132, -20);
    load(image + std::string(64, '\x7f'));

    mode_t old = umask(022);
    saveSettings();
    umask(old);
    EXPECT_EQ(image, readFile(dir_ / "config.dat"));
    struct stat st {};
    ASSERT_EQ(0, stat((dir_ / "config.dat").c_str(), &st));
    EXPECT_EQ(0666u, st.st_mode & 0777);

    // Saving an existing, longer file truncates it.
    writeFile(dir_ / "config.dat", std::string(300, 'x'));
    saveSettings();
    EXPECT_EQ(136u, readFile(dir_ / "config.dat").size());
}

}  // namespace
