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
};

/* Fills cfg from the pcm block; 0 or a negative errno after an SNDERR message. */
int vdac_config_parse(struct vdac_config* cfg, snd_config_t* conf, const char* name);
void vdac_config_free(struct vdac_config* cfg);

#endif
