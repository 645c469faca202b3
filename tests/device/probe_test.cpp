#include <gtest/gtest.h>

#include "device/device.h"
#include "tests/settings/test_files.h"
#include "tests/support/vdac.h"

namespace {

constexpr int kS16 = 2, kS32 = 10, kS24_3 = 32, kDsdLE = 50, kDsdBE = 52;

TEST(FormatProbe, AnswersFromTheDevicesFormatListAndLeavesItClosed) {
    struct Case {
        std::vector<std::string> formats;
        std::vector<int> accepted;
    };
    const Case cases[] = {
        {{"S16_LE", "S24_3LE", "S32_LE", "DSD_U32_BE"}, {kS16, kS24_3, kS32, kDsdBE}},
        {{"S32_LE", "DSD_U32_LE"}, {kS32, kDsdLE}},
    };
    TempDir dir;
    for (const Case& c : cases) {
        VdacConfig config;
        config.formats = c.formats;
        config.logPath = dir.path() + "/events.log";
        std::remove(config.logPath.c_str());
        writeVdacConfig(dir.path() + "/alsa.conf", config);
        useAlsaConfig(dir.path() + "/alsa.conf");
        for (int code : {kDsdBE, kDsdLE, kS32, kS24_3, kS16}) {
            bool want = std::find(c.accepted.begin(), c.accepted.end(), code) != c.accepted.end();
            EXPECT_EQ(want, probeOutputFormat(code))
                << "format " << code << " on " << c.formats.front();
        }
        // Every probe closed its handle and none installed parameters.
        auto events = readVdacLog(config.logPath);
        EXPECT_EQ(5u, eventsOfKind(events, "open").size());
        EXPECT_EQ(5u, eventsOfKind(events, "close").size());
        EXPECT_TRUE(eventsOfKind(events, "hw_params").empty());
    }
}

TEST(FormatProbe, NoDeviceMeansNoFormat) {
    TempDir dir;
    const std::string conf = dir.path() + "/empty.conf";
    writeFileBytes(conf, {});
    useAlsaConfig(conf);
    testfiles::Capture err(stderr);
    EXPECT_FALSE(probeOutputFormat(kS16));
    EXPECT_FALSE(probeOutputFormat(kS32));
    EXPECT_EQ("", err.text());
}

}  // namespace
