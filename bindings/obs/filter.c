#include "filter.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <util/bmem.h>
#include <util/platform.h>

#include "../padded_size.h"
#include "frames.h"
#include "vorn_tuning.h"

#define LOG(level, filter, format, ...) \
  blog(level, "[vornycnr: '%s'] " format, obs_source_get_name((filter)->source), __VA_ARGS__)

typedef struct {
  bool automatic, luma, chroma, fine;
  double gain;
} choices;

/* What is shown to the user. */
typedef struct {
  enum video_format format; /* of the last frame, filtered or not */
  int32_t width, height;
  bool taken;
  uint64_t frames;               /* filtered since the size last changed */
  double mean_ms, longest_ms;    /* mean of about the last 30 */
  double luma_gain, chroma_gain; /* of the entries in use; 0: none */
} frame_figures;

struct noise_filter {
  obs_source_t* source; /* the owner of this */

  pthread_mutex_t mutex; /* guards from here on */
  choices chosen;
  vorn_tuning_set* tuning; /* never NULL */
  char* tuning_file; /* that it came from, or that could not be used; "" for the default set */
  char fault[1024];  /* why the file could not be used, or "" */
  frame_figures shown;

  /* The frames' thread alone. */
  denoise_handle_t* handle;
  int32_t width, height; /* of the handle; kept when it could not be made, so as not to try again */
  vorn_noise_follower follower;
  uint8_t* scratch;
  size_t scratch_bytes;
};

static void take_tuning_file(noise_filter* filter, const char* path) {
  pthread_mutex_lock(&filter->mutex);
  const bool same = filter->tuning && strcmp(filter->tuning_file, path) == 0;
  pthread_mutex_unlock(&filter->mutex);
  if (same) return;
  /* Read outside of the lock, which frames wait for. */
  vorn_tuning_fault fault = {.text = ""};
  vorn_tuning_set* set = *path ? vorn_tuning_load(path, &fault) : vorn_tuning_default(&fault);
  if (!set) LOG(LOG_WARNING, filter, "%s", fault.text);
  pthread_mutex_lock(&filter->mutex);
  bfree(filter->tuning_file);
  filter->tuning_file = bstrdup(path);
  snprintf(filter->fault, sizeof filter->fault, "%s", set ? "" : fault.text);
  vorn_tuning_set* old = set ? filter->tuning : NULL;
  if (set) filter->tuning = set;
  pthread_mutex_unlock(&filter->mutex);
  vorn_tuning_free(old);
}

void noise_filter_update(noise_filter* filter, obs_data_t* settings) {
  const choices chosen = {.automatic = obs_data_get_bool(settings, SETTING_AUTOMATIC),
                          .luma = obs_data_get_bool(settings, SETTING_LUMA),
                          .chroma = obs_data_get_bool(settings, SETTING_CHROMA),
                          .fine = obs_data_get_bool(settings, SETTING_FINE),
                          .gain = obs_data_get_double(settings, SETTING_GAIN)};
  take_tuning_file(filter, obs_data_get_string(settings, SETTING_TUNING_FILE));
  pthread_mutex_lock(&filter->mutex);
  filter->chosen = chosen;
  pthread_mutex_unlock(&filter->mutex);
}

noise_filter* noise_filter_new(obs_data_t* settings, obs_source_t* source) {
  noise_filter* filter = bzalloc(sizeof *filter);
  filter->source = source;
  filter->tuning_file = bstrdup("");
  if (pthread_mutex_init(&filter->mutex, NULL) != 0) {
    bfree(filter->tuning_file);
    bfree(filter);
    return NULL;
  }
  /* First the default set, which a bad file leaves in use. */
  take_tuning_file(filter, "");
  if (!filter->tuning) {
    noise_filter_free(filter);
    return NULL;
  }
  noise_filter_update(filter, settings);
  return filter;
}

void noise_filter_free(noise_filter* filter) {
  if (filter->handle) vorn_ycnr_deinit(filter->handle);
  vorn_tuning_free(filter->tuning);
  pthread_mutex_destroy(&filter->mutex);
  bfree(filter->scratch);
  bfree(filter->tuning_file);
  bfree(filter);
}

/* Makes the denoiser fit the frame; false where there is none for it. */
static bool fit_denoiser(noise_filter* filter, int32_t width, int32_t height) {
  const vorn_ycnr_options options = {
      .width = padded_width(width), .height = padded_height(height), .workers = 0};
  if (filter->width == options.width && filter->height == options.height)
    return filter->handle != NULL;
  if (filter->handle) vorn_ycnr_deinit(filter->handle);
  filter->handle = vorn_ycnr_open(&options);
  filter->width = options.width;
  filter->height = options.height;
  memset(&filter->follower, 0, sizeof filter->follower);
  if (!filter->handle)
    LOG(LOG_ERROR, filter, "no denoiser for frames of %dx%d", (int)width, (int)height);
  pthread_mutex_lock(&filter->mutex);
  filter->shown.frames = 0;
  filter->shown.mean_ms = filter->shown.longest_ms = 0;
  pthread_mutex_unlock(&filter->mutex);
  return filter->handle != NULL;
}

/* The tuning for a frame, with the switches applied; returns whether in fine mode. The set may be
 * exchanged from another thread, so the lock is held for as long as it is looked at. */
static bool current_tuning(noise_filter* filter, const vorn_ycnr_planes* frame,
                           ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma) {
  pthread_mutex_lock(&filter->mutex);
  const choices chosen = filter->chosen;
  if (chosen.automatic) {
    const vorn_noise_frame noise = frame_to_measure(frame);
    vorn_tuning_follow(&filter->follower, filter->tuning, NULL, &noise, luma, chroma);
    filter->shown.luma_gain = filter->follower.luma_entry;
    filter->shown.chroma_gain = filter->follower.chroma_entry;
  } else {
    const int32_t entry = vorn_tuning_nearest(filter->tuning, chosen.gain);
    vorn_tuning_get(filter->tuning, entry < 0 ? 0 : entry, luma, chroma);
    filter->shown.luma_gain = filter->shown.chroma_gain =
        vorn_tuning_gain(filter->tuning, entry < 0 ? 0 : entry);
    filter->follower.frames = 0; /* switched on again, it begins anew */
  }
  pthread_mutex_unlock(&filter->mutex);
  luma->enable = chosen.luma && luma->enable == 1;
  chroma->enable = chosen.chroma && chroma->enable == 1;
  return chosen.fine;
}

static bool denoise(noise_filter* filter, const vorn_ycnr_planes* frame, bool fine,
                    const ycnr_ynr_tuning_param* luma, const ycnr_cnr_tuning_param* chroma) {
  return (fine ? vorn_ycnr_process_any_fine : vorn_ycnr_process_any)(filter->handle, frame, frame,
                                                                     luma, chroma) == VORN_OK;
}

/* Both halves have the same luma, so that the second one's chroma is filtered along the luma that
 * came out of the first. */
static bool denoise_422(noise_filter* filter, struct obs_source_frame* frame) {
  const size_t bytes = frame_scratch_bytes((int32_t)frame->width, (int32_t)frame->height);
  if (filter->scratch_bytes != bytes) {
    bfree(filter->scratch);
    filter->scratch = bmalloc(bytes);
    filter->scratch_bytes = bytes;
  }
  vorn_ycnr_planes even, odd;
  frame_split(frame, filter->scratch, &even, &odd);
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  const bool fine = current_tuning(filter, &even, &luma, &chroma);
  if (luma.enable == 0 && chroma.enable == 0) return true;
  if (!denoise(filter, &even, fine, &luma, &chroma)) return false;
  if (chroma.enable == 1 && !denoise(filter, &odd, fine, NULL, &chroma)) return false;
  frame_join(&even, &odd, frame);
  return true;
}

static bool denoise_420(noise_filter* filter, struct obs_source_frame* frame) {
  const vorn_ycnr_planes planes = frame_planes(frame);
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  const bool fine = current_tuning(filter, &planes, &luma, &chroma);
  if (luma.enable == 0 && chroma.enable == 0) return true;
  return denoise(filter, &planes, fine, &luma, &chroma);
}

static void count_frame(noise_filter* filter, const struct obs_source_frame* frame, bool taken,
                        double ms) {
  pthread_mutex_lock(&filter->mutex);
  frame_figures* shown = &filter->shown;
  shown->format = frame->format;
  shown->width = (int32_t)frame->width;
  shown->height = (int32_t)frame->height;
  shown->taken = taken;
  if (taken) {
    shown->frames += 1;
    const double share = shown->frames < 30 ? 1.0 / (double)shown->frames : 1.0 / 30;
    shown->mean_ms += (ms - shown->mean_ms) * share;
    if (ms > shown->longest_ms) shown->longest_ms = ms;
  }
  pthread_mutex_unlock(&filter->mutex);
}

struct obs_source_frame* noise_filter_run(noise_filter* filter, struct obs_source_frame* frame) {
  const uint64_t start = os_gettime_ns();
  bool taken =
      frame_is_taken(frame) && fit_denoiser(filter, (int32_t)frame->width, (int32_t)frame->height);
  if (taken) taken = frame_is_422(frame) ? denoise_422(filter, frame) : denoise_420(filter, frame);
  count_frame(filter, frame, taken, (double)(os_gettime_ns() - start) / 1e6);
  return frame;
}

void noise_filter_state(noise_filter* filter, char* text, size_t size) {
  pthread_mutex_lock(&filter->mutex);
  const frame_figures shown = filter->shown;
  char fault[sizeof filter->fault];
  memcpy(fault, filter->fault, sizeof fault);
  pthread_mutex_unlock(&filter->mutex);

  const char* format = get_video_format_name(shown.format);
  int used;
  if (shown.width == 0)
    used = snprintf(text, size, "%s", obs_module_text("NoFrames"));
  else if (!shown.taken)
    used = snprintf(text, size, "%s %s %dx%d", obs_module_text("Unsupported"), format, shown.width,
                    shown.height);
  else
    used = snprintf(text, size, "%s %dx%d: %.1f %s %.1f\n%s %g, %g", format, shown.width,
                    shown.height, shown.mean_ms, obs_module_text("TimePerFrame"), shown.longest_ms,
                    obs_module_text("GainInUse"), shown.luma_gain, shown.chroma_gain);
  if (*fault && used >= 0 && (size_t)used < size)
    snprintf(text + used, size - (size_t)used, "\n%s", fault);
}
