#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "device/device.h"
#include "settings/settings.h"
#include "settings/tuning.h"
#include "tests/settings/test_files.h"

namespace {

class Sandbox : public ::testing::Test {
  protected:
    void TearDown() override {
        tuningSeams = TuningSeams{};
        deviceSeams = DeviceSeams{};
        settings = Settings{};
    }
    testfiles::TempDir dir_;
};

TEST_F(Sandbox, RedirectsTheSweepTheConfigurationAndRealTimeCalls) {
    applySandbox(nullptr);
    applySandbox("");  // an empty or missing folder changes nothing
    EXPECT_EQ("/etc/asound.conf", deviceSeams.asoundConfPath);
    EXPECT_TRUE(tuningSeams.realTimeAllowed);
    applySandbox(dir_.path().c_str());
    EXPECT_EQ(dir_ / "asound.conf", deviceSeams.asoundConfPath);

    std::filesystem::create_directories(dir_ / "proc/1/task/1");
    tuningSeams.configuredCpus = [] { return 4L; };
    settings.coresSelect = 1;
    applyCoreAffinity();
    EXPECT_EQ("1 0,1,2\n" + std::to_string(gettid()) + " 3\n",
              testfiles::readFile(dir_ / "affinity.log"));

    settings.rtPriority = 80;
    applyProcessTuning();
    const std::string log = testfiles::readFile(dir_ / "tuning.log");
    EXPECT_NE(std::string::npos, log.find("mlockall 3 skipped\n")) << log;
    EXPECT_NE(std::string::npos, log.find("scheduler 1 80 skipped\n")) << log;
    EXPECT_EQ(SCHED_OTHER, sched_getscheduler(0));
}

}  // namespace
