/*
 * The virtual DAC: a playback-only ALSA PCM that consumes frames either at
 * once or paced by CLOCK_MONOTONIC, appends every consumed byte to a capture
 * file and every stream event to a log, so tests can check exactly what a
 * player sent to its "card" and when.
 *
 * alsa-lib calls every callback but drain with the PCM lock held; our own
 * mutex still guards the state because drain sleeps without that lock.
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
    struct vdac_config cfg;
    int capture_fd, log_fd, timer_fd;
    pthread_mutex_t lock;

    snd_pcm_uframes_t boundary, avail_min;
    size_t frame_bytes;
    uint8_t* ring; /* buffer_size frames, indexed by frame count modulo buffer_size */

    /* Frame counts since prepare; consumed <= written <= consumed + buffer_size. */
    uint64_t written, consumed;
    uint64_t bytes_total;                /* consumed bytes since open */
    uint64_t clock_start_ns, clock_base; /* consumed == clock_base at clock_start_ns */
    unsigned xruns;
    int active, running, paused, underrun, drained;
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

static void capture(vdac_t* v, const uint8_t* data, size_t len) {
    while (v->capture_fd >= 0 && len > 0) {
        ssize_t n = write(v->capture_fd, data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        data += n;
        len -= (size_t)n;
    }
}

/* Marks frames up to `upto` as played: their bytes leave the ring for the capture file. */
static void consume_to(vdac_t* v, uint64_t upto) {
    snd_pcm_uframes_t size = v->io.buffer_size;
    while (v->consumed < upto) {
        uint64_t at = v->consumed % size;
        uint64_t n = upto - v->consumed;
        if (n > size - at) n = size - at;
        capture(v, v->ring + at * v->frame_bytes, n * v->frame_bytes);
        v->consumed += n;
        v->bytes_total += n * v->frame_bytes;
    }
}

/* Where the clock has moved the hardware pointer to, unbounded by what was written. */
static uint64_t clock_position(const vdac_t* v, uint64_t now) {
    double frames = (double)(now - v->clock_start_ns) * 1e-9 * v->io.rate * v->cfg.speed;
    return v->clock_base + (uint64_t)frames;
}

/* Advances consumption to now. Returns -EPIPE when the stream ran dry (underrun). */
static int advance(vdac_t* v, int draining) {
    if (v->underrun) return -EPIPE;
    if (!v->running || v->paused) return 0;
    if (v->cfg.speed <= 0) {
        consume_to(v, v->written);
        return 0;
    }
    uint64_t pos = clock_position(v, now_ns());
    if (pos <= v->written) {
        consume_to(v, pos);
        return 0;
    }
    consume_to(v, v->written);
    if (draining) return 0;
    v->underrun = 1;
    v->xruns++;
    vdac_log(v, "xrun", "count=%u", v->xruns);
    return -EPIPE;
}

static void start_clock(vdac_t* v) {
    v->clock_start_ns = now_ns();
    v->clock_base = v->consumed;
}

static int vdac_start(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    v->running = 1;
    v->paused = 0;
    start_clock(v);
    vdac_log(v, "start", NULL);
    advance(v, 0);
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static int vdac_stop(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    if (v->active) {
        advance(v, 1);
        /* What the clock had not reached yet is thrown away, as on a card. */
        v->written = v->consumed;
        if (!v->drained) vdac_log(v, "drop", NULL);
    }
    v->active = v->running = v->paused = 0;
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static snd_pcm_sframes_t vdac_pointer(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    int err = advance(v, 0);
    snd_pcm_sframes_t pos = (snd_pcm_sframes_t)(v->consumed % v->boundary);
    pthread_mutex_unlock(&v->lock);
    return err < 0 ? err : pos;
}

static snd_pcm_sframes_t vdac_transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                                       snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    /* Data arriving after the clock passed the end of the buffer is too late. */
    if (advance(v, 0) < 0) {
        pthread_mutex_unlock(&v->lock);
        snd_pcm_ioplug_set_state(io, SND_PCM_STATE_XRUN);
        return -EPIPE;
    }
    /* Interleaved access only: one area describes every frame. */
    const uint8_t* src =
        (const uint8_t*)areas[0].addr + areas[0].first / 8 + offset * (areas[0].step / 8);
    snd_pcm_uframes_t done = 0;
    while (done < size) {
        uint64_t at = v->written % io->buffer_size;
        uint64_t n = size - done;
        if (n > io->buffer_size - at) n = io->buffer_size - at;
        memcpy(v->ring + at * v->frame_bytes, src + done * v->frame_bytes, n * v->frame_bytes);
        v->written += n;
        done += n;
    }
    advance(v, 0);
    pthread_mutex_unlock(&v->lock);
    return (snd_pcm_sframes_t)size;
}

static int vdac_hw_params(snd_pcm_ioplug_t* io, snd_pcm_hw_params_t* params) {
    (void)params;
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    v->frame_bytes = (size_t)snd_pcm_format_physical_width(io->format) / 8 * io->channels;
    free(v->ring);
    v->ring = calloc(io->buffer_size, v->frame_bytes);
    /* alsa-lib's own rule; replaced by the real value in sw_params. */
    v->boundary = io->buffer_size;
    while (v->boundary * 2 <= (snd_pcm_uframes_t)LONG_MAX - io->buffer_size) v->boundary *= 2;
    vdac_log(v, "hw_params", "access=%s format=%s channels=%u rate=%u period=%lu buffer=%lu",
             snd_pcm_access_name(io->access), snd_pcm_format_name(io->format), io->channels,
             io->rate, (unsigned long)io->period_size, (unsigned long)io->buffer_size);
    pthread_mutex_unlock(&v->lock);
    return v->ring ? 0 : -ENOMEM;
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
    pthread_mutex_unlock(&v->lock);
    return 0;
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
    v->written = v->consumed = 0;
    v->active = 1;
    v->running = v->paused = v->underrun = v->drained = 0;
    arm_timer(v);
    vdac_log(v, "prepare", NULL);
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static void sleep_until(uint64_t ns) {
    struct timespec ts = {(time_t)(ns / 1000000000u), (long)(ns % 1000000000u)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, NULL) == EINTR) {
    }
}

/* Returns once every written frame has been consumed; alsa-lib drops the stream afterwards. */
static int vdac_drain(snd_pcm_ioplug_t* io) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
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
        uint64_t end = now_ns() + (uint64_t)((double)left / (io->rate * v->cfg.speed) * 1e9) + 1000;
        pthread_mutex_unlock(&v->lock);
        sleep_until(end);
        pthread_mutex_lock(&v->lock);
    }
    advance(v, 1);
    consume_to(v, v->written);
    v->drained = 1;
    vdac_log(v, "drain", NULL);
    pthread_mutex_unlock(&v->lock);
    return 0;
}

static int vdac_pause(snd_pcm_ioplug_t* io, int enable) {
    vdac_t* v = io->private_data;
    pthread_mutex_lock(&v->lock);
    if (enable) {
        advance(v, 0);
        v->paused = 1;
    } else {
        v->paused = 0;
        start_clock(v);
    }
    vdac_log(v, "pause", "on=%d", enable ? 1 : 0);
    pthread_mutex_unlock(&v->lock);
    return 0;
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
    int err = advance(v, 0);
    uint64_t avail = io->buffer_size - (v->written - v->consumed);
    pthread_mutex_unlock(&v->lock);
    if (err < 0 || io->state == SND_PCM_STATE_XRUN) {
        snd_pcm_ioplug_set_state(io, SND_PCM_STATE_XRUN);
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
    if (err == 0) {
        v->io.version = SND_PCM_IOPLUG_VERSION;
        v->io.name = "Tovrin virtual DAC";
        v->io.callback = &vdac_callbacks;
        v->io.private_data = v;
        v->io.poll_fd = v->timer_fd;
        v->io.poll_events = POLLIN;
        v->io.mmap_rw = 0; /* RW writes go straight to transfer; mmap commits do too */
        v->io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
        err = snd_pcm_ioplug_create(&v->io, name, stream, mode);
        if (err == 0) {
            vdac_log(v, "open", "speed=%g", v->cfg.speed);
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
