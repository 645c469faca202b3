// Pair corrections when config.dat is loaded, core sets, and the sweep and real-time
// tuning run inside a sandbox folder: these must never reach the real /proc,
// scheduler or /etc/asound.conf. The file itself is checked by the console test.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "device/device.h"
#include "settings/settings.h"
#include "settings/tuning.h"
#include "tests/support/vdac.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

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
        setColors(false);
    }
    void load(const Settings& stored) {
        auto bytes = reinterpret_cast<const uint8_t*>(&stored);
        writeFileBytes(dir_.file("config.dat"), {bytes, bytes + sizeof stored});
        loadSettings();
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

TEST_F(Sandboxed, LoadCorrectionsAndColours) {
    // Out-of-range fields are the settings file test's; these are the pairs.
    const std::pair<Settings, Settings> cases[] = {
        {{.periodFrames = 1024, .periodTimeUs = 500}, {.periodFrames = 1024, .periodTimeUs = -1}},
        {{.periodFrames = 0, .periodTimeUs = 500}, {.periodFrames = 0, .periodTimeUs = 500}},
        {{.bufferFrames = 4096, .bufferTimeUs = 9}, {.bufferFrames = 4096, .bufferTimeUs = -1}},
        {{.rtPriority = 99, .niceValue = -20}, {.rtPriority = 99, .niceValue = -20}},
        {{.dsdPcmRate = 352800}, {.dsdPcmRate = 352800}},
    };
    for (const auto& [stored, loaded] : cases) {
        load(stored);
        EXPECT_EQ(values(loaded), values(settings));
    }
    load(Settings{});
    EXPECT_STREQ("\033[1;32m", colorBrightGreen);
    load(Settings{.colorsOn = 0});
    EXPECT_STREQ("", colorReset);
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
    EXPECT_EQ(sweep(8, 1), Lines{me_ + " 7"});

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
