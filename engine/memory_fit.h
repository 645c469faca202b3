// Whether a whole decoded file fits in memory before Full Memory asks for it:
// with locked memory an allocation the system cannot back invites the
// out-of-memory killer instead of a clean failure. Player thread only.
#pragma once
#include <cstdint>
#include <string>

// Where the system says how much memory is free; a test points it elsewhere.
extern std::string meminfoPath;

// Empty when bytes fit; otherwise why not, for a message.
std::string memoryShortfall(uint64_t bytes);
