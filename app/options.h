// The command-line options (--help, -h, --version, --stop) and the pid file
// through which --stop finds the background player. Main thread only.
#pragma once
#include <sys/types.h>

#include <string>

// Runs the option named by argv[1] and returns its exit status, or -1 when
// argv[1] is no option and start-up goes on as usual. Touches neither
// config.dat nor path.txt.
int runOption(int argc, char** argv);

// $XDG_RUNTIME_DIR/tovrin-<uid>.pid, or the same name under /tmp.
std::string pidFilePath();
// Records pid for --stop; failures are ignored, the player plays without it.
void writePidFile(pid_t pid);
// Removes the file only while it still names pid, so a player that ends
// late does not take away the record of a newer one.
void removePidFile(pid_t pid);
// SIGTERM asks the player to stop the way the console's stop does.
void stopOnTerminate();
