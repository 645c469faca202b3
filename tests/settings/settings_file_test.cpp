// config.dat as a file: a damaged one loads field by field and is named in
// one line, a save replaces it whole or leaves it exactly as it was, and
// nothing but a regular file is ever read.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "settings/safe_file.h"
#include "settings/settings.h"
#include "tests/support/vdac.h"

namespace {

namespace fs = std::filesystem;

std::vector<int32_t> values(const Settings& s) {
    std::vector<int32_t> v(sizeof s / 4);
    memcpy(v.data(), &s, sizeof s);
    return v;
}

std::vector<uint8_t> bytesOf(const Settings& s) {
    auto p = reinterpret_cast<const uint8_t*>(&s);
    return {p, p + sizeof s};
}

const char* const kAllFields =
    "periodFrames, periodTimeUs, bufferFrames, bufferTimeUs, directInput, dsdMode, dsdPcmRate, "
    "colorsOn, linesPerPage, folderDepth, listPositions, rwAccess, coresSelect, rtPriority, "
    "niceValue";

class SettingsFile : public testing::Test {
  protected:
    void SetUp() override { fs::current_path(dir_.path()); }
    void TearDown() override {
        fs::current_path(cwd_);
        settings = Settings{};
        fileWriteSeam = nullptr;
        setColors(false);
    }
    // Loads bytes as config.dat over fresh defaults; returns what stderr got.
    std::string load(const std::vector<uint8_t>& bytes) {
        writeFileBytes(dir_.file("config.dat"), bytes);
        return loadNow();
    }
    std::string loadNow() {
        settings = Settings{};
        testing::internal::CaptureStderr();
        loadSettings();
        return testing::internal::GetCapturedStderr();
    }
    std::string save() {
        testing::internal::CaptureStderr();
        saveSettings();
        return testing::internal::GetCapturedStderr();
    }
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(dir_.path()))
            out.push_back(e.path().filename());
        return out;
    }
    const fs::path cwd_ = fs::current_path();
    TempDir dir_;
};

const Settings kGood{.periodFrames = -24,
                     .bufferTimeUs = 200000,
                     .directInput = 1,
                     .dsdMode = 2,
                     .dsdPcmRate = 176400,
                     .colorsOn = 7,
                     .linesPerPage = 0,
                     .folderDepth = 19,
                     .listPositions = {5, 0, 300},
                     .rwAccess = 1,
                     .coresSelect = 2,
                     .rtPriority = 99,
                     .niceValue = -20};

TEST_F(SettingsFile, DamagedFilesKeepTheirGoodFieldsAndAreNamedInOneLine) {
    std::vector<uint8_t> good = bytesOf(kGood);
    EXPECT_EQ(load(good), "");
    EXPECT_EQ(values(settings), values(kGood));

    Settings most = kGood;
    most.niceValue = 0;
    const std::vector<uint8_t> cut(good.begin(), good.end() - 1), longer = [&] {
        auto b = good;
        b.insert(b.end(), {1, 2, 3, 4});
        return b;
    }();
    EXPECT_EQ(load(cut),
              "config.dat is damaged (size 135, not 136 bytes): defaults used for "
              "niceValue\n");
    EXPECT_EQ(values(settings), values(most));
    EXPECT_EQ(load(longer), "config.dat is damaged (size 140, not 136 bytes)\n");
    EXPECT_EQ(values(settings), values(kGood));
    for (size_t size : {0, 1, 3}) {
        EXPECT_EQ(load(std::vector<uint8_t>(good.begin(), good.begin() + size)),
                  "config.dat is damaged (size " + std::to_string(size) +
                      ", not 136 bytes): defaults used for " + kAllFields + "\n");
        EXPECT_EQ(values(settings), values(Settings{}));
    }
    EXPECT_TRUE(colorReset[0] != 0);  // the colours follow the file's (default) flag

    // Values no command stores; the fields around them are kept.
    Settings bad = kGood;
    bad.directInput = 2;
    bad.dsdMode = 7;
    bad.dsdPcmRate = 48000;
    bad.folderDepth = 20;
    bad.listPositions[7] = -1;
    bad.rwAccess = -1;
    bad.coresSelect = 3;
    bad.rtPriority = 100;
    bad.niceValue = 20;
    EXPECT_EQ(load(bytesOf(bad)),
              "config.dat is damaged: defaults used for directInput, dsdMode, dsdPcmRate, "
              "folderDepth, listPositions, rwAccess, coresSelect, rtPriority, niceValue\n");
    Settings fixed = kGood;
    fixed.directInput = 0, fixed.dsdMode = 0, fixed.dsdPcmRate = 44100, fixed.folderDepth = 0;
    fixed.rwAccess = 0, fixed.coresSelect = 0, fixed.rtPriority = 0, fixed.niceValue = 0;
    EXPECT_EQ(values(settings), values(fixed));

    // The pair corrections are no damage.
    EXPECT_EQ(load(bytesOf({.periodFrames = 1024, .periodTimeUs = 500})), "");
    EXPECT_EQ(settings.periodTimeUs, -1);
}

// Whatever the bytes, every field ends up as stored or as its default, in
// range, and there is one line exactly when something was not taken.
TEST_F(SettingsFile, RandomFilesLoadIntoRangeWithAtMostOneLine) {
    std::mt19937 random(16);
    const std::vector<int32_t> defaults = values(Settings{});
    for (int round = 0; round < 300; ++round) {
        std::vector<uint8_t> bytes(round % 3 == 0 ? random() % 200 : 136);
        for (uint8_t& b : bytes) b = uint8_t(random() % 4 == 0 ? 0 : random());
        // Some rounds hold plausible small values, so good fields occur too.
        if (round % 2) {
            for (size_t i = 0; i + 4 <= bytes.size(); i += 4)
                bytes[i + 1] = bytes[i + 2] = bytes[i + 3] = 0, bytes[i] %= 3;
        }
        const std::string line = load(bytes);
        const std::vector<int32_t> got = values(settings);
        bool allTaken = bytes.size() == 136;
        for (size_t i = 0; i < got.size(); ++i) {
            int32_t raw = 0;
            if ((i + 1) * 4 <= bytes.size()) memcpy(&raw, bytes.data() + i * 4, 4);
            bool paired = (i == 1 && got[0] > 0) || (i == 3 && got[2] > 0);  // corrected to -1
            EXPECT_TRUE(got[i] == defaults[i] || got[i] == raw || (paired && got[i] == -1))
                << "round " << round << " field " << i;
            if ((i + 1) * 4 > bytes.size() || (got[i] != raw && !paired)) allTaken = false;
        }
        const Settings& s = settings;
        EXPECT_TRUE(s.directInput >= 0 && s.directInput <= 1 && s.dsdMode >= 0 && s.dsdMode <= 2 &&
                    s.folderDepth >= 0 && s.folderDepth <= 19 && s.rwAccess >= 0 &&
                    s.rwAccess <= 1 && s.coresSelect >= 0 && s.coresSelect <= 2 &&
                    s.rtPriority >= 0 && s.rtPriority <= 99 && s.niceValue >= -20 &&
                    s.niceValue <= 19 && s.dsdPcmRate % 44100 == 0)
            << "round " << round;
        for (int32_t p : s.listPositions) EXPECT_GE(p, 0);
        EXPECT_EQ(line.empty(), allTaken) << "round " << round << ": " << line;
        EXPECT_LE(std::count(line.begin(), line.end(), '\n'), 1);
    }
}

TEST_F(SettingsFile, SaveReplacesTheFileWholeOrLeavesItAsItWas) {
    const mode_t umaskBefore = umask(077);
    settings = kGood;
    EXPECT_EQ(save(), "");
    umask(umaskBefore);
    EXPECT_EQ(readFileBytes(dir_.file("config.dat")), bytesOf(kGood));
    EXPECT_EQ(fs::status(dir_.file("config.dat")).permissions(), fs::perms(0666));
    EXPECT_EQ(names(), std::vector<std::string>{"config.dat"});

    // A disk that fills up at once, and one that takes a few bytes first.
    static int calls;
    using Write = ssize_t (*)(int, const void*, size_t);
    const Write failures[] = {
        [](int, const void*, size_t) -> ssize_t { return errno = ENOSPC, -1; },
        [](int fd, const void* p, size_t n) -> ssize_t {
            if (calls++ == 0) return write(fd, p, n < 10 ? n : 10);
            return errno = ENOSPC, -1;
        }};
    for (Write failure : failures) {
        calls = 0;
        fileWriteSeam = failure;
        settings = Settings{.linesPerPage = 3};
        EXPECT_EQ(save(), "Can't save config.dat: No space left on device\n");
        EXPECT_EQ(readFileBytes(dir_.file("config.dat")), bytesOf(kGood));
        EXPECT_EQ(names(), std::vector<std::string>{"config.dat"});
    }
    fileWriteSeam = nullptr;

    // A folder in the file's place cannot be replaced; a FIFO can.
    fs::remove(dir_.file("config.dat"));
    fs::create_directory(dir_.file("config.dat"));
    EXPECT_EQ(save(), "Can't save config.dat: Is a directory\n");
    EXPECT_TRUE(fs::is_directory(dir_.file("config.dat")));
    EXPECT_EQ(names(), std::vector<std::string>{"config.dat"});
    fs::remove(dir_.file("config.dat"));
    ASSERT_EQ(mkfifo("config.dat", 0644), 0);
    EXPECT_EQ(save(), "");
    EXPECT_EQ(readFileBytes(dir_.file("config.dat")), bytesOf(settings));
}

TEST_F(SettingsFile, OnlyRegularFilesAreOpenedAndNoneBlocks) {
    writeFileBytes(dir_.file("plain"), {1, 2, 3});
    fs::create_symlink(dir_.file("plain"), dir_.file("link"));
    fs::create_directory(dir_.file("folder"));
    ASSERT_EQ(mkfifo(dir_.file("fifo").c_str(), 0644), 0);
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, "sock", sizeof addr.sun_path - 1);  // relative: short enough
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);

    for (const char* name : {"plain", "link"}) {
        std::string why;
        off_t size = 0;
        int fd = openRegularFile(name, why, &size);
        EXPECT_GE(fd, 0) << name << ": " << why;
        EXPECT_EQ(size, 3);
        close(fd);
    }
    const std::pair<std::string, std::string> refused[] = {
        {"folder", "not a regular file (a folder)"},
        {"fifo", "not a regular file (a FIFO)"},
        {"sock", "not a regular file (a socket)"},
        {"/dev/null", "not a regular file (a character device)"},
        {"missing", "No such file or directory"}};
    for (const auto& [name, reason] : refused) {
        std::string why;
        errno = 0;
        EXPECT_EQ(openRegularFile(name.c_str(), why), -1) << name;
        EXPECT_EQ(why, reason);
        EXPECT_EQ(errno == ENOENT, name == "missing") << name;
    }
    close(sock);

    // A FIFO named config.dat: defaults, at once, and the reason.
    ASSERT_EQ(mkfifo("config.dat", 0644), 0);
    EXPECT_EQ(loadNow(), "config.dat: not a regular file (a FIFO); default settings used\n");
    EXPECT_EQ(values(settings), values(Settings{}));
    fs::remove("config.dat");
    EXPECT_EQ(loadNow(), "");  // no file at all is the first start: silent
}

}  // namespace
