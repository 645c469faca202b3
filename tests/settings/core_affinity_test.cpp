#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "settings/settings.h"
#include "settings/tuning.h"
#include "tests/settings/test_files.h"

namespace {

std::vector<int> cpusOf(const cpu_set_t& set) {
    std::vector<int> out;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &set)) out.push_back(cpu);
    return out;
}

std::vector<int> range(int first, int last) {
    std::vector<int> out;
    for (int i = first; i <= last; ++i) out.push_back(i);
    return out;
}

TEST(CoreSets, TablesForOneTwoAndEightProcessors) {
    struct Case {
        long n;
        int select;
        bool act;
        std::vector<int> dedicated, shared;
    };
    const Case cases[] = {
        {1, 1, false, {}, {}},
        {-1, 1, false, {}, {}},  // sysconf failure
        {2, 0, true, {0, 1}, {}},
        {2, 1, true, {1}, {0}},
        {2, 2, true, {0, 1}, {0, 1}},
        {8, 0, true, range(0, 7), {}},
        {8, 1, true, {7}, range(0, 6)},
        {8, 2, true, {6, 7}, range(0, 5)},
        {2000, 1, true, {}, range(0, 1023)},  // past the set's 1024: never set
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.n << "/" << c.select);
        cpu_set_t dedicated, shared;
        memset(&dedicated, 0xff, sizeof dedicated);
        memset(&shared, 0xff, sizeof shared);
        EXPECT_EQ(c.act, coreSets(c.n, c.select, dedicated, shared));
        EXPECT_EQ(c.dedicated, cpusOf(dedicated));
        EXPECT_EQ(c.shared, cpusOf(shared));
    }
}

struct Call {
    pid_t tid;
    std::vector<int> cpus;
};
std::vector<Call> calls;
long fakeCpus = 8;

class CoreSweep : public ::testing::Test {
  protected:
    void SetUp() override {
        tuningSeams.procRoot = proc_.path() + "/";
        tuningSeams.configuredCpus = [] { return fakeCpus; };
        tuningSeams.setAffinity = [](pid_t tid, const cpu_set_t& set) {
            calls.push_back({tid, cpusOf(set)});
            return 0;
        };
        // Threads 100/101 of one process, 200 of another plus this very thread
        // (skipped), a process without tasks, and entries that are no processes.
        for (const char* d :
             {"100/task/100", "100/task/101", "200/task/200", "300", "self/task/9", "12x/task/12"})
            std::filesystem::create_directories(proc_ / d);
        std::filesystem::create_directories(proc_ / ("200/task/" + std::to_string(gettid())));
        testfiles::writeFile(proc_ / "400", "");
        testfiles::writeFile(proc_ / "100/task/555", "");
    }
    void TearDown() override {
        tuningSeams = TuningSeams{};
        settings = Settings{};
    }
    void sweep(long cpus, int select) {
        calls.clear();
        fakeCpus = cpus;
        settings.coresSelect = select;
        applyCoreAffinity();
    }
    testfiles::TempDir proc_;
};

TEST_F(CoreSweep, MovesEveryOtherThreadOffTheReservedCores) {
    sweep(8, 2);
    ASSERT_EQ(4u, calls.size());
    std::vector<pid_t> swept;
    for (size_t i = 0; i + 1 < calls.size(); ++i) {
        swept.push_back(calls[i].tid);
        EXPECT_EQ(range(0, 5), calls[i].cpus);
    }
    std::sort(swept.begin(), swept.end());
    EXPECT_EQ((std::vector<pid_t>{100, 101, 200}), swept);
    // The isolated thread is bound last, after the sweep.
    EXPECT_EQ(gettid(), calls.back().tid);
    EXPECT_EQ(range(6, 7), calls.back().cpus);
}

TEST_F(CoreSweep, NoSelectionOneProcessorOrNoProcOnlyTouchTheCaller) {
    sweep(8, 0);  // releases the calling thread to every core
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(gettid(), calls[0].tid);
    EXPECT_EQ(range(0, 7), calls[0].cpus);
    sweep(1, 1);
    EXPECT_TRUE(calls.empty());
    tuningSeams.procRoot = proc_ / "absent/";
    sweep(8, 1);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(std::vector<int>{7}, calls[0].cpus);
}

}  // namespace
