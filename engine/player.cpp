#include "engine/player.h"

#include "engine/player_traits.h"

namespace {

template <class Fmt>
void* fullMemoryEntry(void* arg) {
    return fullMemoryPlayer<Fmt>(*static_cast<PlayerControl*>(arg));
}
template <class Fmt>
void* directInputEntry(void* arg) {
    return directInputPlayer<Fmt>(*static_cast<PlayerControl*>(arg));
}

template <class Fmt>
PlayerRoutine routineFor(bool directInput) {
    return directInput ? directInputEntry<Fmt> : fullMemoryEntry<Fmt>;
}

}  // namespace

PlayerRoutine playerRoutineFor(bool directInput, int32_t outputFormat) {
    if (outputFormat == kFormatS32) return routineFor<FormatS32>(directInput);
    if (outputFormat == kFormatS24_3) return routineFor<FormatS24>(directInput);
    return routineFor<FormatS16>(directInput);
}
