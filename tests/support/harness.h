// Runs a program (normally the built player) as a child in its own process
// group, with pipes on stdin/stdout/stderr, and watches its output.
// One ProgramRun belongs to one test thread. Every wait takes a timeout in
// seconds; nothing here blocks without one. The destructor SIGKILLs the whole
// process group and reaps the child, so a failing test leaves nothing behind.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/vdac.h"

enum class Stream { Out, Err };

class ProgramRun {
  public:
    ProgramRun() = default;
    ~ProgramRun();
    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;

    // Environment: this process's, plus ALSA_CONFIG_PATH=<workdir>/alsa.conf,
    // TOVRIN_SANDBOX=<workdir>/sandbox (created). The child runs in workdir. False (reason in
    // err()) when the program could not be started.
    bool start(const std::string& binary, const std::vector<std::string>& args,
               const std::string& workdir);

    bool send(const std::string& text);  // false once the child's stdin is closed
    void closeInput();
    // Sends sig to the child itself (not its group); false once it was reaped.
    bool sendSignal(int sig);

    // True once `text` occurs in the stream at or after byte offset `from`.
    bool waitFor(Stream stream, const std::string& text, double timeoutSec, size_t from = 0);
    // Exit status (128 + signal number if killed by one), or -1 on timeout.
    int waitExit(double timeoutSec);

    const std::string& out() const { return text_[0]; }
    const std::string& err() const { return text_[1]; }

  private:
    int pump(int timeoutMs);  // poll's count of ready pipes; -1 once both are closed
    bool reap(bool block);

    pid_t pid_ = -1;
    bool reaped_ = false;
    int status_ = -1;
    int in_ = -1, fd_[2] = {-1, -1};  // stdin, then stdout and stderr
    std::string text_[2];
};

// A temporary working directory with a vdac configuration at <dir>/alsa.conf,
// its capture and event log in the same directory, ready for ProgramRun.
struct PlayerFixture {
    explicit PlayerFixture(VdacConfig config = {});
    // Starts the built player in the working directory.
    bool start(ProgramRun& run, const std::vector<std::string>& args = {});
    // Runs it on `input`, then end of input; its exit status, -2 if it did not start.
    int session(ProgramRun& run, const std::string& input,
                const std::vector<std::string>& args = {});

    std::vector<VdacEvent> events() const { return readVdacLog(vdac.logPath); }
    std::vector<uint8_t> captured() const { return readFileBytes(vdac.capturePath); }

    TempDir dir;
    std::string workdir, confPath, sandbox;
    VdacConfig vdac;
};
