// Now-playing reports. Either thread may print them.
#pragma once
#include <cstdint>
#include <string>

void printTrackInfo();
void printKeyHints();
std::string formatDuration(int32_t seconds);
