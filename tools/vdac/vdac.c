/*
 * The virtual DAC: a playback-only ALSA PCM that consumes frames either at
 * once or paced by CLOCK_MONOTONIC, appends every consumed byte to a capture
 * file and every stream event to a log, so tests can check exactly what a
 * player sent to its "card" and when. On request it also shows habits of
 * real cards (see vdac_config.h) that a player has to survive.
 *
 * alsa-lib calls every callback but drain, resume and poll_revents with the
 * PCM lock held; our own mutex still guards the state because those run
 * without it. Sleeps (drain, a full card without rewind) release our mutex.
 */
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include "vdac_config.h"

typedef struct vdac {
    snd_pcm_ioplug_t io;
    snd_pcm_ioplug_callback_t callbacks;
    struct vdac_config cfg;
    int capture_fd, log_fd, timer_fd;
    pthread_mutex_t lock;

    snd_pcm_uframes_t boundary, avail_min;
    size_t frame_bytes;
    uint8_t* ring; /* buffer_size frames, indexed by frame count modulo buffer_size */

    /* Frame counts since prepare; consumed <= written <= consumed + buffer_size.
     * The card plays only when it reports its position, so what alsa-lib last
     * heard is all that was played and a rewind cannot reach played frames
     * (unless the reported position is stepped). */
    uint64_t written, consumed;
    uint64_t skip;                       /* rewritten frames the card had already played */
    uint64_t bytes_total, frames_total;  /* consumed since open */
    uint64_t clock_start_ns, clock_base; /* consumed == clock_base at clock_start_ns */
    unsigned xruns;
    int active, running, paused, underrun, drained;
    int suspended, suspend_done, disconnected;
    snd_pcm_state_t resume_state;
} vdac_t;

static uint64_t now_ns(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint64_t)ts.tv_sec * 1000000000u + (uint64_t)ts.tv_nsec;
}

static void vdac_log(vdac_t* v, const char* event, const char* fmt, ...) {
    if (v->log_fd < 0) return;
    char line[512];
    int n = snprintf(line, sizeof line, "%llu %s", (unsigned long long)(now_ns() / 1000), event);
    if (fmt && n < (int)sizeof line) {
        line[n++] = ' ';
        va_list ap;
        va_start(ap, fmt);
        n += vsnprintf(line + n, sizeof line - (size_t)n, fmt, ap);
        va_end(ap);
    }
    if (n < (int)sizeof line)
        n += snprintf(line + n, sizeof line - (size_t)n, " bytes=%llu\n",
                      (unsigned long long)v->bytes_total);
    if (n >= (int)sizeof line) n = (int)sizeof line - 1;
    /* One write per line on an O_APPEND descriptor: nothing buffered, no interleaving. */
    if (write(v->log_fd, line, (size_t)n) < 0) return;
}

static void sleep_until(uint64_t ns) {
    struct timespec ts = {(time_t)(ns / 1000000000u), (long)(ns % 1000000000u)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, NULL) == EINTR) {
    }
}

static unsigned long long ull(uint64_t n) {
    return (unsigned long long)n;
}

static void capture(vdac_t* v, const uint8_t* data, size_t len) {
    while (v->capture_fd >= 0 && len > 0) {
        ssize_t n = write(v->capture_fd, data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        data += n;
        len -= (size_t)n;
    }
}

/* What every call answers once the card is gone or asleep. */
static int gone(const vdac_t* v) {
    return v->disconnected ? -ENODEV : v->suspended ? -ESTRPIPE : 0;
}

static uint64_t frames_until(const vdac_t* v, unsigned long at) {
    return at > v->frames_total ? at - v->frames_total : 0;
}

/* Frames the card may still play before a configured suspend or disconnect. */
static uint64_t frames_before_habit(const vdac_t* v) {
    uint64_t left = UINT64_MAX;
    if (v->cfg.suspend_after && !v->suspend_done) left = frames_until(v, v->cfg.suspend_after);
    if (v->cfg.disconnect_after && frames_until(v, v->cfg.disconnect_after) < left)
        left = frames_until(v, v->cfg.disconnect_after);
    return left;
}

static void habit_due(vdac_t* v) {
    if (v->cfg.disconnect_after && v->frames_total >= v->cfg.disconnect_after) {
        v->disconnected = 1;
        snd_pcm_ioplug_set_state(&v->io, SND_PCM_STATE_DISCONNECTED);
        vdac_log(v, "disconnect", "pos=%llu", ull(v->consumed));
    } else if (v->cfg.suspend_after && !v->suspend_done &&
               v->frames_total >= v->cfg.suspend_after) {
        v->suspended = v->suspend_done = 1;
        v->resume_state = v->io.state;
        snd_pcm_ioplug_set_state(&v->io, SND_PCM_STATE_SUSPENDED);
        vdac_log(v, "suspend", "pos=%llu", ull(v->consumed));
    }
}

/* Marks frames up to `upto` as played: their bytes leave the ring for the capture file. */
static void consume_to(vdac_t* v, uint64_t upto) {
    if (v->suspended || v->disconnected) return;
    snd_pcm_uframes_t size = v->io.buffer_size;
    uint64_t left = frames_before_habit(v);
    if (upto > v->consumed && upto - v->consumed > left) upto = v->consumed + left;
    while (v->consumed < upto) {
        uint64_t at = v->consumed % size;
        uint64_t n = upto - v->consumed;
        if (n > size - at) n = size - at;
        capture(v, v->ring + at * v->frame_bytes, n * v->frame_bytes);
        v->consumed += n;
        v->frames_total += n;
        v->bytes_total += n * v->frame_bytes;
    }
    if (left != UINT64_MAX && frames_before_habit(v) == 0) habit_due(v);
}

/* Where the clock has moved the hardware pointer to, unbounded by what was written. */
static uint64_t clock_position(const vdac_t* v, uint64_t now) {
    double frames = (double)(now - v->clock_start_ns) * 1e-9 * v->io.rate * v->cfg.speed;
    return v->clock_base + (uint64_t)frames;
}

/* Where the card would have played to by now, without playing it. */
static uint64_t play_target(const vdac_t* v) {
    if (!v->running || v->paused || gone(v)) return v->consumed;
    if (v->cfg.speed <= 0) return v->written;
    return clock_position(v, now_ns());
}

/* Advances consumption to now. Returns -EPIPE when the stream ran dry (underrun). */
static int advance(vdac_t* v, int draining) {
    if (v->underrun) return -EPIPE;
    uint64_t pos = play_target(v);
    if (pos <= v->written) {
        consume_to(v, pos);
        return 0;
    }
    consume_to(v, v->written);
    if (draining || gone(v)) return 0;
    v->underrun = 1;
    v->xruns++;
    vdac_log(v, "xrun", "count=%u", v->xruns);
    return -EPIPE;
}

/* The position the card reports. A card without rewind reports it honestly
 * too (its room must stay true); it refuses the rewind itself below. */
static uint64_t reported_position(const vdac_t* v) {
    uint64_t pos = v->consumed;
    if (v->cfg.pointer_step) pos -= pos % v->cfg.pointer_step;
    return pos;
}

/* alsa-lib moves the application pointer on a rewind or forward without telling the
 * plugin; the ring follows it here, before anything else looks at it. */
static void follow_appl(vdac_t* v) {
    if (!v->active || !v->boundary) return;
    uint64_t b = v->boundary;
    uint64_t mine = (v->written - v->skip) % b, appl = v->io.appl_ptr;
    if (appl == mine) return;
    uint64_t back = (mine + b - appl) % b;
    if (back > v->io.buffer_size) {
        uint64_t ahead = (appl + b - mine) % b, s = ahead < v->skip ? ahead : v->skip;
        v->skip -= s;
        v->written += ahead - s; /* stale ring contents count as written, as on a card */
        vdac_log(v, "forward", "frames=%llu pos=%llu", ull(ahead), ull(v->consumed));
    } else if (v->cfg.no_rewind && v->running) {
        /* alsa-lib never asks the plugin; putting the pointer back is the only refusal. */
        v->io.appl_ptr = (snd_pcm_uframes_t)mine;
        vdac_log(v, "rewind", "frames=0 refused=%llu pos=%llu", ull(back), ull(v->consumed));
    } else {
        uint64_t queued = v->written - v->consumed;
        uint64_t played = back > queued ? back - queued : 0;
        v->written -= back - played;
        v->skip += played;
        vdac_log(v, "rewind", "frames=%llu played=%llu pos=%llu", ull(back), ull(played),
                 ull(v->consumed));
    }
}

static void start_clock(vdac_t* v) {
    v->clock_start_ns = now_ns();
    v->clock_base = v->consumed;
}

static int vdac_start(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    int err = gone(v);
    if (!err) {
        follow_appl(v);
        v->running = 1;
        v->paused = 0;
        start_clock(v);
        vdac_log(v, "start", NULL);
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

static int vdac_stop(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    if (v->active) {
        follow_appl(v);
        advance(v, 1);
        /* What the clock had not reached yet is thrown away, as on a card. */
        v->written = v->consumed;
        v->skip = 0;
        if (!v->drained) vdac_log(v, "drop", NULL);
    }
    v->active = v->running = v->paused = 0;
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static snd_pcm_sframes_t vdac_pointer(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    follow_appl(v);
    int err = advance(v, 0);
    snd_pcm_sframes_t pos = (snd_pcm_sframes_t)(reported_position(v) % v->boundary);
    pthread_mutex_unlock(&v->lock);
    /* A negative answer would make alsa-lib report an xrun over a suspend or disconnect. */
    return err < 0 ? err : pos;
}

/* A card without rewind holds at most a buffer of fetched frames; a blocking write
 * waits for the clock to make room for `need` of them. */
static int wait_room(vdac_t* v, uint64_t need) {
    snd_pcm_uframes_t size = v->io.buffer_size;
    while (size - (v->written - v->consumed) < need) {
        int can_wait = v->running && !v->paused && v->cfg.speed > 0 && !v->io.nonblock;
        if (!can_wait) return size > v->written - v->consumed ? 0 : -EAGAIN;
        uint64_t target = v->written + need - size;
        double wait_s = (double)(target - v->clock_base) / (v->io.rate * v->cfg.speed);
        pthread_mutex_unlock(&v->lock);
        sleep_until(v->clock_start_ns + (uint64_t)(wait_s * 1e9) + 1000);
        pthread_mutex_lock(&v->lock);
        int err = advance(v, 0);
        if (err < 0 || (err = gone(v)) < 0) return err;
    }
    return 0;
}

/* Takes frames into the ring; the card may refuse some when it has no rewind. */
static snd_pcm_sframes_t take_frames(vdac_t* v, const snd_pcm_channel_area_t* areas,
                                     snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    snd_pcm_uframes_t ring = v->io.buffer_size, done = v->skip < size ? v->skip : size;
    v->skip -= done; /* late: the card played these positions already */
    snd_pcm_uframes_t end = size;
    if (v->cfg.no_rewind) {
        int err = advance(v, 0);
        if (err == 0) err = gone(v);
        if (err == 0)
            err = wait_room(v, size - done < v->io.period_size ? size - done : v->io.period_size);
        if (err < 0) return err;
        uint64_t room = ring - (v->written - v->consumed);
        if (end - done > room) end = done + room;
    }
    /* Interleaved access only: one area describes every frame. */
    const uint8_t* src =
        (const uint8_t*)areas[0].addr + areas[0].first / 8 + offset * (areas[0].step / 8);
    while (done < end) {
        uint64_t at = v->written % ring;
        uint64_t n = end - done;
        if (n > ring - at) n = ring - at;
        memcpy(v->ring + at * v->frame_bytes, src + done * v->frame_bytes, n * v->frame_bytes);
        v->written += n;
        done += n;
    }
    return (snd_pcm_sframes_t)end;
}

static snd_pcm_sframes_t vdac_transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                                       snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    follow_appl(v);
    snd_pcm_sframes_t n = gone(v);
    /* Data arriving after the clock passed the end of the buffer is too late. */
    if (n == 0 && play_target(v) > v->written && advance(v, 0) < 0) n = -EPIPE;
    if (n == 0) n = take_frames(v, areas, offset, size);
    pthread_mutex_unlock(&v->lock);
    if (n == -EPIPE) snd_pcm_ioplug_set_state(io, SND_PCM_STATE_XRUN);
    return n;
}

static int listed(const unsigned int* list, unsigned int n, unsigned int value) {
    for (unsigned int i = 0; i < n; i++)
        if (list[i] == value) return 1;
    return 0;
}

static int vdac_hw_params(snd_pcm_ioplug_t* io, snd_pcm_hw_params_t* params) {
    (void)params;
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    int err = v->disconnected ? -ENODEV : 0;
    /* alsa-lib narrows a listed rate only to the list's bounds; a card takes no other. */
    if (!err && (!listed(v->cfg.rates, v->cfg.nrates, io->rate) ||
                 !listed(v->cfg.formats, v->cfg.nformats, (unsigned int)io->format) ||
                 io->channels < v->cfg.channels_min || io->channels > v->cfg.channels_max)) {
        vdac_log(v, "refuse", "format=%s channels=%u rate=%u", snd_pcm_format_name(io->format),
                 io->channels, io->rate);
        err = -EINVAL;
    }
    if (!err) {
        v->frame_bytes = (size_t)snd_pcm_format_physical_width(io->format) / 8 * io->channels;
        free(v->ring);
        v->ring = calloc(io->buffer_size, v->frame_bytes);
        if (!v->ring) err = -ENOMEM;
        /* alsa-lib's own rule; replaced by the real value in sw_params. */
        v->boundary = io->buffer_size;
        while (v->boundary * 2 <= (snd_pcm_uframes_t)LONG_MAX - io->buffer_size) v->boundary *= 2;
        vdac_log(v, "hw_params", "access=%s format=%s channels=%u rate=%u period=%lu buffer=%lu",
                 snd_pcm_access_name(io->access), snd_pcm_format_name(io->format), io->channels,
                 io->rate, (unsigned long)io->period_size, (unsigned long)io->buffer_size);
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

static int vdac_hw_free(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    free(v->ring);
    v->ring = NULL;
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static int vdac_sw_params(snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params) {
    vdac_t* v = io->private_data;
    snd_pcm_uframes_t boundary = 0, avail_min = 1;
    snd_pcm_sw_params_get_boundary(params, &boundary);
    snd_pcm_sw_params_get_avail_min(params, &avail_min);
    pthread_mutex_lock(&v->lock);
    if (boundary) v->boundary = boundary;
    v->avail_min = avail_min ? avail_min : 1;
    int err = v->disconnected ? -ENODEV : 0;
    pthread_mutex_unlock(&v->lock);
    return err;
}

/* Wakes pollers often enough to notice a period's worth of room without spinning. */
static void arm_timer(vdac_t* v) {
    double period_s = (double)v->io.period_size / v->io.rate;
    double tick = v->cfg.speed > 0 ? period_s / v->cfg.speed / 4 : 0.001;
    if (tick < 0.00025) tick = 0.00025;
    if (tick > 0.005) tick = 0.005;
    long ns = (long)(tick * 1e9);
    struct itimerspec spec = {{0, ns}, {0, ns}};
    timerfd_settime(v->timer_fd, 0, &spec, NULL);
}

static int vdac_prepare(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    int err = v->disconnected ? -ENODEV : 0;
    if (!err) {
        v->written = v->consumed = v->skip = 0;
        v->active = 1;
        v->running = v->paused = v->underrun = v->drained = v->suspended = 0;
        arm_timer(v);
        vdac_log(v, "prepare", NULL);
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

/* Returns once every written frame has been consumed; alsa-lib drops the stream afterwards. */
static int vdac_drain(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    follow_appl(v);
    int err = gone(v);
    if (err) {
        pthread_mutex_unlock(&v->lock);
        return err;
    }
    if (!v->running) {
        v->running = 1; /* a drain on a prepared stream plays what it holds */
        start_clock(v);
        vdac_log(v, "start", NULL);
    }
    if (v->cfg.speed > 0 && !v->underrun && !v->paused) {
        uint64_t left = v->written - v->consumed;
        uint64_t pos = clock_position(v, now_ns());
        uint64_t behind = pos > v->consumed ? pos - v->consumed : 0;
        left = left > behind ? left - behind : 0;
        if (left > frames_before_habit(v)) left = frames_before_habit(v);
        uint64_t end = now_ns() + (uint64_t)((double)left / (io->rate * v->cfg.speed) * 1e9) + 1000;
        pthread_mutex_unlock(&v->lock);
        sleep_until(end);
        pthread_mutex_lock(&v->lock);
    }
    advance(v, 1);
    consume_to(v, v->written);
    err = gone(v);
    if (!err) {
        v->drained = 1;
        vdac_log(v, "drain", NULL);
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

static int vdac_pause(snd_pcm_ioplug_t* io, int enable) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    follow_appl(v);
    int err = gone(v);
    if (!err) {
        /* No advance on pause: the card stops where it last reported, so all that
         * alsa-lib counts as rewindable is still unplayed. */
        v->paused = enable ? 1 : 0;
        if (!enable) start_clock(v);
        vdac_log(v, "pause", "on=%d", enable ? 1 : 0);
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

/* alsa-lib returns 0 from snd_pcm_resume whatever this says; a card that cannot
 * resume therefore falls into an xrun, which sends the player to prepare. */
static int vdac_resume(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    int err = v->disconnected ? -ENODEV : 0;
    if (!err && v->suspended && v->cfg.resume) {
        v->suspended = 0;
        start_clock(v);
        snd_pcm_ioplug_set_state(io, v->resume_state);
        vdac_log(v, "resume", "ok=1 pos=%llu", ull(v->consumed));
    } else if (!err && v->suspended) {
        snd_pcm_ioplug_set_state(io, SND_PCM_STATE_XRUN);
        vdac_log(v, "resume", "ok=0 pos=%llu", ull(v->consumed));
        err = -ENOSYS;
    }
    pthread_mutex_unlock(&v->lock);
    return err;
}

/* Only for a card without rewind, whose reported position runs ahead of the sound. */
static int vdac_delay(snd_pcm_ioplug_t* io, snd_pcm_sframes_t* delayp) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    follow_appl(v);
    int err = advance(v, 0);
    if (!err) err = gone(v);
    *delayp = (snd_pcm_sframes_t)(v->written - v->consumed);
    pthread_mutex_unlock(&v->lock);
    return err;
}

static int vdac_poll_revents(snd_pcm_ioplug_t* io, struct pollfd* pfd, unsigned int nfds,
                             unsigned short* revents) {
    vdac_t* v = io->private_data;
    uint64_t ticks;
    if (nfds >= 1 && (pfd[0].revents & POLLIN)) {
        if (read(v->timer_fd, &ticks, sizeof ticks) < 0) { /* already cleared */
        }
    }
    pthread_mutex_lock(&v->lock);
    /* Called without alsa-lib's lock: no consuming here unless the card ran dry. */
    uint64_t pos = play_target(v);
    int err = pos > v->written ? advance(v, 0) : gone(v);
    if (pos > v->written) pos = v->written;
    if (pos < v->consumed) pos = v->consumed;
    uint64_t avail = io->buffer_size - (v->written - pos);
    pthread_mutex_unlock(&v->lock);
    if (err == -EPIPE || io->state == SND_PCM_STATE_XRUN) {
        snd_pcm_ioplug_set_state(io, SND_PCM_STATE_XRUN);
        *revents = POLLOUT | POLLERR;
    } else if (err < 0) {
        *revents = POLLOUT | POLLERR;
    } else {
        *revents = avail >= v->avail_min ? POLLOUT : 0;
    }
    return 0;
}

static int vdac_close(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    vdac_log(v, "close", "xruns=%u", v->xruns);
    if (v->capture_fd >= 0) close(v->capture_fd);
    if (v->log_fd >= 0) close(v->log_fd);
    if (v->timer_fd >= 0) close(v->timer_fd);
    pthread_mutex_destroy(&v->lock);
    free(v->ring);
    vdac_config_free(&v->cfg);
    free(v);
    return 0;
}

static const snd_pcm_ioplug_callback_t vdac_callbacks = {
    .start = vdac_start,
    .stop = vdac_stop,
    .pointer = vdac_pointer,
    .transfer = vdac_transfer,
    .close = vdac_close,
    .hw_params = vdac_hw_params,
    .hw_free = vdac_hw_free,
    .sw_params = vdac_sw_params,
    .prepare = vdac_prepare,
    .drain = vdac_drain,
    .pause = vdac_pause,
    .resume = vdac_resume,
    .poll_revents = vdac_poll_revents,
};

static int set_constraints(vdac_t* v) {
    static const unsigned int access[] = {SND_PCM_ACCESS_MMAP_INTERLEAVED,
                                          SND_PCM_ACCESS_RW_INTERLEAVED};
    snd_pcm_ioplug_t* io = &v->io;
    int err;
    if ((err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 2, access)) < 0 ||
        (err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT, v->cfg.nformats,
                                             v->cfg.formats)) < 0 ||
        (err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_RATE, v->cfg.nrates,
                                             v->cfg.rates)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_CHANNELS, v->cfg.channels_min,
                                               v->cfg.channels_max)) < 0 ||
        (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64, 4 << 20)) <
            0 ||
        (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, 128, 8 << 20)) <
            0 ||
        (err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIODS, 2, 64)) < 0)
        return err;
    return 0;
}

static int open_append(const char* path) {
    return path ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644) : -1;
}

SND_PCM_PLUGIN_DEFINE_FUNC(vdac) {
    (void)root;
    if (stream != SND_PCM_STREAM_PLAYBACK) {
        SNDERR("vdac %s: playback only", name);
        return -EINVAL;
    }
    vdac_t* v = calloc(1, sizeof *v);
    if (!v) return -ENOMEM;
    v->capture_fd = v->log_fd = v->timer_fd = -1;
    pthread_mutex_init(&v->lock, NULL);
    v->avail_min = 1;
    int err = vdac_config_parse(&v->cfg, conf, name);
    if (err == 0 && ((v->cfg.capture && (v->capture_fd = open_append(v->cfg.capture)) < 0) ||
                     (v->cfg.log && (v->log_fd = open_append(v->cfg.log)) < 0))) {
        err = -errno;
        SNDERR("vdac %s: cannot open capture or log file", name);
    }
    if (err == 0 && (v->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) < 0)
        err = -errno;
    if (err == 0 && v->cfg.busy) {
        vdac_log(v, "busy", NULL);
        err = -EBUSY;
    }
    if (err == 0) {
        v->callbacks = vdac_callbacks;
        /* Otherwise snd_pcm_delay would tell the fetched frames, not the sound's delay. */
        if (v->cfg.no_rewind) v->callbacks.delay = vdac_delay;
        v->io.version = SND_PCM_IOPLUG_VERSION;
        v->io.name = "Tovrin virtual DAC";
        v->io.callback = &v->callbacks;
        v->io.private_data = v;
        v->io.poll_fd = v->timer_fd;
        v->io.poll_events = POLLIN;
        v->io.mmap_rw = 0; /* RW writes go straight to transfer; mmap commits do too */
        v->io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
        err = snd_pcm_ioplug_create(&v->io, name, stream, mode);
        if (err == 0) {
            vdac_log(v, "open",
                     "speed=%g pointer_step=%lu suspend_after=%lu resume=%d disconnect_after=%lu "
                     "no_rewind=%d",
                     v->cfg.speed, v->cfg.pointer_step, v->cfg.suspend_after, v->cfg.resume,
                     v->cfg.disconnect_after, v->cfg.no_rewind);
            err = set_constraints(v);
            if (err < 0) {
                snd_pcm_ioplug_delete(&v->io); /* calls vdac_close */
                return err;
            }
            *pcmp = v->io.pcm;
            return 0;
        }
    }
    if (v->capture_fd >= 0) close(v->capture_fd);
    if (v->log_fd >= 0) close(v->log_fd);
    if (v->timer_fd >= 0) close(v->timer_fd);
    vdac_config_free(&v->cfg);
    free(v);
    return err;
}

SND_PCM_PLUGIN_SYMBOL(vdac);
