#include "tests/support/harness.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

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

std::vector<std::string> childEnvironment(const std::string& workdir,
                                          const std::map<std::string, std::string>& extra) {
    std::map<std::string, std::string> env;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        auto eq = entry.find('=');
        if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    env["ALSA_CONFIG_PATH"] = workdir + "/alsa.conf";
    env["TOVRIN_SANDBOX"] = workdir + "/sandbox";
    for (const auto& [k, v] : extra) env[k] = v;
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
                       const std::string& workdir,
                       const std::map<std::string, std::string>& extraEnv) {
    if (pid_ > 0) return false;
    std::filesystem::create_directories(workdir + "/sandbox");
    ::signal(SIGPIPE, SIG_IGN);  // a child gone from its stdin must not kill the test
    int pipes[3][2];
    for (auto& p : pipes)
        if (pipe2(p, O_CLOEXEC)) {
            err_ = std::string("pipe: ") + strerror(errno);
            return false;
        }
    // Everything the child needs is prepared before fork: no allocation after it.
    std::vector<std::string> argStrings{binary};
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    std::vector<std::string> envStrings = childEnvironment(workdir, extraEnv);
    auto argv = pointers(argStrings);
    auto envp = pointers(envStrings);
    pid_ = fork();
    if (pid_ == 0) {
        setpgid(0, 0);
        for (int fd = 0; fd < 3; ++fd) dup2(pipes[fd][fd == 0 ? 0 : 1], fd);
        if (chdir(workdir.c_str()) == 0) execve(binary.c_str(), argv.data(), envp.data());
        const char msg[] = "ProgramRun: cannot exec\n";
        (void)!write(2, msg, sizeof msg - 1);
        _exit(127);
    }
    close(pipes[0][0]), close(pipes[1][1]), close(pipes[2][1]);
    in_ = pipes[0][1], outFd_ = pipes[1][0], errFd_ = pipes[2][0];
    if (pid_ < 0) {
        err_ = std::string("fork: ") + strerror(errno);
        closeFd(in_), closeFd(outFd_), closeFd(errFd_);
        return false;
    }
    setpgid(pid_, pid_);  // from here too, so the group exists before the child runs
    return true;
}

ProgramRun::~ProgramRun() {
    if (pid_ > 0) {
        kill(-pid_, SIGKILL);
        if (!reaped_) waitpid(pid_, nullptr, 0);
    }
    closeFd(in_), closeFd(outFd_), closeFd(errFd_);
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

bool ProgramRun::pump(int timeoutMs) {
    pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
    if (outFd_ < 0 && errFd_ < 0) return false;
    if (poll(fds, 2, timeoutMs) <= 0) return true;
    int* fdOf[2] = {&outFd_, &errFd_};
    std::string* textOf[2] = {&out_, &err_};
    for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        char buf[4096];
        ssize_t n = read(fds[i].fd, buf, sizeof buf);
        if (n > 0)
            textOf[i]->append(buf, size_t(n));
        else if (n == 0 || errno != EINTR)
            closeFd(*fdOf[i]);
    }
    return true;
}

bool ProgramRun::waitFor(Stream stream, const std::string& text, double timeoutSec, size_t from) {
    const std::string& s = stream == Stream::Out ? out_ : err_;
    auto found = [&] { return s.size() > from && s.find(text, from) != std::string::npos; };
    int64_t deadline = nowMs() + int64_t(timeoutSec * 1000);
    while (!found()) {
        int64_t left = deadline - nowMs();
        // Both pipes closed: nothing more will arrive.
        if (left <= 0 || !pump(int(std::min<int64_t>(left, 50)))) return found();
    }
    return true;
}

bool ProgramRun::reap(bool block) {
    if (reaped_) return true;
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, block ? 0 : WNOHANG) != pid_) return false;
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
        if (!pump(int(std::min<int64_t>(left, 20)))) usleep(2000);
    }
    // The last output; a leftover grandchild may hold the pipes, so bounded.
    for (int64_t end = nowMs() + 500; nowMs() < end && pump(20);) {
        pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
        if (poll(fds, 2, 0) == 0) break;
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

bool PlayerFixture::start(ProgramRun& run, const std::vector<std::string>& args,
                          const std::map<std::string, std::string>& extraEnv) {
    return run.start(TOVRIN_BINARY, args, workdir, extraEnv);
}
