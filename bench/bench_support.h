// What the benchmarks share: a scratch folder for the files they make, and
// running a command line (ffmpeg) with its resource use.
#pragma once
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

// Made on first use, removed when the benchmark ends.
inline const std::string& benchDir() {
    struct Dir {
        std::string path;
        Dir() {
            char tmpl[] = "/tmp/tovrin-bench-XXXXXX";
            path = mkdtemp(tmpl) ? tmpl : "/tmp";
        }
        ~Dir() {
            if (path != "/tmp") std::filesystem::remove_all(path);
        }
    };
    static Dir dir;
    return dir.path;
}

// Runs args with standard input closed; true when it exits with 0. With
// oneCpu the child is kept on the processor the caller runs on.
inline bool runCommand(const std::vector<std::string>& args, rusage* use = nullptr,
                       bool oneCpu = false) {
    pid_t pid = fork();
    if (pid == 0) {
        if (oneCpu) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(sched_getcpu() >= 0 ? sched_getcpu() : 0, &one);
            sched_setaffinity(0, sizeof one, &one);
        }
        std::vector<char*> argv;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage own{};
    return pid > 0 && wait4(pid, &status, 0, use ? use : &own) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

inline double cpuSeconds(const rusage& use) {
    return double(use.ru_utime.tv_sec + use.ru_stime.tv_sec) +
           double(use.ru_utime.tv_usec + use.ru_stime.tv_usec) * 1e-6;
}
