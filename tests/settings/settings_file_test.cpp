// config.dat: corrections on load, colours, and the whole record on save.
// Its byte layout is checked by the whole-program session test.
#include <sys/stat.h>

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "settings/settings.h"
#include "tests/settings/test_files.h"

namespace {

static_assert(sizeof(Settings) == 136, "the record is the file image");

std::vector<int32_t> values(const Settings& s) {  // readable failure output
    std::vector<int32_t> v(34);
    memcpy(v.data(), &s, sizeof s);
    return v;
}

std::string image(const Settings& s) {
    return std::string(reinterpret_cast<const char*>(&s), sizeof s);
}

class SettingsFile : public testing::Test {
  protected:
    void TearDown() override {
        settings = Settings{};
        setColors(false);
    }
    void load(const std::string& bytes) {
        settings = Settings{};
        testfiles::writeFile(dir_ / "config.dat", bytes);
        loadSettings();
    }
    testfiles::TempDir dir_;
    testfiles::ScopedChdir cd_{dir_.path()};
};

TEST_F(SettingsFile, LoadCorrectionsAndColours) {
    struct Case {
        Settings stored, loaded;
    } cases[] = {
        {{.periodFrames = 1024, .periodTimeUs = 500}, {.periodFrames = 1024, .periodTimeUs = -1}},
        {{.periodFrames = 0, .periodTimeUs = 500}, {.periodFrames = 0, .periodTimeUs = 500}},
        {{.bufferFrames = 4096, .bufferTimeUs = 9}, {.bufferFrames = 4096, .bufferTimeUs = -1}},
        {{.rtPriority = 100}, {.rtPriority = 0}},
        {{.rtPriority = 99, .niceValue = -20}, {.rtPriority = 99, .niceValue = -20}},
        {{.rtPriority = -1, .niceValue = 20}, {.rtPriority = 0, .niceValue = 0}},
        {{.folderDepth = 20, .niceValue = -21}, {.folderDepth = 19, .niceValue = 0}},
        {{.dsdPcmRate = 48000, .folderDepth = -4}, {.dsdPcmRate = 44100, .folderDepth = 0}},
        {{.dsdPcmRate = 352800}, {.dsdPcmRate = 352800}},
        // Left as stored: their readers deal with these values.
        {{.dsdMode = 2, .linesPerPage = 0, .coresSelect = 7},
         {.dsdMode = 2, .linesPerPage = 0, .coresSelect = 7}},
    };
    for (const Case& c : cases) {
        load(image(c.stored));
        EXPECT_EQ(values(c.loaded), values(settings));
    }
    load(image(Settings{}));
    EXPECT_STREQ("\033[1;32m", colorBrightGreen);
    load(image(Settings{.colorsOn = 0}));
    EXPECT_STREQ("", colorReset);
    std::filesystem::remove(dir_ / "config.dat");
    settings = Settings{};
    loadSettings();
    EXPECT_EQ(values(Settings{}), values(settings));
}

TEST_F(SettingsFile, SaveRewritesTheWholeRecordWithMode0666) {
    const Settings stored{.bufferFrames = 4096,
                          .dsdMode = 1,
                          .listPositions = {7, 1000},
                          .coresSelect = 2,
                          .niceValue = 5};
    load(image(stored) + std::string(64, '\x7f'));  // bytes past the record are ignored
    testfiles::writeFile(dir_ / "config.dat", std::string(300, 'x'));
    mode_t old = umask(022);
    saveSettings();
    umask(old);
    EXPECT_EQ(image(stored), testfiles::readFile(dir_ / "config.dat"));
    struct stat st {};
    ASSERT_EQ(0, stat((dir_ / "config.dat").c_str(), &st));
    EXPECT_EQ(0666u, st.st_mode & 0777);
}

}  // namespace
