#include "vdac_config.h"

#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

typedef int (*word_fn)(struct vdac_config* cfg, const char* word);

static int add_format(struct vdac_config* cfg, const char* word) {
    snd_pcm_format_t f = snd_pcm_format_value(word);
    if (f == SND_PCM_FORMAT_UNKNOWN || cfg->nformats == VDAC_MAX_LIST) return -EINVAL;
    cfg->formats[cfg->nformats++] = (unsigned int)f;
    return 0;
}

static int add_rate(struct vdac_config* cfg, const char* word) {
    char* end;
    long rate = strtol(word, &end, 10);
    if (*end || rate <= 0 || cfg->nrates == VDAC_MAX_LIST) return -EINVAL;
    cfg->rates[cfg->nrates++] = (unsigned int)rate;
    return 0;
}

/* Splits a string on blanks and commas. */
static int each_word(struct vdac_config* cfg, const char* text, word_fn fn) {
    char word[64];
    while (*text) {
        while (*text && (isspace((unsigned char)*text) || *text == ',')) text++;
        size_t n = 0;
        while (text[n] && !isspace((unsigned char)text[n]) && text[n] != ',') n++;
        if (n == 0) break;
        if (n >= sizeof word) return -EINVAL;
        memcpy(word, text, n);
        word[n] = 0;
        int err = fn(cfg, word);
        if (err < 0) return err;
        text += n;
    }
    return 0;
}

/* Accepts "A B C", a single integer, or a list [ A B C ] of strings/integers. */
static int each_item(struct vdac_config* cfg, snd_config_t* node, word_fn fn) {
    const char* s;
    long l;
    char buf[32];
    switch (snd_config_get_type(node)) {
        case SND_CONFIG_TYPE_STRING:
            snd_config_get_string(node, &s);
            return each_word(cfg, s, fn);
        case SND_CONFIG_TYPE_INTEGER:
            snd_config_get_integer(node, &l);
            snprintf(buf, sizeof buf, "%ld", l);
            return fn(cfg, buf);
        case SND_CONFIG_TYPE_COMPOUND: {
            snd_config_iterator_t i, next;
            snd_config_for_each(i, next, node) {
                int err = each_item(cfg, snd_config_iterator_entry(i), fn);
                if (err < 0) return err;
            }
            return 0;
        }
        default:
            return -EINVAL;
    }
}

static int get_uint(snd_config_t* node, unsigned int* out) {
    long l;
    int err = snd_config_get_integer(node, &l);
    if (err < 0 || l < 1 || l > 1024) return -EINVAL;
    *out = (unsigned int)l;
    return 0;
}

static int get_count(snd_config_t* node, unsigned long* out) {
    long l;
    if (snd_config_get_integer(node, &l) < 0 || l < 0) return -EINVAL;
    *out = (unsigned long)l;
    return 0;
}

static int get_flag(snd_config_t* node, int* out) {
    int b = snd_config_get_bool(node);
    if (b < 0) return -EINVAL;
    *out = b;
    return 0;
}

static int get_speed(snd_config_t* node, double* out) {
    const char* s;
    if (snd_config_get_string(node, &s) == 0) {
        char* end;
        *out = strtod(s, &end);
        return *end || *out < 0 ? -EINVAL : 0;
    }
    return snd_config_get_ireal(node, out) < 0 || *out < 0 ? -EINVAL : 0;
}

static int get_path(snd_config_t* node, char** out) {
    const char* s;
    if (snd_config_get_string(node, &s) < 0) return -EINVAL;
    free(*out);
    *out = *s ? strdup(s) : NULL;
    return 0;
}

static int parse_field(struct vdac_config* cfg, const char* id, snd_config_t* node) {
    if (!strcmp(id, "comment") || !strcmp(id, "type") || !strcmp(id, "hint")) return 0;
    if (!strcmp(id, "formats")) {
        cfg->nformats = 0;
        return each_item(cfg, node, add_format);
    }
    if (!strcmp(id, "rates")) {
        cfg->nrates = 0;
        return each_item(cfg, node, add_rate);
    }
    if (!strcmp(id, "channels_min")) return get_uint(node, &cfg->channels_min);
    if (!strcmp(id, "channels_max")) return get_uint(node, &cfg->channels_max);
    if (!strcmp(id, "speed")) return get_speed(node, &cfg->speed);
    if (!strcmp(id, "capture")) return get_path(node, &cfg->capture);
    if (!strcmp(id, "log")) return get_path(node, &cfg->log);
    if (!strcmp(id, "pointer_step")) return get_count(node, &cfg->pointer_step);
    if (!strcmp(id, "suspend_after")) return get_count(node, &cfg->suspend_after);
    if (!strcmp(id, "resume")) return get_flag(node, &cfg->resume);
    if (!strcmp(id, "disconnect_after")) return get_count(node, &cfg->disconnect_after);
    if (!strcmp(id, "busy")) return get_flag(node, &cfg->busy);
    if (!strcmp(id, "no_rewind")) return get_flag(node, &cfg->no_rewind);
    return -ENOENT;
}

int vdac_config_parse(struct vdac_config* cfg, snd_config_t* conf, const char* name) {
    memset(cfg, 0, sizeof *cfg);
    cfg->formats[0] = SND_PCM_FORMAT_S16_LE;
    cfg->nformats = 1;
    cfg->rates[0] = 44100;
    cfg->rates[1] = 48000;
    cfg->nrates = 2;
    cfg->channels_min = 1;
    cfg->channels_max = 8;
    cfg->resume = 1;

    snd_config_iterator_t i, next;
    snd_config_for_each(i, next, conf) {
        snd_config_t* node = snd_config_iterator_entry(i);
        const char* id;
        if (snd_config_get_id(node, &id) < 0) continue;
        int err = parse_field(cfg, id, node);
        if (err == -ENOENT) {
            SNDERR("vdac %s: unknown field %s", name, id);
            return -EINVAL;
        }
        if (err < 0) {
            SNDERR("vdac %s: bad value for %s", name, id);
            return err;
        }
    }
    if (!cfg->nformats || !cfg->nrates || cfg->channels_min > cfg->channels_max) {
        SNDERR("vdac %s: empty format or rate list, or channels_min > channels_max", name);
        return -EINVAL;
    }
    return 0;
}

void vdac_config_free(struct vdac_config* cfg) {
    free(cfg->capture);
    free(cfg->log);
    cfg->capture = cfg->log = NULL;
}
