// The program's entry: start-up, then background play or the command loop.
#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/command_read.h"
#include "app/frontend.h"
#include "app/options.h"
#include "device/device.h"
#include "device/pcm.h"
#include "engine/packing.h"
#include "library/folder.h"
#include "settings/settings.h"
#include "settings/tuning.h"

namespace {

// The standard streams go nowhere in background mode. They are pointed at
// /dev/null rather than left closed so that no later open() lands on 0..2
// and receives stray output.
void detachStandardStreams() {
    int null = open("/dev/null", O_RDWR);
    for (int fd = 0; fd <= 2; ++fd) {
        close(fd);
        if (null >= 0) dup2(null, fd);
    }
    if (null > 2) close(null);
}

bool isBackgroundArgument(int argc, char** argv) {
    if (argc < 2) return false;
    const char* arg = argv[1];
    struct stat st {};
    // A path that does not fit the path slot is refused rather than cut.
    return isPlayableFile(arg) && stat(arg, &st) == 0 && std::strlen(arg) < size_t(kPathSlot);
}

void testOpenDevice() {
    int rc = 0;
    if (openDefaultPcm(&rc)) return;
    std::fprintf(stderr, "unable to open pcm device: %s\n", snd_strerror(rc));
    std::fflush(stderr);
    if (!selectSoundCard()) std::exit(1);
}

void probeFormats() {
    playerControl.dsdNativeBE.store(probeOutputFormat(kFormatDsdU32BE) ? 1 : 0);
    playerControl.dsdNativeLE.store(probeOutputFormat(kFormatDsdU32LE) ? 1 : 0);
    if (probeOutputFormat(kFormatS32))
        playerControl.outputFormat.store(kFormatS32);
    else if (probeOutputFormat(kFormatS24_3))
        playerControl.outputFormat.store(kFormatS24_3);
    else
        playerControl.outputFormat.store(kFormatS16);
    // S16_LE is the last resort; a card without it plays nothing, and says why.
    if (playerControl.outputFormat.load() != kFormatS16 || probeOutputFormat(kFormatS16)) return;
    const std::string offered = cardFormatsText();
    if (offered.empty()) return;
    std::fprintf(stderr, "the sound card takes none of S32_LE, S24_3LE, S16_LE (it takes %s)\n",
                 offered.c_str());
    std::fflush(stderr);
}

int runBackground(const char* file) {
    stopOnTerminate();
    pid_t child = fork();
    if (child != 0) {  // the parent, or no child at all
        if (child > 0) writePidFile(child);
        std::exit(0);
    }
    umask(0);
    setsid();
    detachStandardStreams();
    // Memory locks do not pass to a forked child.
    lockProcessMemory();
    openlog("tovrin", LOG_PID, LOG_USER);
    playerControl.showAlsaSetup.store(1);
    copyPathSlot(playerControl.currentPath, file);
    playerControl.playerRoutine.load()(&playerControl);
    closelog();
    removePidFile(getpid());
    return playerControl.runFailed.load() ? 1 : 0;
}

int runInteractive() {
    catchStopSignals();
    std::string folder;
    if (readPathFile(folder)) currentFolder = folder;
    std::printf("%s\nh - view list of commands\n%s", colorBrightCyan, colorReset);
    std::fflush(stdout);
    scanFolder(currentFolder.c_str(), folderList);
    int status = runCommandLoop();
    // A termination signal ended the loop: settings and folder are saved
    // and the player has let go, as after "x"; the status names the signal.
    return stopSignal() != 0 ? 128 + stopSignal() : status;
}

}  // namespace

int tovrinMain(int argc, char** argv) {
    if (int status = runOption(argc, argv); status >= 0) return status;
    if (const char* sandbox = std::getenv("TOVRIN_SANDBOX")) applySandbox(sandbox);
    // Every line reaches the terminal or pipe as soon as it is complete.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    // Nothing typed waits in a stdio buffer: the command loop waits on the
    // descriptor itself, and the card prompt reads the same stream.
    setvbuf(stdin, nullptr, _IONBF, 0);
    if (isBackgroundArgument(argc, argv)) {
        detachStandardStreams();
        playerControl.backgroundMode.store(1);
    } else {
        std::printf("Tovrin for Linux. Console version\n\n");
        std::fflush(stdout);
    }
    loadSettings();
    applyProcessTuning();
    if (settings.linesPerPage == 0) settings.linesPerPage = 100;
    testOpenDevice();
    probeFormats();
    selectPlayerVariant();
    if (playerControl.backgroundMode.load() == 1) return runBackground(argv[1]);
    return runInteractive();
}
