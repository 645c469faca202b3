#include "tests/engine/player_harness.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "engine/packing.h"
#include "engine/player.h"
#include "engine/whole_load.h"
#include "settings/settings.h"
#include "settings/tuning.h"

Card::Card(std::vector<std::string> formats, double speed) {
    config.formats = std::move(formats);
    config.speed = speed;
    config.rates.push_back(22050);  // the 8-bit fixture's rate
    // DoP of DSD256 and DSD512, and native DSD512.
    config.rates.insert(config.rates.end(), {705600, 768000, 1411200});
    config.capturePath = dir.file("capture.raw");
    config.logPath = dir.file("events.log");
    writeVdacConfig(dir.file("alsa.conf"), config);
    useAlsaConfig(dir.file("alsa.conf"));
    settings = Settings{};
    settings.periodFrames = 1024;
    settings.bufferFrames = 4096;
    settings.colorsOn = 0;
    setColors(false);
    tuningSeams.configuredCpus = [] { return 1L; };  // never touch affinity
    tuningSeams.setAffinity = [](pid_t, const cpu_set_t&) { return 0; };
    wholeLoadPieces = 3;  // uneven joins in every whole-file load, whatever the machine
    for (auto* flag :
         {&playerControl.stopRequest, &playerControl.pauseRequest, &playerControl.playerRunning,
          &playerControl.dsdNativeBE, &playerControl.dsdNativeLE})
        flag->store(0);
    playerControl.seekSeconds.store(-1);
    playerControl.playerThread.store(0);
    playerControl.showAlsaSetup.store(1);
    playerControl.showKeyHints.store(0);
    playerControl.runFailed.store(0);
    releaseFullMemoryBuffer();
}

void Card::reconfigure() {
    writeVdacConfig(dir.file("alsa.conf"), config);
    useAlsaConfig(dir.file("alsa.conf"));
}

RunText play(const std::vector<std::string>& paths, Mode mode, int32_t alsaFormat,
             const std::function<void()>& drive) {
    PlayerRoutine routine = playerRoutineFor(mode.di, alsaFormat);
    settings.directInput = mode.di;
    settings.rwAccess = mode.rw;
    playerControl.outputFormat.store(alsaFormat);
    playerControl.queue.queuePaths = paths;
    playerControl.queue.queueCount.store(int32_t(paths.size()));
    playerControl.queue.queueIndex.store(0);
    copyPathSlot(playerControl.currentPath, paths[0].c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    if (drive) {
        pthread_t thread;
        pthread_create(&thread, nullptr, routine, &playerControl);
        playerControl.playerThread.store(thread);
        // Bounded: a routine that never plays fails the test's checks instead.
        for (int i = 0; i < 5000 && !playerControl.playerRunning.load(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (playerControl.playerRunning.load()) drive();
        pthread_join(thread, nullptr);
    } else {
        routine(&playerControl);
    }
    return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

const char* formatName(int32_t alsaFormat) {
    return snd_pcm_format_name(snd_pcm_format_t(alsaFormat));
}

uint32_t frameBytes(int32_t alsaFormat, int channels) {
    return uint32_t(snd_pcm_format_physical_width(snd_pcm_format_t(alsaFormat)) / 8 * channels);
}

std::vector<uint8_t> expectedCardBytes(const Fixture& f, int32_t alsaFormat) {
    std::vector<uint8_t> ref = readFileBytes(f.refPath());
    const size_t keep = frameBytes(alsaFormat, 1);
    std::vector<uint8_t> out(ref.size() / 4 * keep);
    if (f.kind == "float" || f.kind == "lossy") {
        packPcm(ref.data(), SampleType::Float32, out.data(), ref.size() / 4, alsaFormat);
        return out;
    }
    // Left-justified 32-bit words: a narrower card keeps their top bytes.
    for (size_t i = 0; i < out.size(); ++i) out[i] = ref[i / keep * 4 + 4 - keep + i % keep];
    return out;
}
