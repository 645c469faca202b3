// Which player routine runs: load mode times output sample format.
#include <cstdio>

#include "app/frontend.h"
#include "engine/player.h"
#include "settings/settings.h"

PlayerRoutine playerVariants[2][3] = {
    {fullMemoryPlayerS32, fullMemoryPlayerS24, fullMemoryPlayerS16},
    {directInputPlayerS32, directInputPlayerS24, directInputPlayerS16},
};

void selectPlayerVariant() {
    int mode = settings.directInput != 0 ? 1 : 0;
    int32_t format = outputFormat.load();
    int column = format == kFormatS32 ? 0 : format == kFormatS24_3 ? 1 : 2;
    static const char* const kLines[] = {"32 bit output", "24 bit output", "16 bit output"};
    playerRoutine.store(playerVariants[mode][column]);
    std::printf("%s\n", kLines[column]);
    std::fflush(stdout);
    printSettingsReport();
}
