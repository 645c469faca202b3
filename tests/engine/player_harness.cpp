#include "tests/engine/player_harness.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "engine/packing.h"
#include "engine/player.h"
#include "settings/settings.h"
#include "settings/tuning.h"

Card::Card(std::vector<std::string> formats, double speed) {
    config.formats = std::move(formats);
    config.speed = speed;
    config.rates.push_back(22050);  // the 8-bit fixture's rate
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
    for (auto* flag : {&stopRequest, &pauseRequest, &playerRunning, &dsdNativeBE, &dsdNativeLE})
        flag->store(0);
    seekSeconds.store(-1);
    playerThread.store(0);
    showAlsaSetup.store(1);
    showKeyHints.store(0);
    releaseFullMemoryBuffer();
}

RunText play(const std::vector<std::string>& paths, Mode mode, int32_t alsaFormat,
             const std::function<void()>& drive) {
    static const PlayerRoutine routines[2][3] = {
        {fullMemoryPlayerS16, fullMemoryPlayerS24, fullMemoryPlayerS32},
        {directInputPlayerS16, directInputPlayerS24, directInputPlayerS32}};
    PlayerRoutine routine =
        routines[mode.di][(alsaFormat != kFormatS16) + (alsaFormat == kFormatS32)];
    settings.directInput = mode.di;
    settings.rwAccess = mode.rw;
    outputFormat.store(alsaFormat);
    for (size_t i = 0; i < paths.size(); ++i) copyPathSlot(queuePaths[i], paths[i].c_str());
    queueCount.store(int32_t(paths.size()));
    queueIndex.store(0);
    copyPathSlot(currentPath, paths[0].c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    if (drive) {
        pthread_t thread;
        pthread_create(&thread, nullptr, routine, nullptr);
        playerThread.store(thread);
        // Bounded: a routine that never plays fails the test's checks instead.
        for (int i = 0; i < 5000 && !playerRunning.load(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (playerRunning.load()) drive();
        pthread_join(thread, nullptr);
    } else {
        routine(nullptr);
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
        if (keep == 3)
            convertFloatToS24_3LE(ref.data(), out.data(), uint32_t(ref.size()));
        else
            convertFloatToS32(ref.data(), uint32_t(ref.size()));
        return keep == 3 ? out : ref;
    }
    // Left-justified 32-bit words: a narrower card keeps their top bytes.
    for (size_t i = 0; i < out.size(); ++i) out[i] = ref[i / keep * 4 + 4 - keep + i % keep];
    return out;
}
