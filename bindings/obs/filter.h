/*
 * One filter of one source: its denoiser, its settings, and how long frames take.
 */
#ifndef VORN_OBS_FILTER_H
#define VORN_OBS_FILTER_H

#include <obs-module.h>

/* Names in the settings that OBS keeps. */
#define SETTING_AUTOMATIC "automatic"
#define SETTING_GAIN "gain"
#define SETTING_LUMA "luma"
#define SETTING_CHROMA "chroma"
#define SETTING_FINE "fine"
#define SETTING_TUNING_FILE "tuning_file"

typedef struct noise_filter noise_filter;

/* NULL, logged, where there is no memory. */
noise_filter* noise_filter_new(obs_data_t* settings, obs_source_t* source);
void noise_filter_free(noise_filter* filter);

/* Takes settings over, from any thread; the next frame is filtered with them. A tuning file that
 * cannot be used is logged and told by noise_filter_state, and the former set stays in use. */
void noise_filter_update(noise_filter* filter, obs_data_t* settings);

/* Filters a frame in place and returns it. Frames of other formats stay as they are, as do those
 * that there is no memory for. One thread at a time. */
struct obs_source_frame* noise_filter_run(noise_filter* filter, struct obs_source_frame* frame);

/* What goes on, as text of a few lines for the user; from any thread. */
void noise_filter_state(noise_filter* filter, char* text, size_t size);

#endif
