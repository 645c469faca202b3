// Reading console commands: one whitespace-delimited word per command, Enter
// repeating the last word (and doing nothing before there is one), and the
// termination signals, which end the input. Main thread only.
#pragma once
#include <cstdio>
#include <optional>
#include <string>

class CommandReader {
  public:
    // A stream with a descriptor must be unbuffered (the console makes stdin
    // so), since the reader waits on the descriptor, not on the stream.
    explicit CommandReader(FILE* in) : in_(in) {}
    // The next command, or nullopt at end of input, on a read error or once a
    // termination signal arrived; the loop treats it as the exit command, so
    // it never spins on a closed input.
    std::optional<std::string> next();

  private:
    int nextChar();
    FILE* in_;
    std::string last_;
};

// From here on SIGTERM, SIGINT and SIGHUP are taken by a watcher thread
// instead of ending the process: the first one ends the console's input (the
// program then exits as after "x"), a second one ends the process at once
// with 128 + its number. Call once, before any other thread is started, so
// that every thread inherits the blocked signals. False when it could not be
// set up (the signals keep their default action).
bool catchStopSignals();
// The first termination signal taken, or 0.
int stopSignal();
