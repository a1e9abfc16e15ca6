/* The OBS filter in the real libobs, without a window: what its callbacks make of frames is what
 * the library makes of the same pictures. test_obs MODULE.so DATA_DIR SCRATCH_DIR */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <obs.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <util/bmem.h>

#include "pictures.h"
#include "vorn_noise.h"
#include "vorn_tuning.h"

#define ID "vornycnr_filter"
#define COUNT(array) (sizeof(array) / sizeof *(array))

static struct obs_source_info info; /* what the module registered */
static vorn_tuning_set* set;        /* the default one */
static const char* scratch;

static const enum video_format kFormats[] = {VIDEO_FORMAT_I420, VIDEO_FORMAT_NV12,
                                             VIDEO_FORMAT_YUY2, VIDEO_FORMAT_UYVY};

static atomic_int made, destroyed;

static void counted_destroy(void* filter) {
  info.destroy(filter);
  ++destroyed;
}

/* Stands before libobs's own, which gets the call too: the callbacks are reached through it. */
void obs_register_source_s(const struct obs_source_info* registered, size_t size) {
  CHECK(size <= sizeof info);
  memcpy(&info, registered, size);
  void (*own)(const struct obs_source_info*, size_t);
  *(void**)&own = dlsym(RTLD_NEXT, "obs_register_source_s");
  struct obs_source_info counting = info;
  counting.destroy = counted_destroy;
  own(&counting, size);
}

typedef struct {
  bool automatic, luma, chroma, fine;
  double gain;
  const char* tuning_file;
} choices;

static const choices kFixed = {.luma = true, .chroma = true, .gain = 16, .tuning_file = ""};

static obs_data_t* settings_of(choices c) {
  obs_data_t* settings = obs_data_create();
  obs_data_set_bool(settings, "automatic", c.automatic);
  obs_data_set_bool(settings, "luma", c.luma);
  obs_data_set_bool(settings, "chroma", c.chroma);
  obs_data_set_bool(settings, "fine", c.fine);
  obs_data_set_double(settings, "gain", c.gain);
  obs_data_set_string(settings, "tuning_file", c.tuning_file);
  return settings;
}

static obs_source_t* filter_new(choices c) {
  obs_data_t* settings = settings_of(c);
  obs_source_t* filter = obs_source_create_private(ID, "noise", settings);
  obs_data_release(settings);
  CHECK(filter && obs_obj_get_data(filter));
  ++made;
  return filter;
}

/* libobs destroys on a thread of its own, and has nothing to wait for it without a video output. */
static void wait_for_destroyed(void) {
  for (int i = 0; i < 60000 && destroyed != made; ++i) usleep(1000);
  CHECK(destroyed == made);
}

static void filter_free(obs_source_t* filter) {
  obs_source_release(filter);
  wait_for_destroyed();
}

static void choose(obs_source_t* filter, choices c) {
  obs_data_t* settings = settings_of(c);
  info.update(obs_obj_get_data(filter), settings);
  obs_data_release(settings);
}

/* Sends a picture through the filter. */
static picture filtered(obs_source_t* filter, const picture* in, enum video_format format) {
  struct obs_source_frame* frame = frame_of(in, format, 5);
  CHECK(info.filter_video(obs_obj_get_data(filter), frame) == frame);
  picture out = picture_of(frame);
  frame_free(frame);
  return out;
}

static picture expected(const picture* in, choices c) {
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  vorn_tuning_for_gain(set, c.gain, &luma, &chroma);
  luma.enable = luma.enable && c.luma;
  chroma.enable = chroma.enable && c.chroma;
  return picture_denoised(in, luma, chroma, c.fine);
}

static void check_frame(obs_source_t* filter, enum video_format format, int width, int height,
                        choices c) {
  picture in = picture_new(format, width, height, (uint32_t)(width * 131 + height), 9);
  picture wanted = expected(&in, c), got = filtered(filter, &in, format);
  if (!picture_same(&wanted, &got)) {
    fprintf(stderr, "%s %dx%d\n", get_video_format_name(format), width, height);
    CHECK(!"the library's bytes");
  }
  picture_free(&in);
  picture_free(&wanted);
  picture_free(&got);
}

/* One filter sees all formats and sizes in turn. */
static void test_formats_and_changing_sizes(void) {
  const int sizes[][2] = {{320, 180}, {131, 66}, {131, 67}, {64, 64}, {2, 3}, {1, 1}, {320, 180}};
  obs_source_t* filter = filter_new(kFixed);
  for (size_t s = 0; s < COUNT(sizes); ++s)
    for (size_t f = 0; f < COUNT(kFormats); ++f)
      check_frame(filter, kFormats[f], sizes[s][0], sizes[s][1], kFixed);
  filter_free(filter);
}

static void test_switches_and_gains(void) {
  obs_source_t* filter = filter_new(kFixed);
  for (int i = 0; i < 16; ++i) {
    const choices c = {.luma = i & 1,
                       .chroma = (i & 2) != 0,
                       .fine = (i & 4) != 0,
                       .gain = i & 8 ? 2 : 64,
                       .tuning_file = ""};
    choose(filter, c);
    for (size_t f = 0; f < COUNT(kFormats); ++f) check_frame(filter, kFormats[f], 160, 96, c);
  }
  filter_free(filter);
}

/* The same entries as who follows the noise with the meter's own call. */
static void test_automatic(void) {
  obs_source_t* filter = filter_new((choices){true, true, true, false, 1, ""});
  vorn_noise_follower follower = {0};
  for (int i = 0; i < 6; ++i) {
    picture in = picture_new(VIDEO_FORMAT_I420, 320, 240, (uint32_t)i, 8);
    const vorn_noise_frame noise = {in.y, in.u, in.v, 320, 240, 320, in.columns, 1};
    ycnr_ynr_tuning_param luma;
    ycnr_cnr_tuning_param chroma;
    CHECK(vorn_tuning_follow(&follower, set, NULL, &noise, &luma, &chroma) == 0);
    CHECK(luma.enable == 1);
    picture wanted = picture_denoised(&in, luma, chroma, false);
    picture got = filtered(filter, &in, VIDEO_FORMAT_I420);
    CHECK(picture_same(&wanted, &got));
    picture_free(&in);
    picture_free(&wanted);
    picture_free(&got);
  }
  filter_free(filter);
  /* Without noise nothing is done, in a frame of which a part alone is measured too. */
  filter = filter_new((choices){true, true, true, false, 64, ""});
  for (size_t f = 0; f < COUNT(kFormats); ++f) {
    picture in = picture_new(kFormats[f], 1280, 720, 1, 0);
    picture got = filtered(filter, &in, kFormats[f]);
    CHECK(picture_same(&in, &got));
    picture_free(&in);
    picture_free(&got);
  }
  filter_free(filter);
}

/* What OBS shows to the user of a filter. */
static char* state_of(obs_source_t* filter, bool* gain_enabled) {
  obs_properties_t* properties = obs_source_properties(filter);
  obs_data_t* settings = obs_source_get_settings(filter);
  obs_properties_apply_settings(properties, settings);
  obs_data_release(settings);
  char* text = strdup(obs_property_description(obs_properties_get(properties, "state")));
  if (gain_enabled) *gain_enabled = obs_property_enabled(obs_properties_get(properties, "gain"));
  obs_properties_destroy(properties);
  return text;
}

static void check_state(obs_source_t* filter, const char* part) {
  char* text = state_of(filter, NULL);
  if (!strstr(text, part)) fprintf(stderr, "%s\n", text);
  CHECK(strstr(text, part));
  free(text);
}

static void test_properties(void) {
  CHECK(strcmp(obs_source_get_display_name(ID), "Camera noise reduction") == 0);
  obs_data_t* defaults = obs_get_source_defaults(ID);
  CHECK(obs_data_get_bool(defaults, "automatic") && obs_data_get_bool(defaults, "luma"));
  obs_data_release(defaults);
  obs_properties_t* general = obs_get_source_properties(ID);
  CHECK(obs_properties_get(general, "tuning_file"));
  obs_properties_destroy(general);

  for (int automatic = 0; automatic < 2; ++automatic) {
    obs_source_t* filter = filter_new((choices){automatic, true, true, false, 16, ""});
    bool gain_enabled;
    free(state_of(filter, &gain_enabled));
    CHECK(gain_enabled == !automatic);
    check_state(filter, "No frame");
    picture in = picture_new(VIDEO_FORMAT_NV12, 320, 240, 1, 8);
    picture out = filtered(filter, &in, VIDEO_FORMAT_NV12);
    check_state(filter, "NV12 320x240: ");
    check_state(filter, automatic ? "colour: " : "colour: 16, 16");
    picture_free(&in);
    picture_free(&out);
    filter_free(filter);
  }
}

/* A file that cannot be used leaves what was in use, and says why. */
static void test_tuning_files(void) {
  char good[512], bad[512];
  snprintf(good, sizeof good, "%s/good.json", scratch);
  snprintf(bad, sizeof bad, "%s/bad.json", scratch);
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  vorn_tuning_set* one = vorn_tuning_new(NULL);
  vorn_tuning_for_gain(set, 64, &luma, &chroma);
  CHECK(vorn_tuning_put(one, 1, &luma, &chroma, NULL) == 0);
  CHECK(vorn_tuning_save(one, good, NULL) == VORN_TUNING_OK);
  vorn_tuning_free(one);
  FILE* file = fopen(bad, "w");
  CHECK(file && fputs("[]", file) >= 0 && fclose(file) == 0);

  choices c = kFixed, as_64 = kFixed;
  as_64.gain = 64;
  c.tuning_file = bad;
  obs_source_t* filter = filter_new(c);
  check_state(filter, bad);
  check_frame(filter, VIDEO_FORMAT_I420, 160, 96, c);
  c.tuning_file = good;
  choose(filter, c);
  check_frame(filter, VIDEO_FORMAT_I420, 160, 96, as_64);
  c.tuning_file = bad;
  choose(filter, c);
  check_frame(filter, VIDEO_FORMAT_I420, 160, 96, as_64);
  c.tuning_file = "";
  choose(filter, c);
  check_frame(filter, VIDEO_FORMAT_I420, 160, 96, kFixed);
  filter_free(filter);
}

/* Frames that are not taken pass with every byte as it was. */
static void test_other_frames(void) {
  const enum video_format others[] = {VIDEO_FORMAT_BGRA, VIDEO_FORMAT_I010, VIDEO_FORMAT_Y800,
                                      VIDEO_FORMAT_I444, VIDEO_FORMAT_NONE};
  uint8_t bytes[64 * 64 * 4], before[sizeof bytes];
  for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = (uint8_t)(i * 2654435761u >> 13);
  memcpy(before, bytes, sizeof bytes);
  obs_source_t* filter = filter_new(kFixed);
  struct obs_source_frame frame = {.data = {bytes, bytes, bytes}, .width = 64, .height = 64};
  for (size_t f = 0; f < COUNT(others) + 2; ++f) {
    frame.format = f < COUNT(others) ? others[f] : VIDEO_FORMAT_YUY2;
    for (int plane = 0; plane < 3; ++plane) frame.linesize[plane] = 64 * 4;
    if (f == COUNT(others)) frame.linesize[0] = 127; /* too few for 64 pixels */
    if (f > COUNT(others)) frame.height = 0;
    CHECK(info.filter_video(obs_obj_get_data(filter), &frame) == &frame);
    CHECK(memcmp(bytes, before, sizeof bytes) == 0);
    check_state(filter, "pass as they are");
  }
  filter_free(filter);
}

typedef struct {
  int index;
  obs_source_t* filter;
  volatile bool stop;
} job;

static void* run_own_filter(void* data) {
  const job* j = data;
  choices c = kFixed;
  c.gain = j->index % 2 ? 2 : 64;
  obs_source_t* filter = filter_new(c);
  for (int i = 0; i < 12; ++i)
    check_frame(filter, kFormats[(i + j->index) % 4], 96 + 64 * j->index, 96 + 2 * (i % 3), c);
  obs_source_release(filter);
  return NULL;
}

static void test_several_at_once(void) {
  pthread_t threads[4];
  job jobs[4] = {{0}};
  for (int i = 0; i < 4; ++i) {
    jobs[i].index = i;
    CHECK(pthread_create(&threads[i], NULL, run_own_filter, &jobs[i]) == 0);
  }
  for (int i = 0; i < 4; ++i) pthread_join(threads[i], NULL);
  wait_for_destroyed();
}

static void* change_settings(void* data) {
  job* j = data;
  for (int i = 0; !j->stop; ++i) {
    choices c = kFixed;
    c.gain = i % 2 ? 64 : 2;
    choose(j->filter, c);
    free(state_of(j->filter, NULL));
  }
  return NULL;
}

/* Every frame is filtered with one choice or the other, never with half of each. */
static void test_settings_change_under_frames(void) {
  choices weak = kFixed, strong = kFixed;
  weak.gain = 2;
  strong.gain = 64;
  job j = {.filter = filter_new(weak)};
  pthread_t thread;
  CHECK(pthread_create(&thread, NULL, change_settings, &j) == 0);
  picture in = picture_new(VIDEO_FORMAT_YUY2, 160, 96, 1, 9);
  picture a = expected(&in, weak), b = expected(&in, strong);
  CHECK(!picture_same(&a, &b));
  for (int i = 0; i < 200; ++i) {
    picture out = filtered(j.filter, &in, VIDEO_FORMAT_YUY2);
    CHECK(picture_same(&out, &a) || picture_same(&out, &b));
    picture_free(&out);
  }
  j.stop = true;
  pthread_join(thread, NULL);
  filter_free(j.filter);
  picture_free(&in);
  picture_free(&a);
  picture_free(&b);
}

static long status_value(const char* key) {
  FILE* file = fopen("/proc/self/status", "r");
  char line[256];
  long value = -1;
  while (file && fgets(line, sizeof line, file))
    if (strncmp(line, key, strlen(key)) == 0) value = atol(line + strlen(key));
  if (file) fclose(file);
  return value;
}

static void test_made_and_destroyed_500_times(void) {
  picture in = picture_new(VIDEO_FORMAT_UYVY, 320, 180, 1, 9);
  long blocks = 0, threads = 0, kilobytes = 0;
  for (int i = 0; i <= 500; ++i) {
    choices c = kFixed;
    c.automatic = i % 2;
    c.fine = i % 3 == 0;
    obs_source_t* filter = filter_new(c);
    if (i % 5) {
      picture out = filtered(filter, &in, VIDEO_FORMAT_UYVY);
      picture_free(&out);
    }
    filter_free(filter);
    if (i == 100) {
      blocks = bnum_allocs();
      threads = status_value("Threads:");
      kilobytes = status_value("VmRSS:");
    }
  }
  /* The last one's end may still be under way. What each of 400 left behind would be 400. */
  CHECK(bnum_allocs() < blocks + 50);
  CHECK(status_value("Threads:") < threads + 50);
  const long grown = status_value("VmRSS:") - kilobytes;
  fprintf(stderr, "400 filters: %ld KB more, %ld threads\n", grown, threads);
  CHECK(grown < 1024); /* one leaked denoiser of this size would be 0.3 MB each time */
  picture_free(&in);
}

static void quiet(int level, const char* format, va_list arguments, void* unused) {
  (void)unused;
  if (level == LOG_ERROR) vfprintf(stderr, format, arguments);
}

int main(int count, char** arguments) {
  CHECK(count == 4);
  scratch = arguments[3];
  base_set_log_handler(quiet, NULL);
  set = vorn_tuning_default(NULL);
  CHECK(set && obs_startup("en-US", scratch, NULL));
  obs_module_t* module;
  CHECK(obs_open_module(&module, arguments[1], arguments[2]) == MODULE_SUCCESS);
  CHECK(obs_init_module(module) && strcmp(info.id, ID) == 0);

  const struct {
    const char* name;
    void (*run)(void);
  } tests[] = {{"formats and changing sizes", test_formats_and_changing_sizes},
               {"switches and gains", test_switches_and_gains},
               {"automatic", test_automatic},
               {"properties", test_properties},
               {"tuning files", test_tuning_files},
               {"other frames", test_other_frames},
               {"several at once", test_several_at_once},
               {"settings change under frames", test_settings_change_under_frames},
               {"made and destroyed 500 times", test_made_and_destroyed_500_times}};
  for (size_t i = 0; i < COUNT(tests); ++i) {
    tests[i].run();
    printf("ok    %s\n", tests[i].name);
    fflush(stdout);
  }
  obs_shutdown();
  CHECK(bnum_allocs() == 0);
  vorn_tuning_free(set);
  return 0;
}
