// config.dat as a file (damaged ones load field by field and are named in one
// line; random ones are the settings fuzz target's, a save replaces it whole or not at all, only
// regular files are read; a FIFO or a folder in its place is met in tests/app/hostile_test.cpp),
// and the core sets, sweep and real-time tuning run inside a sandbox folder so
// they never reach the real /proc, scheduler or /etc/asound.conf.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "device/device.h"
#include "settings/safe_file.h"
#include "settings/settings.h"
#include "settings/tuning.h"
#include "tests/support/vdac.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Bytes = std::vector<uint8_t>;

Lines readLines(const std::string& path) {
    std::ifstream in(path);
    Lines lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<int32_t> values(const Settings& s) {  // readable failure output
    std::vector<int32_t> v(sizeof s / 4);
    memcpy(v.data(), &s, sizeof s);
    return v;
}

Bytes bytesOf(const Settings& s) {
    auto p = reinterpret_cast<const uint8_t*>(&s);
    return {p, p + sizeof s};
}

long fakeCpus = 8;

class Sandboxed : public testing::Test {
  protected:
    void SetUp() override {
        fs::current_path(dir_.path());  // config.dat is read from here
        applySandbox(dir_.path().c_str());
        tuningSeams.configuredCpus = [] { return fakeCpus; };
    }
    void TearDown() override {
        fs::current_path(cwd_);
        tuningSeams = TuningSeams{};
        deviceSeams = DeviceSeams{};
        settings = Settings{};
        fileWriteSeam = nullptr;
        setColors(false);
    }
    // Loads bytes (none: the file as it is) over fresh defaults; returns stderr.
    std::string load(const Bytes* bytes) {
        if (bytes) writeFileBytes(dir_.file("config.dat"), *bytes);
        settings = Settings{};
        testing::internal::CaptureStderr();
        loadSettings();
        return testing::internal::GetCapturedStderr();
    }
    std::string load(const Bytes& bytes) { return load(&bytes); }
    std::string save() {
        testing::internal::CaptureStderr();
        saveSettings();
        return testing::internal::GetCapturedStderr();
    }
    Lines names() const {
        Lines out;
        for (const auto& e : fs::directory_iterator(dir_.path()))
            out.push_back(e.path().filename());
        return out;
    }
    Lines sweep(long cpus, int select) {
        fs::remove(dir_.file("affinity.log"));
        fakeCpus = cpus;
        settings.coresSelect = select;
        applyCoreAffinity();
        return readLines(dir_.file("affinity.log"));
    }
    const fs::path cwd_ = fs::current_path();
    TempDir dir_;
    const std::string me_ = std::to_string(gettid());
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

TEST_F(Sandboxed, DamagedFilesKeepTheirGoodFieldsAndAreNamedInOneLine) {
    const Bytes good = bytesOf(kGood);
    Settings most = kGood, fixed = kGood, bad = kGood;
    most.niceValue = 0;
    // Values no command stores; the fields around them are kept.
    bad.directInput = 2, bad.dsdMode = 7, bad.dsdPcmRate = 48000, bad.folderDepth = 20;
    bad.listPositions[7] = -1, bad.rwAccess = -1, bad.coresSelect = 3, bad.rtPriority = 100;
    bad.niceValue = 20;
    fixed.directInput = 0, fixed.dsdMode = 0, fixed.dsdPcmRate = 44100, fixed.folderDepth = 0;
    fixed.rwAccess = 0, fixed.coresSelect = 0, fixed.rtPriority = 0, fixed.niceValue = 0;
    Bytes longer = good;
    longer.insert(longer.end(), {1, 2, 3, 4});
    const std::string all =
        "periodFrames, periodTimeUs, bufferFrames, bufferTimeUs, directInput, dsdMode, "
        "dsdPcmRate, colorsOn, linesPerPage, folderDepth, listPositions, rwAccess, coresSelect, "
        "rtPriority, niceValue\n";
    const struct {
        Bytes bytes;
        std::string message;
        Settings loaded;
    } cases[] = {
        {good, "", kGood},
        {Bytes(good.begin(), good.end() - 1),
         "config.dat is damaged (size 135, not 136 bytes): defaults used for niceValue\n", most},
        {longer, "config.dat is damaged (size 140, not 136 bytes)\n", kGood},
        {Bytes{}, "config.dat is damaged (size 0, not 136 bytes): defaults used for " + all,
         Settings{}},
        {Bytes{1, 0, 0}, "config.dat is damaged (size 3, not 136 bytes): defaults used for " + all,
         Settings{}},
        {bytesOf(bad),
         "config.dat is damaged: defaults used for directInput, dsdMode, dsdPcmRate, "
         "folderDepth, listPositions, rwAccess, coresSelect, rtPriority, niceValue\n",
         fixed},
        // The pair corrections are no damage.
        {bytesOf({.periodFrames = 1024, .periodTimeUs = 500}),
         "",
         {.periodFrames = 1024, .periodTimeUs = -1}},
        {bytesOf({.periodFrames = 0, .periodTimeUs = 500}),
         "",
         {.periodFrames = 0, .periodTimeUs = 500}},
        {bytesOf({.bufferFrames = 4096, .bufferTimeUs = 9}),
         "",
         {.bufferFrames = 4096, .bufferTimeUs = -1}},
    };
    for (const auto& [bytes, message, loaded] : cases) {
        EXPECT_EQ(load(bytes), message) << bytes.size();
        EXPECT_EQ(values(settings), values(loaded)) << message;
    }
    // The colours follow the file's flag.
    load(Bytes{});
    EXPECT_STREQ("\033[1;32m", colorBrightGreen);
    load(bytesOf({.colorsOn = 0}));
    EXPECT_STREQ("", colorReset);
}

TEST_F(Sandboxed, SaveReplacesTheFileWholeOrLeavesItAsItWas) {
    const mode_t umaskBefore = umask(077);
    settings = kGood;
    EXPECT_EQ(save(), "");
    umask(umaskBefore);
    EXPECT_EQ(readFileBytes(dir_.file("config.dat")), bytesOf(kGood));
    EXPECT_EQ(fs::status(dir_.file("config.dat")).permissions(), fs::perms(0666));
    EXPECT_EQ(names(), Lines{"config.dat"});  // no temporary left behind

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
        EXPECT_EQ(names(), Lines{"config.dat"});
    }
}

TEST_F(Sandboxed, OnlyRegularFilesAreOpened) {
    writeFileBytes(dir_.file("plain"), {1, 2, 3});
    fs::create_symlink(dir_.file("plain"), dir_.file("link"));
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, "sock", sizeof addr.sun_path - 1);  // relative: short enough
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);

    for (const char* name : {"plain", "link"}) {
        std::string why;
        off_t size = 0;
        int fd = openRegularFile(name, why, &size);
        EXPECT_TRUE(fd >= 0 && size == 3) << name << ": " << why;
        close(fd);
    }
    const std::pair<std::string, std::string> refused[] = {
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
}

TEST_F(Sandboxed, CoreSetsAndTheSweepThatMovesEveryOtherThreadOffThem) {
    // Two processes, one holding this very thread (skipped), a process without
    // tasks, and entries that are no processes or no threads.
    for (const std::string& d : Lines{"100/task/100", "100/task/101", "200/task/200",
                                      "200/task/" + me_, "300", "self/task/9", "12x/task/12"})
        fs::create_directories(dir_.file("proc/" + d));
    writeFileBytes(dir_.file("proc/400"), {});
    writeFileBytes(dir_.file("proc/100/task/555"), {});
    Lines calls = sweep(8, 2);
    ASSERT_EQ(calls.size(), 4u);
    std::sort(calls.begin(), calls.end() - 1);  // the isolated thread is bound last
    EXPECT_EQ(calls,
              (Lines{"100 0,1,2,3,4,5", "101 0,1,2,3,4,5", "200 0,1,2,3,4,5", me_ + " 6,7"}));
    fs::remove_all(dir_.file("proc"));

    fs::create_directories(dir_.file("proc/100/task/100"));
    const std::tuple<long, int, Lines> cases[] = {
        {1, 1, {}},
        {-1, 1, {}},  // sysconf failure
        {2, 0, {me_ + " 0,1"}},
        {8, 0, {me_ + " 0,1,2,3,4,5,6,7"}},  // releases the caller only
        {2, 1, {"100 0", me_ + " 1"}},
        {2, 2, {"100 0,1", me_ + " 0,1"}},  // two processors cannot spare two
        {8, 1, {"100 0,1,2,3,4,5,6", me_ + " 7"}}};
    for (const auto& [cpus, select, expected] : cases)
        EXPECT_EQ(sweep(cpus, select), expected) << cpus << "/" << select;
    cpu_set_t dedicated, shared;
    memset(&dedicated, 0xff, sizeof dedicated);         // cleared first
    ASSERT_TRUE(coreSets(2000, 1, dedicated, shared));  // past the set's 1024: never set
    EXPECT_EQ(CPU_COUNT(&dedicated), 0);
    EXPECT_EQ(CPU_COUNT(&shared), CPU_SETSIZE);
}

TEST_F(Sandboxed, RealTimeIsRecordedNotTakenAndAnEmptyFolderIsNoSandbox) {
    settings.rtPriority = 80;
    applyProcessTuning();
    EXPECT_EQ(readLines(dir_.file("tuning.log")),
              (Lines{"rlimit_nice 20", "nice 0", "mlockall 3 skipped", "scheduler 1 80 skipped"}));
    EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    EXPECT_EQ(deviceSeams.asoundConfPath, dir_.file("asound.conf"));

    TearDown();
    applySandbox(nullptr);
    applySandbox("");  // not "/": the real /proc would be swept
    EXPECT_EQ(deviceSeams.asoundConfPath, "/etc/asound.conf");
    EXPECT_EQ(tuningSeams.procRoot, "/proc/");
}

}  // namespace
