// Console sessions across restarts: settings, folders and paging, path.txt,
// and the card selection writing the sandbox's ALSA configuration.
#include <gtest/gtest.h>

#include "console_run.h"

namespace {

class Session : public testing::Test {
  protected:
    void SetUp() override {
        music_ = fx_.workdir + "/music";
        album_ = music_ + "/Album";
        for (const std::string& d : {music_, album_, music_ + "/Other"}) mkdir(d.c_str(), 0755);
        for (const char* f : {"01.flac", "02.wav", "notes.txt", "03.FLAC", "disc.cue"})
            writeText(album_ + "/" + f, "");
        writeText(fx_.workdir + "/path.txt", music_);
    }
    // Sends one line and waits until stdout has grown past `marker`.
    void step(ProgramRun& run, const std::string& line, const std::string& marker) {
        size_t from = run.out().size();
        run.send(line);
        ASSERT_TRUE(run.waitFor(Stream::Out, marker, kWait, from))
            << "after " << line << " got: " << run.out().substr(from);
    }
    PlayerFixture fx_;
    std::string music_, album_;
};

TEST_F(Session, SettingsPersistAcrossRestarts) {
    ProgramRun first;
    ASSERT_EQ(runSession(fx_, first, "pf256\nbt50000\ndi\ncs1\nrw\npcm176\nlp0\ncl0\nni7\nx\n"), 0);
    std::string config = fileText(fx_.workdir + "/config.dat");
    ASSERT_EQ(config.size(), 136u);
    EXPECT_EQ(fileMode(fx_.workdir + "/config.dat"), 0666);
    EXPECT_EQ(fieldAt(config, 0), 256);      // period frames
    EXPECT_EQ(fieldAt(config, 12), 50000);   // buffer time
    EXPECT_EQ(fieldAt(config, 24), 176400);  // DSD to PCM rate
    EXPECT_EQ(fieldAt(config, 32), 0);       // lines per page, stored as typed
    EXPECT_EQ(fieldAt(config, 124), 1);      // single core

    ProgramRun second;
    ASSERT_EQ(runSession(fx_, second, "x\n"), 0);
    EXPECT_NE(second.out().find("Mode: Direct Input\nProcess priority: 0\nProcess nice: 7\n"
                                "ALSA Period: 256 frames\nALSA Buffer: 50000 us\n"),
              std::string::npos);
    EXPECT_NE(second.out().find("176400\nBuffer access mode: RW\nCores: single core\n"),
              std::string::npos);
    // A stored page length of 0 lists as 100: the whole folder appears.
    EXPECT_NE(second.out().find("2    " + music_ + "/Other\n"), std::string::npos);
}

TEST_F(Session, FoldersPagingAndThePathFile) {
    ProgramRun run;
    ASSERT_TRUE(fx_.start(run, {}));
    ASSERT_TRUE(run.waitFor(Stream::Out, "2    " + music_ + "/Other\n", kWait));
    step(run, "cl0\n", "Colors mode off\n");
    step(run, "1\n", "0    ..\n1    " + album_ + "/01.flac\n");
    step(run, "lp2\n", "Lines per page: 2\n");
    // Album: .., 01.flac, 02.wav, 03.FLAC, disc.cue (notes.txt is not listed).
    step(run, "z\n", "\n2    " + album_ + "/02.wav\n3    " + album_ + "/03.FLAC\n");
    step(run, "Z\n", "\n4    " + album_ + "/disc.cue\n");
    step(run, "z\n", "\n3    " + album_ + "/03.FLAC\n4    " + album_ + "/disc.cue\n");
    step(run, "a\n", "\n1    " + album_ + "/01.flac\n2    " + album_ + "/02.wav\n");
    step(run, "0\n", "0    ..\n1    " + music_ + "/Album\n");
    step(run, "1\n", "0    ..\n1    " + album_ + "/01.flac\n");
    run.send("x\n");
    EXPECT_EQ(run.waitExit(kWait), 0);
    EXPECT_EQ(fileText(fx_.workdir + "/path.txt"), album_);
    EXPECT_EQ(fileMode(fx_.workdir + "/path.txt"), 0666);

    // The next start lists the folder it left, at the page it left.
    ProgramRun again;
    ASSERT_EQ(runSession(fx_, again, "\n\n"), 0);  // Enter twice: entry 0, twice up
    std::string out = again.out();
    size_t album = out.find("\n0    ..\n1    " + album_ + "/01.flac\n");
    EXPECT_NE(album, std::string::npos) << out;
    EXPECT_NE(out.find("\n1    " + music_ + "/Album\n", album), std::string::npos);
    EXPECT_EQ(fileText(fx_.workdir + "/path.txt"), fx_.workdir);
}

TEST_F(Session, CardSelectionWritesTheSandboxConfiguration) {
    // Software name hints stand in for the cards ALSA would list.
    std::ofstream(fx_.confPath, std::ios::app)
        << "namehint.pcm {\n a \"hw:CARD=VDAC,DEV=0|Virtual DAC\"\n"
           " b \"plughw:CARD=VDAC,DEV=0|Plug\"\n c \"sysdefault:CARD=VDAC|Default\"\n}\n";
    std::string before = fileText("/etc/asound.conf");
    ProgramRun run;
    ASSERT_EQ(runSession(fx_, run, "card\n1\ncard\n7\nlp5\nx\n"), 0);
    EXPECT_NE(run.out().find("Select Device:\n0   VDAC,DEV=0\nVirtual DAC\n\n1   VDAC\nDefault\n\n"
                             "\nCard number>Device: VDAC\n"),
              std::string::npos)
        << run.out();
    EXPECT_EQ(fileText(fx_.sandbox + "/asound.conf"),
              "pcm.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n"
              "ctl.!default\n{\ntype hw\ncard VDAC\ndevice 0\n}\n");
    // A number outside the list fails, and the loop reads on after the selection's input.
    EXPECT_NE(run.err().find("\nERROR: Not found sound devices!\n"), std::string::npos);
    EXPECT_NE(run.out().find("Lines per page: 5\n"), std::string::npos);
    EXPECT_EQ(fileText("/etc/asound.conf"), before);
}

}  // namespace
