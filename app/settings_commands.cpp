// Commands that change, show or apply the settings; each change is saved at once.
#include <cstdio>
#include <cstring>

#include "app/frontend.h"
#include "app/rules.h"
#include "device/device.h"
#include "engine/player.h"
#include "settings/settings.h"
#include "settings/tuning.h"

namespace {

void say(const char* text) {
    std::printf("%s\n", text);
    std::fflush(stdout);
}

void sayNumber(const char* label, int32_t value, const char* unit = "") {
    std::printf("%s%d%s\n", label, value, unit);
    std::fflush(stdout);
}

int32_t clampTo(int32_t v, int32_t lo, int32_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}

// One of a pair (period, buffer): setting one side clears the other.
void setPair(int32_t& set, int32_t& cleared, int32_t value, const char* unset, const char* label,
             const char* unit) {
    cleared = -1;
    set = value;
    saveSettings();
    if (value < 0)
        say(unset);
    else
        sayNumber(label, value, unit);
}

void directInputCommand(int32_t on) {
    settings.directInput = on;
    if (on != 0) releaseFullMemoryBuffer();
    saveSettings();
    selectPlayerVariant();
}

void priorityCommand(int32_t value, bool nice) {
    if (nice) {
        settings.niceValue = clampTo(value, -20, 19);
        sayNumber("nice: ", settings.niceValue);
    } else {
        settings.rtPriority = clampTo(value, 0, 99);
        sayNumber("priority: ", settings.rtPriority);
    }
    saveSettings();
    applyProcessTuning();
}

void nativeCommand() {
    if (playerControl.dsdNativeBE.load() == 0 && playerControl.dsdNativeLE.load() == 0) {
        say("DSD Native mode not supported by DAC or driver");
        return;
    }
    settings.dsdMode = kDsdNative;
    saveSettings();
    say("DSD Mode: Native");
}

void pcmCommand(const std::string& word) {
    settings.dsdMode = kDsdPcm;
    bool withRate = word.size() > 3;
    if (withRate) {
        switch (commandValue(std::string_view(word).substr(3))) {
            case 44:
                settings.dsdPcmRate = 44100;
                break;
            case 88:
                settings.dsdPcmRate = 88200;
                break;
            case 176:
                settings.dsdPcmRate = 176400;
                break;
            case 352:
                settings.dsdPcmRate = 352800;
                break;
            default:
                break;
        }
    }
    saveSettings();
    say("DSD Mode: PCM");
    if (withRate) sayNumber("PCM Samplerate for DSD: ", settings.dsdPcmRate);
}

void colorsCommand(int32_t value) {
    settings.colorsOn = value;
    setColors(value != 0);
    saveSettings();
    say(value != 0 ? "Colors mode on" : "Colors mode off");
}

void accessCommand(int32_t rw) {
    settings.rwAccess = rw;
    saveSettings();
    say(rw != 0 ? "Buffer access mode: RW" : "Buffer access mode: MMAP");
}

void coresCommand(int32_t value) {
    settings.coresSelect = value >= 0 && value <= 2 ? value : 0;
    saveSettings();
    static const char* const kNames[] = {"no cores select", "single core", "double core"};
    std::printf("Cores: %s\n", kNames[settings.coresSelect]);
    std::fflush(stdout);
}

bool startsWith(const std::string& word, const char* prefix) {
    return word.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

bool runEarlySettingsCommand(const std::string& word) {
    Settings& s = settings;
    int32_t v = word.size() >= 2 ? commandValue(std::string_view(word).substr(2)) : 0;
    if (startsWith(word, "di")) {
        directInputCommand(1);
    } else if (startsWith(word, "fm")) {
        directInputCommand(0);
    } else if (startsWith(word, "pr")) {
        priorityCommand(v, false);
    } else if (startsWith(word, "ni")) {
        priorityCommand(v, true);
    } else if (startsWith(word, "pf")) {
        setPair(s.periodFrames, s.periodTimeUs, v, "default period size",
                "period size: ", " frames");
    } else if (startsWith(word, "pt")) {
        setPair(s.periodTimeUs, s.periodFrames, v, "default period time", "period time: ", " us");
    } else if (startsWith(word, "bf")) {
        setPair(s.bufferFrames, s.bufferTimeUs, v, "default buffer size",
                "buffer size: ", " frames");
    } else if (startsWith(word, "bt")) {
        setPair(s.bufferTimeUs, s.bufferFrames, v, "default buffer time", "buffer time: ", " us");
    } else if (startsWith(word, "dop")) {
        s.dsdMode = kDsdDop;
        saveSettings();
        say("DSD Mode: DoP");
    } else if (startsWith(word, "nat")) {
        nativeCommand();
    } else if (startsWith(word, "pcm")) {
        pcmCommand(word);
    } else if (startsWith(word, "cl")) {
        colorsCommand(v);
    } else if (startsWith(word, "card")) {
        selectSoundCard();
    } else {
        return false;
    }
    return true;
}

bool runLateSettingsCommand(const std::string& word) {
    int32_t v = word.size() >= 2 ? commandValue(std::string_view(word).substr(2)) : 0;
    if (word == "st") {
        selectPlayerVariant();
    } else if (startsWith(word, "lp")) {
        settings.linesPerPage = v;
        saveSettings();
        sayNumber("Lines per page: ", v);
    } else if (startsWith(word, "mm")) {
        accessCommand(0);
    } else if (startsWith(word, "rw")) {
        accessCommand(1);
    } else if (startsWith(word, "cs")) {
        coresCommand(v);
    } else {
        return false;
    }
    return true;
}
