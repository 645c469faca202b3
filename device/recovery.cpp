#include "device/recovery.h"

#include <dirent.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <set>
#include <string>

std::string procAsoundRoot = "/proc/asound";

namespace {

constexpr int kResumeTries = 20;  // 20 x 50 ms: the time a card may take to wake

void pause50ms() {
    timespec ts{0, 50 * 1000 * 1000};
    nanosleep(&ts, nullptr);
}

std::set<std::string> entries(const std::string& dir, const std::string& prefix) {
    std::set<std::string> out;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string name = e->d_name;
            if (name.compare(0, prefix.size(), prefix) == 0) out.insert(name);
        }
        closedir(d);
    }
    return out;
}

// "owner_pid   : 1234" in a substream's status file.
std::set<std::string> playbackHolders() {
    std::set<std::string> pids;
    for (const std::string& card : entries(procAsoundRoot, "card")) {
        const std::string cardDir = procAsoundRoot + "/" + card;
        for (const std::string& pcm : entries(cardDir, "pcm")) {
            if (pcm.empty() || pcm.back() != 'p') continue;
            for (const std::string& sub : entries(cardDir + "/" + pcm, "sub")) {
                std::ifstream status(cardDir + "/" + pcm + "/" + sub + "/status");
                for (std::string line; std::getline(status, line);) {
                    if (line.compare(0, 9, "owner_pid") != 0) continue;
                    size_t colon = line.find(':');
                    if (colon == std::string::npos) continue;
                    size_t from = line.find_first_not_of(" \t", colon + 1);
                    if (from != std::string::npos) pids.insert(line.substr(from));
                }
            }
        }
    }
    return pids;
}

}  // namespace

bool pcmGone(snd_pcm_t* pcm, int err) {
    return err == -ENODEV || snd_pcm_state(pcm) == SND_PCM_STATE_DISCONNECTED;
}

PcmRecovery recoverPcm(snd_pcm_t* pcm, int err) {
    if (pcmGone(pcm, err)) return PcmRecovery::Gone;
    if (err == -ESTRPIPE || snd_pcm_state(pcm) == SND_PCM_STATE_SUSPENDED) {
        for (int i = 0; i < kResumeTries; ++i) {
            int rc = snd_pcm_resume(pcm);
            if (rc == 0) return PcmRecovery::Ready;
            if (rc != -EAGAIN) break;
            pause50ms();
        }
    }
    int rc = snd_pcm_prepare(pcm);
    return rc < 0 && pcmGone(pcm, rc) ? PcmRecovery::Gone : PcmRecovery::Ready;
}

std::string deviceGoneText(snd_pcm_t* pcm) {
    const char* name = snd_pcm_name(pcm);
    return std::string("sound device \"") + (name ? name : "default") +
           "\" is gone: " + snd_strerror(-ENODEV);
}

std::string openFailureText(int err) {
    std::string text = std::string("unable to open pcm device: ") + snd_strerror(err);
    if (err != -EBUSY) return text;
    std::set<std::string> pids = playbackHolders();
    if (pids.empty()) return text + " (another program is using it)";
    std::string list;
    for (const std::string& pid : pids) list += (list.empty() ? "" : ", ") + pid;
    return text + " (in use by process " + list + ")";
}
