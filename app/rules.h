// Pure rules of the console front end: command parsing, the play-queue plan and
// the elapsed-time text. No shared state; any thread may call them.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The integer at the start of text the way strtol reads it (blanks, a sign,
// digits as far as they go; none give 0), saturated to the 64-bit range.
int64_t leadingInteger(std::string_view text);
// A settings command's value: leadingInteger taken as a signed 32-bit number
// (wrapping, like storing strtol's result into an int).
int32_t commandValue(std::string_view text);

enum class SeekKind { Absolute, Forward, Backward };
struct SeekCommand {
    SeekKind kind;
    int64_t seconds;
};
// "90", "1.30", "1:30", "+10", "-0.10"; nullopt for a word that is no seek.
std::optional<SeekCommand> parseSeek(std::string_view word);
// The target second, or nullopt when it falls outside 0 .. streamSeconds-1.
std::optional<int32_t> seekTarget(const SeekCommand& seek, int64_t positionSeconds,
                                  int32_t streamSeconds);

// Idle number command "N" or "N.M" (M 0 when absent); nullopt when the text
// before the first "." is not all digits.
struct NumberCommand {
    int64_t entry;
    int64_t track;
};
std::optional<NumberCommand> parseNumberCommand(std::string_view word);

// folder + "/" + name, without the "/" when folder is a single character.
std::string entryPath(const std::string& folder, const std::string& name);

// The paths to queue from a folder's entries, and the slot of the selected one
// (-1 when it is not queued). Paths that do not fit a slot are left out; with
// more playable files than slots the queue starts at the selection unless it
// lies among the first maxSlots.
struct QueuePlan {
    std::vector<std::string> paths;
    int index = -1;
};
QueuePlan planQueue(const std::vector<std::string>& entries, const std::string& folder,
                    const std::string& selected, size_t maxSlots, size_t slotBytes);

// "time MM:SS" for a position in milliseconds; minutes never wrap into hours.
std::string elapsedText(uint64_t positionMs);
