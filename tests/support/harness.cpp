#include "tests/support/harness.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>

extern char** environ;

namespace {

int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void closeFd(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

std::vector<std::string> childEnvironment(const std::string& workdir) {
    std::map<std::string, std::string> env;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        auto eq = entry.find('=');
        if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    env["ALSA_CONFIG_PATH"] = workdir + "/alsa.conf";
    env["TOVRIN_SANDBOX"] = workdir + "/sandbox";
    std::vector<std::string> out;
    for (const auto& [k, v] : env) out.push_back(k + "=" + v);
    return out;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

}  // namespace

bool ProgramRun::start(const std::string& binary, const std::vector<std::string>& args,
                       const std::string& workdir) {
    if (pid_ > 0) return false;
    std::filesystem::create_directories(workdir + "/sandbox");
    ::signal(SIGPIPE, SIG_IGN);  // a child gone from its stdin must not kill the test
    int pipes[3][2];
    for (auto& p : pipes)
        if (pipe2(p, O_CLOEXEC)) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd < 3; ++fd)
        posix_spawn_file_actions_adddup2(&actions, pipes[fd][fd > 0], fd);
    posix_spawn_file_actions_addchdir_np(&actions, workdir.c_str());
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);  // its own group, killed whole
    std::vector<std::string> argStrings{binary}, envStrings = childEnvironment(workdir);
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    auto argv = pointers(argStrings), envp = pointers(envStrings);
    int rc = posix_spawn(&pid_, binary.c_str(), &actions, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    close(pipes[0][0]), close(pipes[1][1]), close(pipes[2][1]);
    in_ = pipes[0][1], fd_[0] = pipes[1][0], fd_[1] = pipes[2][0];
    if (rc == 0) return true;
    pid_ = -1;
    text_[1] = std::string("cannot start ") + binary + ": " + strerror(rc);
    closeFd(in_), closeFd(fd_[0]), closeFd(fd_[1]);
    return false;
}

ProgramRun::~ProgramRun() {
    // Once reaped, the group's number may belong to someone else's processes.
    if (pid_ > 0 && !reaped_) {
        kill(-pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    closeFd(in_), closeFd(fd_[0]), closeFd(fd_[1]);
}

bool ProgramRun::send(const std::string& text) {
    size_t done = 0;
    while (in_ >= 0 && done < text.size()) {
        ssize_t n = write(in_, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += size_t(n);
    }
    return in_ >= 0;
}

void ProgramRun::closeInput() {
    closeFd(in_);
}

bool ProgramRun::sendSignal(int sig) {
    return pid_ > 0 && !reaped_ && kill(pid_, sig) == 0;
}

int ProgramRun::pump(int timeoutMs) {
    if (fd_[0] < 0 && fd_[1] < 0) return -1;
    pollfd fds[2] = {{fd_[0], POLLIN, 0}, {fd_[1], POLLIN, 0}};  // closed ones are skipped
    int ready = poll(fds, 2, timeoutMs);
    for (int i = 0; i < 2 && ready > 0; ++i) {
        if (!fds[i].revents) continue;
        char buf[4096];
        ssize_t n = read(fd_[i], buf, sizeof buf);
        if (n > 0)
            text_[i].append(buf, size_t(n));
        else if (n == 0 || errno != EINTR)
            closeFd(fd_[i]);
    }
    return ready;
}

bool ProgramRun::waitFor(Stream stream, const std::string& text, double timeoutSec, size_t from) {
    const std::string& s = text_[stream == Stream::Err];
    auto found = [&] { return s.size() > from && s.find(text, from) != std::string::npos; };
    int64_t deadline = nowMs() + int64_t(timeoutSec * 1000);
    while (!found()) {
        int64_t left = deadline - nowMs();
        // Both pipes closed: nothing more will arrive.
        if (left <= 0 || pump(int(std::min<int64_t>(left, 50))) < 0) return found();
    }
    return true;
}

bool ProgramRun::reap(bool block) {
    int status = 0;
    if (reaped_ || pid_ <= 0 || waitpid(pid_, &status, block ? 0 : WNOHANG) != pid_) return reaped_;
    reaped_ = true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

int ProgramRun::waitExit(double timeoutSec) {
    int64_t deadline = nowMs() + int64_t(timeoutSec * 1000);
    while (!reap(false)) {
        int64_t left = deadline - nowMs();
        if (left <= 0 || pid_ <= 0) return -1;
        // Keep reading so a chatty child never blocks on a full pipe.
        if (pump(int(std::min<int64_t>(left, 20))) < 0) usleep(2000);
    }
    // The last output; a leftover grandchild may hold the pipes, so bounded.
    for (int64_t end = nowMs() + 500; nowMs() < end && pump(20) > 0;) {
    }
    return status_;
}

PlayerFixture::PlayerFixture(VdacConfig config) : vdac(std::move(config)) {
    workdir = dir.path();
    confPath = dir.file("alsa.conf");
    sandbox = dir.file("sandbox");
    std::filesystem::create_directories(sandbox);
    if (vdac.capturePath.empty()) vdac.capturePath = dir.file("capture.raw");
    if (vdac.logPath.empty()) vdac.logPath = dir.file("vdac.log");
    writeVdacConfig(confPath, vdac);
}

bool PlayerFixture::start(ProgramRun& run, const std::vector<std::string>& args) {
    return run.start(TOVRIN_BINARY, args, workdir);
}

int PlayerFixture::session(ProgramRun& run, const std::string& input,
                           const std::vector<std::string>& args) {
    if (!start(run, args)) return -2;
    run.send(input);
    run.closeInput();
    return run.waitExit(30);  // seconds; generous for sanitizer builds
}
