#include <sys/stat.h>

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "settings/settings.h"
#include "tests/settings/test_files.h"

using testfiles::readFile;
using testfiles::writeFile;

namespace {

static_assert(sizeof(Settings) == 136, "the record is the file image");

// The record as its 34 values, for readable failure output.
std::vector<int32_t> values(const Settings& s) {
    std::vector<int32_t> v(34);
    memcpy(v.data(), &s, sizeof s);
    return v;
}

void putLE(std::string& bytes, int offset, int32_t value) {
    for (int b = 0; b < 4; ++b) bytes[offset + b] = static_cast<char>(uint32_t(value) >> (8 * b));
}

// The defaults, written out by hand from the file layout.
std::string defaultImage() {
    std::string bytes(136, '\0');
    for (int offset : {0, 4, 8, 12}) putLE(bytes, offset, -1);
    putLE(bytes, 24, 44100);
    putLE(bytes, 28, 1);
    putLE(bytes, 32, 100);
    return bytes;
}

class SettingsFile : public ::testing::Test {
  protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        settings = Settings{};
        setColors(false);
    }
    void load(const std::string& bytes) {
        reset();
        writeFile(dir_ / "config.dat", bytes);
        loadSettings();
    }
    testfiles::TempDir dir_;
    testfiles::ScopedChdir cd_{dir_.path()};
};

TEST_F(SettingsFile, MissingFileKeepsDefaultsAndColoursFollowTheFlag) {
    loadSettings();
    EXPECT_EQ(values(Settings{}), values(settings));
    EXPECT_STREQ("", colorBrightGreen);
    std::string bytes = defaultImage();
    load(bytes);
    EXPECT_STREQ("\033[1;32m", colorBrightGreen);
    putLE(bytes, 28, 0);
    load(bytes);
    EXPECT_STREQ("", colorReset);
}

TEST_F(SettingsFile, LoadCorrections) {
    struct Case {
        Settings stored, loaded;
    };
    const Case cases[] = {
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
        std::string image(136, '\0');
        memcpy(image.data(), &c.stored, 136);  // little-endian host, as the layout test checks
        load(image);
        EXPECT_EQ(values(c.loaded), values(settings));
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

    writeFile(dir_ / "config.dat", std::string(300, 'x'));
    saveSettings();
    EXPECT_EQ(image, readFile(dir_ / "config.dat"));
}

}  // namespace
