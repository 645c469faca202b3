#include "engine/memory_fit.h"

#include <sys/resource.h>

#include <fstream>
#include <sstream>

std::string meminfoPath = "/proc/meminfo";

namespace {

// A "Name:   N kB" line of a /proc status file, in bytes; -1 when absent.
int64_t kilobytesLine(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, name.size() + 1, name + ":") != 0) continue;
        std::istringstream value(line.substr(name.size() + 1));
        int64_t kb = -1;
        if (value >> kb) return kb * 1024;
    }
    return -1;
}

std::string mib(uint64_t bytes) {
    return std::to_string((bytes + (1 << 20) - 1) >> 20) + " MiB";
}

}  // namespace

std::string memoryShortfall(uint64_t bytes) {
    const int64_t available = kilobytesLine(meminfoPath, "MemAvailable");
    if (available >= 0 && bytes > uint64_t(available))
        return mib(bytes) + " needed, " + mib(uint64_t(available)) + " available";
    // Locked memory counts against its own limit.
    rlimit limit{};
    const int64_t locked = kilobytesLine("/proc/self/status", "VmLck");
    if (locked > 0 && getrlimit(RLIMIT_MEMLOCK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        bytes + uint64_t(locked) > uint64_t(limit.rlim_cur))
        return mib(bytes) + " needed, locked memory limited to " + mib(limit.rlim_cur);
    return {};
}
