// --help, --version and --stop, and the pid file of background mode.
#include "app/options.h"

#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include "control/control.h"

#ifndef TOVRIN_VERSION
#define TOVRIN_VERSION "unknown"
#endif

namespace {

constexpr const char* kUsage =
    "Usage: tovrin [FILE]\n"
    "       tovrin --help | --version | --stop\n"
    "\n"
    "With FILE naming an existing playable file, tovrin plays it in the\n"
    "background and returns at once; tovrin --stop ends it.\n"
    "Otherwise tovrin starts its console in the current folder: browse\n"
    "folders, play files and albums, change the settings (h lists the commands).\n"
    "\n"
    "  -h, --help   this text\n"
    "  --version    the version, and the FFmpeg and alsa-lib it runs with\n"
    "  --stop       stop the background player this user started\n"
    "\n"
    "The manual page tovrin(1) has the rest.\n";

std::string libVersion(unsigned v) {
    return std::to_string(AV_VERSION_MAJOR(v)) + "." + std::to_string(AV_VERSION_MINOR(v)) + "." +
           std::to_string(AV_VERSION_MICRO(v));
}

int printVersion() {
    // The libraries loaded at run time, which may be newer than the headers.
    std::printf("tovrin %s\n", TOVRIN_VERSION);
    std::printf("FFmpeg %s (libavformat %s, libavcodec %s, libavutil %s)\n", av_version_info(),
                libVersion(avformat_version()).c_str(), libVersion(avcodec_version()).c_str(),
                libVersion(avutil_version()).c_str());
    std::printf("alsa-lib %s\n", snd_asoundlib_version());
    return 0;
}

std::string firstLine(const std::string& path) {
    std::ifstream in(path);
    std::string text;
    std::getline(in, text);
    return text;
}

// Another user's file, or a link planted in /tmp, is not ours to trust.
bool readPidFile(pid_t& pid) {
    int fd = open(pidFilePath().c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat st {};
    char text[32] = {};
    bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == getuid() &&
              read(fd, text, sizeof text - 1) > 0;
    close(fd);
    if (!ok) return false;
    char* end = nullptr;
    long value = std::strtol(text, &end, 10);
    if (value <= 0 || (*end != '\n' && *end != '\0')) return false;
    pid = pid_t(value);
    return true;
}

// A zombie has ended as far as the user is concerned; a recycled pid that
// now belongs to another program or user is not ours.
bool isOurPlayer(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    struct stat st {};
    if (stat(proc.c_str(), &st) != 0 || st.st_uid != getuid()) return false;
    const std::string stat = firstLine(proc + "/stat");
    size_t paren = stat.rfind(')');
    if (paren == std::string::npos || paren + 2 >= stat.size() || stat[paren + 2] == 'Z')
        return false;
    return firstLine(proc + "/comm") == firstLine("/proc/self/comm");
}

bool waitGone(pid_t pid, int ms) {
    for (; ms > 0; ms -= 20) {
        if (!isOurPlayer(pid)) return true;
        sleepMs(20);
    }
    return !isOurPlayer(pid);
}

int stopBackground() {
    pid_t pid = 0;
    if (!readPidFile(pid) || !isOurPlayer(pid)) {
        if (pid > 0) removePidFile(pid);
        std::fprintf(stderr, "tovrin: no background player is running\n");
        return 1;
    }
    // SIGTERM lets it close the card the usual way; a player stuck past
    // that is killed.
    kill(pid, SIGTERM);
    if (!waitGone(pid, 10000)) {
        kill(pid, SIGKILL);
        waitGone(pid, 2000);
    }
    removePidFile(pid);
    std::printf("tovrin: stopped the background player (process %d)\n", int(pid));
    return 0;
}

void onTerminate(int) {
    playerControl.stopRequest.store(1);
}

}  // namespace

int runOption(int argc, char** argv) {
    if (argc < 2) return -1;
    const std::string arg = argv[1];
    if (arg == "--help" || arg == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (arg == "--version") return printVersion();
    if (arg == "--stop") return stopBackground();
    return -1;
}

std::string pidFilePath() {
    const char* dir = std::getenv("XDG_RUNTIME_DIR");
    std::string base = dir != nullptr && dir[0] == '/' ? dir : "/tmp";
    return base + "/tovrin-" + std::to_string(getuid()) + ".pid";
}

void writePidFile(pid_t pid) {
    const std::string path = pidFilePath();
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) return;
    const std::string text = std::to_string(pid) + "\n";
    struct stat st {};
    bool ours = fstat(fd, &st) == 0 && st.st_uid == getuid();
    if (!ours || write(fd, text.data(), text.size()) != ssize_t(text.size()))
        std::fprintf(stderr, "tovrin: cannot record the background player in %s\n", path.c_str());
    close(fd);
}

void removePidFile(pid_t pid) {
    pid_t recorded = 0;
    if (readPidFile(recorded) && recorded == pid) unlink(pidFilePath().c_str());
}

void stopOnTerminate() {
    struct sigaction action {};
    action.sa_handler = onTerminate;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
}
