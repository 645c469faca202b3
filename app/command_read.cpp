#include "app/command_read.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>

namespace {

sigset_t stopSet;
std::atomic<int> firstSignal{0};
int wakeRead = -1, wakeWrite = -1;  // the watcher writes one byte per first signal

// No handler runs: the signals stay blocked everywhere and this thread takes
// them, so the work after a signal happens on the main thread, in order.
void* watchSignals(void*) {
    for (;;) {
        int sig = 0;
        if (sigwait(&stopSet, &sig) != 0) continue;
        int none = 0;
        if (!firstSignal.compare_exchange_strong(none, sig)) _exit(128 + sig);
        const char byte = 1;
        ssize_t ignored = write(wakeWrite, &byte, 1);
        (void)ignored;
    }
    return nullptr;
}

bool isBlank(int c) {
    return c != EOF && std::isspace(static_cast<unsigned char>(c));
}

// Waits until fd has input or a stop signal was taken; false for the signal.
bool waitForInput(int fd) {
    pollfd fds[2] = {{wakeRead, POLLIN, 0}, {fd, POLLIN, 0}};
    for (;;) {
        if (firstSignal.load() != 0) return false;
        int n = poll(fds, 2, -1);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 || fds[0].revents != 0) return firstSignal.load() == 0;
        // End of input and errors show as readable too; getc then tells.
        if (fds[1].revents != 0) return true;
    }
}

}  // namespace

bool catchStopSignals() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    sigemptyset(&stopSet);
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&stopSet, sig);
    if (pthread_sigmask(SIG_BLOCK, &stopSet, nullptr) != 0) return false;
    wakeRead = fds[0];
    wakeWrite = fds[1];
    pthread_t watcher;
    if (pthread_create(&watcher, nullptr, watchSignals, nullptr) != 0) {
        pthread_sigmask(SIG_UNBLOCK, &stopSet, nullptr);
        return false;
    }
    pthread_detach(watcher);
    return true;
}

int stopSignal() {
    return firstSignal.load();
}

int CommandReader::nextChar() {
    const int fd = fileno(in_);
    if (wakeRead >= 0 && fd >= 0 && !waitForInput(fd)) return EOF;
    return std::getc(in_);
}

std::optional<std::string> CommandReader::next() {
    int c = nextChar();
    // Enter repeats the last word; before there is one it does nothing.
    while (c == '\n' && last_.empty()) c = nextChar();
    if (c == EOF) return std::nullopt;
    if (c == '\n') return last_;
    while (isBlank(c)) c = nextChar();
    if (c == EOF) return std::nullopt;
    std::string word;
    while (c != EOF && !isBlank(c)) {
        word.push_back(static_cast<char>(c));
        c = nextChar();
    }
    // A signal in the middle of a word drops the word.
    if (stopSignal() != 0) return std::nullopt;
    // The one character after the word (normally the line end) goes with it;
    // at end of input there is none to take.
    last_ = word;
    return word;
}
