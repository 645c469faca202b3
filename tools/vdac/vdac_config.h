/* The vdac's configuration block, parsed from its ALSA pcm definition. */
#ifndef VDAC_CONFIG_H
#define VDAC_CONFIG_H

#include <alsa/asoundlib.h>

#define VDAC_MAX_LIST 64

struct vdac_config {
    unsigned int formats[VDAC_MAX_LIST], nformats;
    unsigned int rates[VDAC_MAX_LIST], nrates;
    unsigned int channels_min, channels_max;
    double speed;
    char *capture, *log; /* NULL: not recorded */

    /* A real card's habits; 0 leaves each one off. Frame counts run from open. */
    unsigned long pointer_step;     /* reported position moves in steps of this many frames */
    unsigned long suspend_after;    /* suspend once this many frames were played */
    int resume;                     /* snd_pcm_resume continues where the card stopped */
    unsigned long disconnect_after; /* the device vanishes once this many frames were played */
    int busy;                       /* opening fails with -EBUSY */
    int no_rewind;                  /* once running, every written frame counts as fetched */
};

/* Fills cfg from the pcm block; 0 or a negative errno after an SNDERR message. */
int vdac_config_parse(struct vdac_config* cfg, snd_config_t* conf, const char* name);
void vdac_config_free(struct vdac_config* cfg);

#endif
