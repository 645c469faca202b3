// Redirects every call that must not touch the real system into a folder.
#include <cstdio>
#include <string>

#include "device/device.h"
#include "settings/tuning.h"

namespace {

std::string affinityLog;

int recordAffinity(pid_t tid, const cpu_set_t& set) {
    FILE* f = fopen(affinityLog.c_str(), "a");
    if (!f) return -1;
    fprintf(f, "%d ", static_cast<int>(tid));
    const char* sep = "";
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &set)) continue;
        fprintf(f, "%s%d", sep, cpu);
        sep = ",";
    }
    fputc('\n', f);
    fclose(f);
    return 0;
}

}  // namespace

void applySandbox(const char* dir) {
    if (!dir || !*dir) return;
    const std::string base = std::string(dir) + "/";
    deviceSeams.asoundConfPath = base + "asound.conf";
    tuningSeams.procRoot = base + "proc/";
    affinityLog = base + "affinity.log";
    tuningSeams.setAffinity = recordAffinity;
    tuningSeams.realTimeAllowed = false;
    tuningSeams.logPath = base + "tuning.log";
}
