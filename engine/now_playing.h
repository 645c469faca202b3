// Now-playing reports. Either thread may print them.
#pragma once
#include <cstdint>
#include <string>

#include "control/control.h"

void printTrackInfo(const PlayerControl& pc);
void printKeyHints();
std::string formatDuration(int32_t seconds);
