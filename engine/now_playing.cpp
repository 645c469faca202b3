#include "engine/now_playing.h"

#include <cstdio>

#include "control/shown_text.h"
#include "settings/settings.h"

namespace {
void endLine() {
    std::fputc('\n', stdout);
    std::fflush(stdout);
}
}  // namespace

std::string formatDuration(int32_t s) {
    std::string text;
    if (s > 3599) {
        int32_t h = s / 3600;
        text += std::to_string(h) + ":";
        s -= h * 3600;
    }
    if (s < 600) text += "0";
    text += std::to_string(s / 60) + ":";
    if (s % 60 <= 9) text += "0";
    text += std::to_string(s % 60);
    return text;
}

void printTrackInfo(const PlayerControl& pc) {
    int32_t bits = pc.streamBits.load();
    int32_t rate = pc.streamRate.load();
    // Native DSD runs the card at a 32nd of the DSD bit rate; show the bit rate.
    int32_t shownRate = bits == 1 ? rate * 32 : rate;
    endLine();
    std::printf("%s(%d/%d)   ", colorYellow, pc.queue.queueIndex.load() + 1,
                pc.queue.queueCount.load());
    endLine();
    std::printf("%s%s%s", colorBrightGreen, escapeControls(pc.currentPath).c_str(), colorReset);
    endLine();
    std::printf("%sLength: %s   Channels: %d   Samplerate: %d   Bits per sample: %d%s", colorYellow,
                pc.lengthText, pc.streamChannels.load(), shownRate, bits, colorReset);
    endLine();
    if (pc.cardText[0]) {
        std::printf("%s%s%s", colorYellow, pc.cardText, colorReset);
        endLine();
    }
    endLine();
    std::fputs("> ", stderr);
    std::fflush(stderr);
}

void printKeyHints() {
    endLine();
    std::printf("%s[-+]ss, [-+]mm.ss  [relative]jump to seconds, minutes:seconds", colorBrightCyan);
    endLine();
    std::printf(".<value>  play track number <value> from this file (.cue preload required)");
    endLine();
    std::printf("S  Stop     N  Next     P  Prev     B  [Un]Pause     I  File info     X  Exit%s",
                colorReset);
    endLine();
}
