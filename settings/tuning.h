// Process tuning: nice value, real-time priority, memory locking, and the
// processor-core reservation of a player run. Every failure is silent.
#pragma once
#include <sched.h>
#include <sys/types.h>

#include <string>

// Main thread, at start-up and after "pr"/"ni".
void applyProcessTuning();
// Locks current and future memory; a forked child must lock again, since
// memory locks are not inherited.
void lockProcessMemory();
// Player thread (or the only thread in background mode), once per run.
void applyCoreAffinity();

// The two sets for n configured processors and a coresSelect value.
// Returns false when nothing is to be done (n <= 1).
bool coreSets(long n, int coresSelect, cpu_set_t& dedicated, cpu_set_t& shared);

// Seams for the calls a test must never make for real. main() points these
// at a sandbox when TOVRIN_SANDBOX names a folder.
struct TuningSeams {
    std::string procRoot = "/proc/";     // with trailing slash
    long (*configuredCpus)() = nullptr;  // null: sysconf(_SC_NPROCESSORS_CONF)
    int (*setAffinity)(pid_t tid, const cpu_set_t& set) = nullptr;  // null: sched_setaffinity
    bool realTimeAllowed = true;  // false: SCHED_FIFO and mlockall are skipped
    std::string logPath;          // when set, each tuning step is appended here as a line
};
extern TuningSeams tuningSeams;
