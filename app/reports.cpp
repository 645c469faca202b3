// The command list, the settings report and the elapsed time.
#include <sched.h>
#include <sys/resource.h>

#include <cstdio>

#include "app/frontend.h"
#include "app/rules.h"
#include "engine/decoder_setup.h"
#include "settings/settings.h"

namespace {

void line(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

// A pair of frame and time settings; any negative value means "not set".
void pairLine(const char* label, int32_t frames, int32_t timeUs) {
    char text[32] = "default";
    if (frames >= 0)
        std::snprintf(text, sizeof text, "%i frames", frames);
    else if (timeUs >= 0)
        std::snprintf(text, sizeof text, "%i us", timeUs);
    std::printf("%s%s\n", label, text);
    std::fflush(stdout);
}

}  // namespace

void printHelp() {
    static const char* const kLines[] = {
        "Commands:\n",
        "<value> - play file number <value>\n",
        "<val1>.<val2> - play track number <val2> from file number <val1> (.cue preload "
        "required)\n",
        "pf<value> - period frames\n",
        "pt<value> - period time (us)\n",
        "bf<value> - buffer frames\n",
        "bt<value> - buffer time (us)\n",
        "di - Direct Input mode\n",
        "fm - Full Memory mode\n",
        "pr<value> - process priority (0...99)\n",
        "ni<value> - process nice (-20...19)\n",
        "pcm - DSD->PCM mode (pcm, pcm44, pcm88, pcm176, pcm352) \n",
        "dop - DSD DoP mode\n",
        "nat - DSD Native mode\n",
        "card - select sound card\n",
        "cl<value> - colors mode on/off (1/0)\n",
        "lp<value> - lines per page\n",
        "mm - MMAP buffer access mode\n",
        "rw - RW buffer access mode\n",
        "cs<value> - no cores select / single / double (0/1/2)  \n",
        "st - view settings  \n",
        "l - list of files\n",
        "a - page up\n",
        "z - page down\n",
        "Enter - repeat last command\n",
    };
    for (const char* text : kLines) line(text);
}

void printSettingsReport() {
    sched_param param{};
    sched_getparam(0, &param);
    int nice = getpriority(PRIO_PROCESS, 0);
    const Settings& s = settings;
    std::printf("Mode: %s\n", s.directInput != 0 ? "Direct Input" : "Full Memory");
    std::printf("Process priority: %d\n", param.sched_priority);
    std::printf("Process nice: %d\n", nice);
    std::fflush(stdout);
    pairLine("ALSA Period: ", s.periodFrames, s.periodTimeUs);
    pairLine("ALSA Buffer: ", s.bufferFrames, s.bufferTimeUs);
    if (uint32_t underruns = playerControl.underruns.load())
        std::printf("Underruns: %u\n", underruns);
    if (int32_t buffer = playerControl.cardBufferFrames.load())
        std::printf("ALSA granted: period %d frames, buffer %d frames\n",
                    playerControl.cardPeriodFrames.load(), buffer);
    const char* dsd = s.dsdMode == 0 ? "PCM" : s.dsdMode == 1 ? "DoP" : "Native";
    std::printf("DSD Mode: %s\n", dsd);
    bool native = playerControl.dsdNativeBE.load() != 0 || playerControl.dsdNativeLE.load() != 0;
    std::printf("Supports DSD Native mode: %s\n", native ? "yes" : "no");
    // The setting names a 44.1 kHz-family rate; the other family gets its sibling.
    if (s.dsdMode == 0)
        std::printf("PCM Samplerate for DSD: %d (%d for 48 kHz-family DSD)\n", s.dsdPcmRate,
                    dsdPcmRate(s.dsdPcmRate, 48000 * 64));
    std::printf("Buffer access mode: %s\n", s.rwAccess == 0 ? "MMAP" : "RW");
    const char* cores = s.coresSelect == 0   ? "no cores select"
                        : s.coresSelect == 1 ? "single core"
                                             : "double core";
    std::printf("Cores: %s\n", cores);
    std::fflush(stdout);
}

int64_t positionSeconds() {
    // The player knows which frame the card is playing; the clock is the
    // fallback before its first pass.
    const int64_t heard = playerControl.heardMs.load();
    if (heard >= 0) return heard / 1000;
    uint64_t now =
        playerControl.pauseRequest.load() != 0 ? playerControl.pauseStartMs.load() : nowMs();
    uint64_t start = playerControl.playStartMs.load();
    // A wall clock set back below the start reads as position 0, not as years.
    return now > start ? static_cast<int64_t>((now - start) / 1000) : 0;
}

void printElapsedTime() {
    std::fputs(elapsedText(static_cast<uint64_t>(positionSeconds()) * 1000).c_str(), stderr);
    std::fflush(stderr);
}
