// Reading console commands: one whitespace-delimited word per command, Enter
// repeating the last word ("0" before there is one). Main thread only.
#pragma once
#include <cstdio>
#include <optional>
#include <string>

class CommandReader {
  public:
    explicit CommandReader(FILE* in) : in_(in) {}
    // The next command, or nullopt at end of input (or a read error), which the
    // loop treats as the exit command so that it never spins on a closed input.
    std::optional<std::string> next();

  private:
    FILE* in_;
    std::string last_;
};
