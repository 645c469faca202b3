#include "engine/card_state.h"

#include <algorithm>

#include "device/recovery.h"
#include "engine/run_support.h"

void CardState::restart() {
    snd_pcm_drop(pcm_);
    snd_pcm_prepare(pcm_);
    started = false;
}

void CardState::startIfPrepared() {
    if (snd_pcm_state(pcm_) == SND_PCM_STATE_PREPARED && snd_pcm_start(pcm_) == 0) started = true;
}

snd_pcm_sframes_t CardState::queued() const {
    snd_pcm_sframes_t delay = 0;
    if (snd_pcm_delay(pcm_, &delay) < 0) return 0;
    return std::max<snd_pcm_sframes_t>(delay, 0);
}

uint64_t CardState::takeBack(uint64_t limit, bool keepEven, bool& dropped) {
    dropped = false;
    const uint64_t held = uint64_t(queued());
    if (limit == 0 || held == 0) return 0;
    // rewindable counts from the pointer last read: read it now. About 20 ms
    // (at most half the buffer) stays queued so the frames written next have time to
    // follow (a driver already leaves out what its hardware has fetched; a
    // plugin may not).
    snd_pcm_avail(pcm_);
    const uint64_t margin = std::min<uint64_t>(geometry_.bufferFrames / 2, rate_ / 50);
    const snd_pcm_sframes_t can = snd_pcm_rewindable(pcm_);
    uint64_t n =
        std::min<uint64_t>(can > 0 && uint64_t(can) > margin ? uint64_t(can) - margin : 0, limit);
    if (keepEven) n &= ~uint64_t(1);
    if (n > 0) {
        snd_pcm_sframes_t got = snd_pcm_rewind(pcm_, n);
        if (got > 0 && keepEven && (got & 1)) got -= snd_pcm_forward(pcm_, 1) == 1 ? 1 : 0;
        // Some plugins answer a rewind they do not carry out: trust the queue.
        if (got > 0 && uint64_t(queued()) + uint64_t(got) / 2 <= held) return uint64_t(got);
    }
    // No rewind. Dropping is worth it past a pass, and safe only when all the
    // card holds is ours to write again.
    const uint64_t now = uint64_t(queued());
    if (now <= margin || now > limit) return 0;
    restart();
    dropped = true;
    return now;
}

bool CardState::playedOut() {
    switch (snd_pcm_state(pcm_)) {
        case SND_PCM_STATE_PREPARED: {
            snd_pcm_sframes_t avail = snd_pcm_avail(pcm_);
            if (avail >= 0 && snd_pcm_uframes_t(avail) < geometry_.bufferFrames) {
                startIfPrepared();
                return false;
            }
            break;
        }
        case SND_PCM_STATE_RUNNING:
            // The last stretch is drained so the card never runs dry: a pass
            // and a period, since a card may report its position by periods.
            // A stop waits for no more than that.
            if (uint64_t(queued()) > geometry_.periodFrames + geometry_.bufferFrames / 8)
                return false;
            break;
        case SND_PCM_STATE_SUSPENDED:
            return recoverPcm(pcm_, -ESTRPIPE) == PcmRecovery::Gone;
        case SND_PCM_STATE_XRUN:
            // An underrun here is the end of the data, not a fault; the card
            // is closed as from a clean end.
            snd_pcm_prepare(pcm_);
            break;
        default:
            return true;  // drained already, or gone
    }
    snd_pcm_drain(pcm_);
    return true;
}

void CardState::publishHeard(PlayerControl& pc, uint64_t position, int32_t rate) const {
    if (rate <= 0) return;
    const uint64_t held = paused ? 0 : uint64_t(queued());
    const uint64_t frame = position > held ? position - held : 0;
    pc.heardMs.store(int64_t(frame * 1000 / uint64_t(rate)));
}

void playOut(PlayerControl& pc, snd_pcm_t* pcm, const DeviceGeometry& geometry, uint32_t rate) {
    CardState card(pcm, geometry, rate);
    while (!card.playedOut()) {
        if (pc.stopRequest.load()) {
            snd_pcm_drop(pcm);
            return;
        }
        passSleep(geometry.bufferTimeUs);
    }
}
