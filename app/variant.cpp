// Which player routine runs: load mode times output sample format.
#include <cstdio>

#include "app/frontend.h"
#include "engine/packing.h"
#include "engine/player.h"
#include "settings/settings.h"

void selectPlayerVariant() {
    int32_t format = playerControl.outputFormat.load();
    int column = format == kFormatS32 ? 0 : format == kFormatS24_3 ? 1 : 2;
    static const char* const kLines[] = {"32 bit output", "24 bit output", "16 bit output"};
    playerControl.playerRoutine.store(playerRoutineFor(settings.directInput != 0, format));
    std::printf("%s\n", kLines[column]);
    std::fflush(stdout);
    printSettingsReport();
}
