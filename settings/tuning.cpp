// Nice value, real-time scheduling, memory locking and the core reservation.
#include "settings/tuning.h"

#include <dirent.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "settings/settings.h"

TuningSeams tuningSeams;

namespace {

constexpr long kMaxCpus = CPU_SETSIZE;  // 1024: cpu_set_t holds no more

void logStep(const char* fmt, long a, long b = 0) {
    if (tuningSeams.logPath.empty()) return;
    FILE* f = fopen(tuningSeams.logPath.c_str(), "a");
    if (!f) return;
    fprintf(f, fmt, a, b);
    fputc('\n', f);
    fclose(f);
}

long configuredCpus() {
    return tuningSeams.configuredCpus ? tuningSeams.configuredCpus()
                                      : sysconf(_SC_NPROCESSORS_CONF);
}

int setAffinity(pid_t tid, const cpu_set_t& set) {
    if (tuningSeams.setAffinity) return tuningSeams.setAffinity(tid, set);
    return sched_setaffinity(tid, sizeof set, &set);
}

void addRange(cpu_set_t& set, long first, long last) {
    for (long cpu = first; cpu <= last && cpu < kMaxCpus; ++cpu)
        if (cpu >= 0) CPU_SET(cpu, &set);
}

bool allDigits(const char* name) {
    if (!*name) return false;
    for (const char* p = name; *p; ++p)
        if (*p < '0' || *p > '9') return false;
    return true;
}

// Some file systems leave d_type unknown; ask stat then.
bool isDirEntry(const std::string& parent, const dirent* e) {
    if (e->d_type == DT_DIR) return true;
    if (e->d_type != DT_UNKNOWN) return false;
    struct stat st {};
    return stat((parent + e->d_name).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Every thread of one process but `skip` gets `shared`.
void sweepTasks(const std::string& taskDir, pid_t skip, const cpu_set_t& shared) {
    DIR* d = opendir(taskDir.c_str());
    if (!d) return;
    while (const dirent* e = readdir(d)) {
        if (!allDigits(e->d_name) || !isDirEntry(taskDir, e)) continue;
        pid_t tid = static_cast<pid_t>(strtol(e->d_name, nullptr, 10));
        if (tid != skip) setAffinity(tid, shared);
    }
    closedir(d);
}

void sweepAllThreads(pid_t skip, const cpu_set_t& shared) {
    const std::string& root = tuningSeams.procRoot;
    DIR* d = opendir(root.c_str());
    if (!d) return;
    while (const dirent* e = readdir(d)) {
        if (!allDigits(e->d_name) || !isDirEntry(root, e)) continue;
        sweepTasks(root + e->d_name + "/task/", skip, shared);
    }
    closedir(d);
}

void setScheduler(int32_t priority) {
    int policy = priority != 0 ? SCHED_FIFO : SCHED_OTHER;
    if (policy == SCHED_FIFO && !tuningSeams.realTimeAllowed) {
        logStep("scheduler %ld %ld skipped", policy, priority);
        return;
    }
    logStep("scheduler %ld %ld", policy, priority);
    sched_param param{};
    param.sched_priority = priority;
    sched_setscheduler(0, policy, &param);
    sched_setparam(0, &param);
}

}  // namespace

bool coreSets(long n, int coresSelect, cpu_set_t& dedicated, cpu_set_t& shared) {
    CPU_ZERO(&dedicated);
    CPU_ZERO(&shared);
    if (n <= 1) return false;
    if (coresSelect == 0) {
        addRange(dedicated, 0, n - 1);
    } else if (coresSelect == 2 && n == 2) {
        // Two processors cannot spare two: both sets keep both.
        addRange(dedicated, 0, 1);
        addRange(shared, 0, 1);
    } else if (coresSelect == 2) {
        addRange(dedicated, n - 2, n - 1);
        addRange(shared, 0, n - 3);
    } else {
        addRange(dedicated, n - 1, n - 1);
        addRange(shared, 0, n - 2);
    }
    return true;
}

void applyProcessTuning() {
    const int32_t nice = settings.niceValue;
    rlimit niceLimit{static_cast<rlim_t>(20 - nice), static_cast<rlim_t>(20 - nice)};
    logStep("rlimit_nice %ld", 20 - nice);
    setrlimit(RLIMIT_NICE, &niceLimit);
    logStep("nice %ld", nice);
    setpriority(PRIO_PROCESS, 0, nice);
    lockProcessMemory();
    setScheduler(settings.rtPriority);
}

void lockProcessMemory() {
    rlimit memLimit{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_MEMLOCK, &memLimit);
    if (tuningSeams.realTimeAllowed) {
        logStep("mlockall %ld", MCL_CURRENT | MCL_FUTURE);
        mlockall(MCL_CURRENT | MCL_FUTURE);
    } else {
        logStep("mlockall %ld skipped", MCL_CURRENT | MCL_FUTURE);
    }
}

void applyCoreAffinity() {
    cpu_set_t dedicated, shared;
    if (!coreSets(configuredCpus(), settings.coresSelect, dedicated, shared)) return;
    // The player thread itself is the one isolated; the main thread is swept
    // along with everything else.
    const pid_t self = gettid();
    if (settings.coresSelect != 0) sweepAllThreads(self, shared);
    setAffinity(self, dedicated);
}
