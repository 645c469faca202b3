// The console front end's entry points, shared by its files and its tests.
// Everything here runs on the main thread; the player thread is reached only
// through the fields of control/control.h.
#pragma once
#include <string>

#include "control/control.h"

// Sets playerRoutine from directInput and outputFormat, prints the output line
// and the settings report.
void selectPlayerVariant();

// Reports on standard output, except printElapsedTime on standard error.
void printHelp();
void printSettingsReport();
void printElapsedTime();

// Fills the queue from folderList and currentFolder, index on selectedPath.
void buildPlayQueue(const std::string& selectedPath);
// Starts a player thread on selectedPath (which must fit a path slot) with the
// queue built around it; seekSeconds holds the start position or -1.
void startPlayback(const std::string& selectedPath);
// Asks a running or starting player to stop and waits until it has let go of
// the control block.
void stopPlayer();
void playNext();
void playPrevious();
void togglePause();
// Current position in whole seconds (frozen while paused).
int64_t positionSeconds();
// Hands a position to the running player and moves the clock there.
void jumpTo(int32_t seconds);
// Checks that a CUE track can be played and sets file to the file it plays
// from when the sheet names several. False, with a message on stderr, when
// it cannot.
bool trackStart(size_t track, std::string& file);
// Makes an exact start (in CD frames) the pending seek.
void setPendingStart(int64_t cdFrames);

// One command in whichever set applies now; false after the exit command.
bool runCommand(const std::string& word);
bool runPlayingCommand(const std::string& word);
void runIdleCommand(const std::string& word);
// The settings commands, split where the listing commands sit in the order of
// the idle set; true when the word was one of them.
bool runEarlySettingsCommand(const std::string& word);
bool runLateSettingsCommand(const std::string& word);

// Exit: saves settings and path.txt, stops a player. Returns the exit status.
int exitProgram();
// The command loop on standard input until exit or end of input.
int runCommandLoop();

// path.txt in the working directory, replaced whole; a failed save is one
// line on stderr and leaves the old file.
void writePathFile(const std::string& folder);
// The folder it names when that is an existing directory. A path.txt that is
// no regular file is refused with one line on stderr.
bool readPathFile(std::string& folder);
