// The command loop and the playing command set.
#include <cstdio>

#include "app/command_read.h"
#include "app/frontend.h"
#include "app/rules.h"
#include "engine/now_playing.h"
#include "library/cue.h"
#include "library/folder.h"
#include "settings/settings.h"

namespace {

void playingPrompt() {
    std::fputs("\n> ", stdout);
    std::fflush(stdout);
}

// A track in the running file is a seek; in another file of the sheet, that
// file plays from the track's start, the queue rebuilt around it.
void trackJump(const std::string& word) {
    int64_t track = leadingInteger(std::string_view(word).substr(1));
    if (track < 1 || track > static_cast<int64_t>(trackStartFrames.size())) return;
    std::string file = playerControl.currentPath;
    if (!trackStart(size_t(track - 1), file)) return;
    const int64_t cd = trackStartFrames[size_t(track - 1)];
    if (file != playerControl.currentPath) {
        // Pending only once the old player is gone, so it cannot take the seek.
        stopPlayer();
        setPendingStart(cd);
        startPlayback(file);
        return;
    }
    playerControl.pauseRequest.store(0);
    playerControl.playStartMs.store(nowMs() - uint64_t(cd * 1000 / 75));
    setPendingStart(cd);
}

void seekCommand(const std::string& word) {
    std::optional<SeekCommand> seek = parseSeek(word);
    if (!seek) return;
    std::optional<int32_t> target =
        seekTarget(*seek, positionSeconds(), playerControl.streamSeconds.load());
    if (!target) return;
    jumpTo(*target);
    if (seek->kind != SeekKind::Absolute) printElapsedTime();
}

bool isLetter(const std::string& word, char lower) {
    return word.size() == 1 && (word[0] == lower || word[0] == lower - 'a' + 'A');
}

}  // namespace

bool runPlayingCommand(const std::string& word) {
    if (!word.empty() && word[0] == '.') {
        trackJump(word);
    } else if (isLetter(word, 's')) {
        stopPlayer();
        return true;
    } else if (isLetter(word, 'p')) {
        playPrevious();
    } else if (isLetter(word, 'n')) {
        playNext();
    } else if (isLetter(word, 'b')) {
        togglePause();
    } else if (isLetter(word, 't')) {
        printElapsedTime();
    } else if (isLetter(word, 'h')) {
        printKeyHints();
    } else if (isLetter(word, 'i')) {
        printTrackInfo(playerControl);
        return true;
    } else {
        seekCommand(word);
    }
    playingPrompt();
    return true;
}

bool runCommand(const std::string& word) {
    if (word == "x" || word == "X") return false;
    // A starting player still reads the settings and the Full Memory buffer:
    // a command waits until it plays (or has ended), then takes its own set.
    awaitPlayer(playerControl, [] {
        return playerControl.playerRunning.load() != 0 || playerControl.playerThread.load() == 0;
    });
    if (playerControl.playerRunning.load() != 0)
        runPlayingCommand(word);
    else
        runIdleCommand(word);
    return true;
}

int exitProgram() {
    saveSettings();
    writePathFile(currentFolder);
    // A thread still opening its file is stopped too, so none outlives the loop.
    if (playerControl.playerRunning.load() != 0 || playerControl.playerThread.load() != 0)
        stopPlayer();
    return 0;
}

int runCommandLoop() {
    CommandReader reader(stdin);
    for (;;) {
        if (playerControl.playerThread.load() == 0) {
            std::fputs("\n> ", stderr);
            std::fflush(stderr);
        }
        std::optional<std::string> word = reader.next();
        if (!word || !runCommand(*word)) break;
    }
    return exitProgram();
}
