/* The element against the library's own calls: any layout, stride and size must give the bytes that
 * vorn_ycnr_process gives for the same picture. One file, though long: every case stands on the
 * pictures, buffers and the harness of its first third. */
#include <glib/gstdio.h>
#include <gst/check/gstcheck.h>
#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <string.h>
#include <unistd.h>

#include "vorn_temporal.h"
#include "vorn_ycnr_ext.h"

/* Two strengths in one set, so that a changed gain shows in the bytes. */
static const ycnr_ynr_tuning_param kLuma[2] = {{1, 2, {3, 3, 3}, {5, 5, 5}, 64, 0, 0},
                                               {1, 3, {9, 9, 9}, {7, 7, 7}, 80, 0, 0}};
static const ycnr_cnr_tuning_param kChroma[2] = {{1, 8, 4, 0, 1, 8, 8, 0, 0, 0, 0},
                                                 {1, 24, 8, 2, 2, 8, 6, 3, 0, 0, 0}};
static const gdouble kGains[2] = {2, 16};

#define HEAD "{\"format\": \"vorn-ycnr tuning set\", \"version\": 1, "

static gchar* tuning_path;

static void append_luma(GString* json, const ycnr_ynr_tuning_param* t) {
  g_string_append_printf(json, "\"luma\": {\"enable\": %d, \"layer\": %d", t->enable, t->layer);
  g_string_append_printf(json, ", \"pIntensity\": [%d, %d, %d, %d, %d]", t->pIntensity[0],
                         t->pIntensity[1], t->pIntensity[2], t->pIntensity[3], t->pIntensity[4]);
  g_string_append_printf(json, ", \"pRadius\": [%d, %d, %d, %d, %d]", t->pRadius[0], t->pRadius[1],
                         t->pRadius[2], t->pRadius[3], t->pRadius[4]);
  g_string_append_printf(json, ", \"param0\": %d, \"param1\": %d, \"param2\": %d}", t->param0,
                         t->param1, t->param2);
}

static void append_chroma(GString* json, const ycnr_cnr_tuning_param* t) {
  g_string_append_printf(
      json,
      "\"chroma\": {\"enable\": %d, \"range_factor\": %d, \"smooth_radius\": %d, "
      "\"scale\": %d, \"step\": %d, \"color_edge_u\": %d, \"color_edge_v\": %d, "
      "\"saturation\": %d, \"param0\": %d, \"param1\": %d, \"param2\": %d}",
      t->enable, t->range_factor, t->smooth_radius, t->scale, t->step, t->color_edge_u,
      t->color_edge_v, t->saturation, t->param0, t->param1, t->param2);
}

static gchar* write_file(const gchar* name, const gchar* text) {
  gchar* path = g_build_filename(g_get_tmp_dir(), name, NULL);
  fail_unless(g_file_set_contents(path, text, -1, NULL));
  return path;
}

static void setup(void) {
  GString* json = g_string_new(HEAD "\"entries\": [");
  for (int i = 0; i < 2; ++i) {
    g_string_append_printf(json, "%s{\"gain\": %g, ", i ? ", " : "", kGains[i]);
    append_luma(json, &kLuma[i]);
    g_string_append(json, ", ");
    append_chroma(json, &kChroma[i]);
    g_string_append(json, "}");
  }
  g_string_append(json, "]}");
  gchar* name = g_strdup_printf("vornycnr-test-%d.json", (int)getpid());
  tuning_path = write_file(name, json->str);
  g_free(name);
  g_string_free(json, TRUE);
}

static void teardown(void) {
  g_unlink(tuning_path);
  g_clear_pointer(&tuning_path, g_free);
}

/* A picture as plain planes, chroma rounded up. */
typedef struct {
  gint width, height, cw, ch;
  guint8 *y, *u, *v;
} Picture;

static Picture* picture_new(gint width, gint height, guint32 seed) {
  Picture* p = g_new0(Picture, 1);
  *p = (Picture){width, height, (width + 1) / 2, (height + 1) / 2, NULL, NULL, NULL};
  p->y = g_malloc(width * height);
  p->u = g_malloc(p->cw * p->ch);
  p->v = g_malloc(p->cw * p->ch);
  GRand* rand = g_rand_new_with_seed(seed);
  for (gint i = 0; i < width * height; ++i)
    p->y[i] = 60 + (i % width) * 100 / width + g_rand_int_range(rand, 0, 24);
  for (gint i = 0; i < p->cw * p->ch; ++i) {
    p->u[i] = 100 + g_rand_int_range(rand, 0, 20);
    p->v[i] = 140 + g_rand_int_range(rand, 0, 30);
  }
  g_rand_free(rand);
  return p;
}

static void picture_free(Picture* p) {
  g_free(p->y);
  g_free(p->u);
  g_free(p->v);
  g_free(p);
}

/* The library's call for a contiguous frame, plain or fine. */
static int32_t (*process)(denoise_handle_t*, _tag_uni_image*, _tag_uni_image*,
                          Denoise_Parameters_t*) = vorn_ycnr_process;

/* What the library makes of it, straight through that call. */
static Picture* denoised(const Picture* in, gint entry, gboolean luma_on, gboolean chroma_on) {
  /* The element's padding: to sizes that no level halves to an odd one. */
  const gint w = MAX(128, (in->width + 15) / 16 * 16), h = (in->height + 3) & ~3;
  guint8* src = g_malloc(w * h * 3 / 2);
  guint8* dst = g_malloc(w * h * 3 / 2);
  for (gint y = 0; y < h; ++y)
    for (gint x = 0; x < w; ++x)
      src[y * w + x] = in->y[MIN(y, in->height - 1) * in->width + MIN(x, in->width - 1)];
  for (gint y = 0; y < h / 2; ++y)
    for (gint x = 0; x < w / 2; ++x) {
      src[w * h + y * w + 2 * x] = in->u[MIN(y, in->ch - 1) * in->cw + MIN(x, in->cw - 1)];
      src[w * h + y * w + 2 * x + 1] = in->v[MIN(y, in->ch - 1) * in->cw + MIN(x, in->cw - 1)];
    }
  ycnr_init_param size = {w, h};
  denoise_handle_t* handle = vorn_ycnr_init(&size);
  ycnr_ynr_tuning_param luma = kLuma[entry];
  ycnr_cnr_tuning_param chroma = kChroma[entry];
  luma.enable = luma_on;
  chroma.enable = chroma_on;
  _tag_uni_image source = {.width = w, .height = h, .plane = {src}};
  _tag_uni_image result = {.width = w, .height = h, .plane = {dst}};
  Denoise_Parameters_t parameters = {0, &luma, &chroma};
  fail_unless_equals_int(process(handle, &source, &result, &parameters), VORN_OK);
  vorn_ycnr_deinit(handle);

  Picture* out = picture_new(in->width, in->height, 0);
  for (gint y = 0; y < in->height; ++y) memcpy(out->y + y * in->width, dst + y * w, in->width);
  for (gint y = 0; y < out->ch; ++y)
    for (gint x = 0; x < out->cw; ++x) {
      out->u[y * out->cw + x] = dst[w * h + y * w + 2 * x];
      out->v[y * out->cw + x] = dst[w * h + y * w + 2 * x + 1];
    }
  g_free(src);
  g_free(dst);
  return out;
}

static GstCaps* caps_for(GstVideoFormat format, gint width, gint height) {
  return gst_caps_new_simple(
      "video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(format), "width",
      G_TYPE_INT, width, "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, 30, 1, NULL);
}

/* Where sample i of the chroma planes stands in a layout: plane, column of its U and V bytes. */
static guint8* chroma_at(GstVideoFrame* f, gboolean v, gint x, gint y) {
  const GstVideoFormat format = GST_VIDEO_FRAME_FORMAT(f);
  if (format == GST_VIDEO_FORMAT_I420)
    return (guint8*)GST_VIDEO_FRAME_PLANE_DATA(f, v ? 2 : 1) +
           y * GST_VIDEO_FRAME_PLANE_STRIDE(f, v ? 2 : 1) + x;
  const gint second = format == GST_VIDEO_FORMAT_NV21 ? !v : v;
  return (guint8*)GST_VIDEO_FRAME_PLANE_DATA(f, 1) + y * GST_VIDEO_FRAME_PLANE_STRIDE(f, 1) +
         2 * x + second;
}

/* The picture as a buffer whose rows are extra bytes longer than GStreamer's own; extra < 0 packs
 * the rows without any gap. */
static GstBuffer* to_buffer(const Picture* p, GstVideoFormat format, gint extra) {
  GstVideoInfo info;
  gst_video_info_set_format(&info, format, p->width, p->height);
  gsize offset[GST_VIDEO_MAX_PLANES] = {0};
  gint stride[GST_VIDEO_MAX_PLANES] = {0};
  gsize size = 0;
  for (guint i = 0; i < GST_VIDEO_INFO_N_PLANES(&info); ++i) {
    const gint tight = i == 0 ? p->width : format == GST_VIDEO_FORMAT_I420 ? p->cw : 2 * p->cw;
    stride[i] = extra < 0 ? tight : GST_VIDEO_INFO_PLANE_STRIDE(&info, i) + extra;
    offset[i] = size;
    size += (gsize)stride[i] * (i == 0 ? p->height : p->ch);
  }
  GstBuffer* buffer = gst_buffer_new_allocate(NULL, size, NULL);
  gst_buffer_memset(buffer, 0, 0xee, size);
  gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, format, p->width, p->height,
                                 GST_VIDEO_INFO_N_PLANES(&info), offset, stride);
  GstVideoFrame frame;
  fail_unless(gst_video_frame_map(&frame, &info, buffer, GST_MAP_WRITE));
  for (gint y = 0; y < p->height; ++y)
    memcpy((guint8*)GST_VIDEO_FRAME_PLANE_DATA(&frame, 0) + y * stride[0], p->y + y * p->width,
           p->width);
  for (gint y = 0; y < p->ch; ++y)
    for (gint x = 0; x < p->cw; ++x) {
      *chroma_at(&frame, FALSE, x, y) = p->u[y * p->cw + x];
      *chroma_at(&frame, TRUE, x, y) = p->v[y * p->cw + x];
    }
  gst_video_frame_unmap(&frame);
  return buffer;
}

static void assert_shows(GstBuffer* buffer, const Picture* p, GstVideoFormat format) {
  GstVideoInfo info;
  gst_video_info_set_format(&info, format, p->width, p->height);
  GstVideoFrame frame;
  fail_unless(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
  for (gint y = 0; y < p->height; ++y)
    fail_unless(memcmp((guint8*)GST_VIDEO_FRAME_PLANE_DATA(&frame, 0) +
                           y * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0),
                       p->y + y * p->width, p->width) == 0,
                "luma row %d of %dx%d", y, p->width, p->height);
  for (gint y = 0; y < p->ch; ++y)
    for (gint x = 0; x < p->cw; ++x)
      fail_unless(*chroma_at(&frame, FALSE, x, y) == p->u[y * p->cw + x] &&
                      *chroma_at(&frame, TRUE, x, y) == p->v[y * p->cw + x],
                  "chroma %d,%d of %dx%d", x, y, p->width, p->height);
  gst_video_frame_unmap(&frame);
}

/* Pushes a picture and holds what comes out, and the untouched input, against the library. */
static void check_frame(GstHarness* h, GstVideoFormat format, gint width, gint height, gint extra,
                        gint entry, gboolean luma, gboolean chroma) {
  Picture* in = picture_new(width, height, width * 131 + height + extra);
  Picture* wanted = denoised(in, entry, luma, chroma);
  GstBuffer* buffer = to_buffer(in, format, extra);
  GstBuffer* out = gst_harness_push_and_pull(h, gst_buffer_ref(buffer));
  fail_unless(out != NULL);
  assert_shows(out, wanted, format);
  assert_shows(buffer, in, format);
  gst_buffer_unref(out);
  gst_buffer_unref(buffer);
  picture_free(in);
  picture_free(wanted);
}

static GstHarness* harness(void) {
  GstHarness* h = gst_harness_new("vornycnr");
  g_object_set(h->element, "tuning-file", tuning_path, "gain", 2.0, NULL);
  return h;
}

static const GstVideoFormat kFormats[] = {GST_VIDEO_FORMAT_NV12, GST_VIDEO_FORMAT_I420,
                                          GST_VIDEO_FORMAT_NV21};

GST_START_TEST(test_layouts_strides_sizes) {
  const gint sizes[][2] = {{128, 96}, {127, 95}, {130, 97}, {131, 66}, {64, 64}};
  const gint extras[] = {-1, 0, 1, 37};
  for (guint f = 0; f < G_N_ELEMENTS(kFormats); ++f)
    for (guint s = 0; s < G_N_ELEMENTS(sizes); ++s) {
      GstHarness* h = harness();
      gst_harness_set_src_caps(h, caps_for(kFormats[f], sizes[s][0], sizes[s][1]));
      for (guint e = 0; e < G_N_ELEMENTS(extras); ++e)
        check_frame(h, kFormats[f], sizes[s][0], sizes[s][1], extras[e], 0, TRUE, TRUE);
      gst_harness_teardown(h);
    }
}
GST_END_TEST;

/* Packed NV12 without one of the filters goes to the library without a copy. */
GST_START_TEST(test_switches) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, 96));
  for (gint extra = -1; extra < 8; extra += 8) {
    g_object_set(h->element, "luma", TRUE, "chroma", FALSE, NULL);
    check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, extra, 0, TRUE, FALSE);
    g_object_set(h->element, "luma", FALSE, "chroma", TRUE, NULL);
    check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, extra, 0, FALSE, TRUE);
  }
  g_object_set(h->element, "chroma", FALSE, NULL);
  Picture* in = picture_new(128, 96, 5);
  GstBuffer* buffer = to_buffer(in, GST_VIDEO_FORMAT_NV12, -1);
  GstBuffer* out = gst_harness_push_and_pull(h, gst_buffer_ref(buffer));
  fail_unless(out == buffer, "with nothing to do the very buffer goes on");
  gst_buffer_unref(out);
  gst_buffer_unref(buffer);
  picture_free(in);
  g_object_set(h->element, "luma", TRUE, "chroma", TRUE, NULL);
  check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, -1, 0, TRUE, TRUE);
  gst_harness_teardown(h);
}
GST_END_TEST;

GST_START_TEST(test_fine_mode_while_playing) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_I420, 131, 66));
  for (gint fine = 0; fine < 3; ++fine) {
    g_object_set(h->element, "fine", fine % 2, NULL);
    process = fine % 2 ? vorn_ycnr_process_fine : vorn_ycnr_process;
    check_frame(h, GST_VIDEO_FORMAT_I420, 131, 66, 7, 0, TRUE, TRUE);
  }
  gst_harness_teardown(h);
}
GST_END_TEST;

/* The next frame of a still scene: what comes out is the library's frame after its blend. */
static void check_steady(GstHarness* h, vorn_temporal* stream, GstVideoFormat format, gint width,
                         gint32 becomes) {
  static guint32 seed = 1;
  Picture* in = picture_new(width, 96, 7);
  GRand* rand = g_rand_new_with_seed(seed++);
  for (gint i = 0; i < width * 96; ++i) in->y[i] += g_rand_int_range(rand, 0, 2);
  g_rand_free(rand);
  Picture* wanted = denoised(in, 0, TRUE, TRUE);
  Picture* alone = denoised(in, 0, TRUE, TRUE);
  const vorn_ycnr_planes planes = {VORN_LAYOUT_I420,
                                   width,
                                   96,
                                   {wanted->y, wanted->u, wanted->v},
                                   {width, wanted->cw, wanted->cw}};
  fail_unless_equals_int(vorn_tuning_temporal_run(stream, &planes, &kLuma[0]), becomes);
  fail_unless((memcmp(wanted->y, alone->y, width * 96) == 0) == (becomes == VORN_TEMPORAL_FIRST));
  GstBuffer* out = gst_harness_push_and_pull(h, to_buffer(in, format, 3));
  assert_shows(out, wanted, format);
  gst_buffer_unref(out);
  picture_free(in);
  picture_free(wanted);
  picture_free(alone);
}

/* Begins anew with new caps, after a flush and where it is switched on again. */
GST_START_TEST(test_temporal) {
  GstHarness* h = harness();
  vorn_temporal* stream = vorn_tuning_temporal_new();
  g_object_set(h->element, "temporal", TRUE, NULL);
  for (guint f = 0; f < G_N_ELEMENTS(kFormats); ++f) {
    gst_harness_set_src_caps(h, caps_for(kFormats[f], f == 1 ? 131 : 128, 96));
    for (gint round = 0; round < 3; ++round) {
      vorn_tuning_temporal_reset(stream);
      check_steady(h, stream, kFormats[f], f == 1 ? 131 : 128, VORN_TEMPORAL_FIRST);
      check_steady(h, stream, kFormats[f], f == 1 ? 131 : 128, VORN_TEMPORAL_BLENDED);
      check_steady(h, stream, kFormats[f], f == 1 ? 131 : 128, VORN_TEMPORAL_BLENDED);
      if (round == 0) {
        gst_harness_push_event(h, gst_event_new_flush_start());
        gst_harness_push_event(h, gst_event_new_flush_stop(TRUE));
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        gst_harness_push_event(h, gst_event_new_segment(&segment));
      } else if (round == 1) {
        g_object_set(h->element, "temporal", FALSE, NULL);
        check_frame(h, kFormats[f], f == 1 ? 131 : 128, 96, 3, 0, TRUE, TRUE);
        g_object_set(h->element, "temporal", TRUE, NULL);
      }
    }
  }
  vorn_tuning_temporal_free(stream);
  gst_harness_teardown(h);
}
GST_END_TEST;

GST_START_TEST(test_gain_while_playing) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, 96));
  /* Entries at 2 and 16: the middle in stops is 5.66. */
  const struct {
    gdouble gain;
    gint entry;
  } steps[] = {{0.5, 0}, {5.5, 0}, {5.8, 1}, {100, 1}, {2, 0}};
  for (guint i = 0; i < G_N_ELEMENTS(steps); ++i) {
    g_object_set(h->element, "gain", steps[i].gain, NULL);
    check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, 0, steps[i].entry, TRUE, TRUE);
  }
  gst_harness_teardown(h);
}
GST_END_TEST;

/* The stream's tag decides from its place on, where it is asked for. */
GST_START_TEST(test_gain_of_the_stream) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, 96));
  const struct {
    gdouble base_iso;
    gint iso; /* 0: no tag */
    gint entry;
  } steps[] = {{0, 1600, 0}, {100, 0, 1}, {100, 200, 0}, {12.5, 0, 1}, {100, 3200, 1}, {0, 0, 0}};
  for (guint i = 0; i < G_N_ELEMENTS(steps); ++i) {
    g_object_set(h->element, "base-iso", steps[i].base_iso, NULL);
    GstTagList* tags = gst_tag_list_new(GST_TAG_COMMENT, "says nothing of it", NULL);
    if (steps[i].iso)
      gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, "capturing-iso-speed", steps[i].iso, NULL);
    fail_unless(gst_harness_push_event(h, gst_event_new_tag(tags)));
    check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, 0, steps[i].entry, TRUE, TRUE);
  }
  g_object_set(h->element, "base-iso", 100.0, NULL);
  fail_unless(gst_harness_push_event(h, gst_event_new_stream_start("another")));
  check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, 0, 0, TRUE, TRUE);
  gst_harness_teardown(h);
}
GST_END_TEST;

GST_START_TEST(test_renegotiation) {
  GstHarness* h = harness();
  const gint sizes[][2] = {{128, 96}, {256, 64}, {65, 129}, {128, 96}};
  for (guint i = 0; i < G_N_ELEMENTS(sizes); ++i) {
    const GstVideoFormat format = kFormats[i % G_N_ELEMENTS(kFormats)];
    gst_harness_set_src_caps(h, caps_for(format, sizes[i][0], sizes[i][1]));
    check_frame(h, format, sizes[i][0], sizes[i][1], 0, 0, TRUE, TRUE);
  }
  gst_harness_teardown(h);
}
GST_END_TEST;

static void stats(GstElement* element, guint64* frames, guint64* last, guint64* average,
                  guint64* max) {
  GstStructure* s = NULL;
  g_object_get(element, "stats", &s, NULL);
  fail_unless(gst_structure_get(s, "frames", G_TYPE_UINT64, frames, "last-time", G_TYPE_UINT64,
                                last, "average-time", G_TYPE_UINT64, average, "max-time",
                                G_TYPE_UINT64, max, NULL));
  gst_structure_free(s);
}

GST_START_TEST(test_stats) {
  GstHarness* h = harness();
  guint64 frames, last, average, max;
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, 96));
  stats(h->element, &frames, &last, &average, &max);
  fail_unless(frames == 0 && average == 0);
  for (gint i = 0; i < 3; ++i) check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, 0, 0, TRUE, TRUE);
  stats(h->element, &frames, &last, &average, &max);
  fail_unless_equals_uint64(frames, 3);
  fail_unless(last > 0 && average > 0 && last <= max && average <= max);
  gst_harness_teardown(h);
}
GST_END_TEST;

static GstMessage* next_message(GstBus* bus, GstMessageType type, const gchar* part) {
  GstMessage* message = gst_bus_pop_filtered(bus, type);
  fail_unless(message != NULL);
  GError* error = NULL;
  if (type == GST_MESSAGE_ERROR)
    gst_message_parse_error(message, &error, NULL);
  else
    gst_message_parse_warning(message, &error, NULL);
  fail_unless(strstr(error->message, part) != NULL, "%s", error->message);
  g_error_free(error);
  return message;
}

/* A file that is no tuning set stops the element from starting, with a message that says why; while
 * playing it is a warning, and the old tuning stays and is what the property shows. */
GST_START_TEST(test_bad_tuning_files) {
  gchar* nested = g_strnfill(100000, '[');
  const gchar* texts[] = {"[]", HEAD "\"entries\": [{\"gain\": 0}]}", nested};
  for (guint i = 0; i < G_N_ELEMENTS(texts); ++i) {
    gchar* path = write_file("vornycnr-bad.json", texts[i]);
    GstElement* pipeline = gst_pipeline_new(NULL);
    GstElement* element = gst_element_factory_make("vornycnr", NULL);
    gst_bin_add(GST_BIN(pipeline), element);
    g_object_set(element, "tuning-file", path, NULL);
    fail_unless(gst_element_set_state(pipeline, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_message_unref(next_message(bus, GST_MESSAGE_ERROR, path));

    g_object_set(element, "tuning-file", tuning_path, NULL);
    fail_unless(gst_element_set_state(pipeline, GST_STATE_PAUSED) != GST_STATE_CHANGE_FAILURE);
    g_object_set(element, "tuning-file", path, NULL);
    gst_message_unref(next_message(bus, GST_MESSAGE_WARNING, path));
    gchar* shown;
    g_object_get(element, "tuning-file", &shown, NULL);
    fail_unless_equals_string(shown, tuning_path);
    g_free(shown);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    g_unlink(path);
    g_free(path);
  }
  g_free(nested);
}
GST_END_TEST;

/* The set inside has entries of its own strengths: without a file, gain must still matter. */
GST_START_TEST(test_default_set) {
  GstHarness* h = gst_harness_new("vornycnr");
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, 96));
  Picture* in = picture_new(128, 96, 3);
  GstBuffer* out[3];
  const gdouble gains[] = {1, 8, 64};
  for (gint i = 0; i < 3; ++i) {
    g_object_set(h->element, "gain", gains[i], NULL);
    out[i] = gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_NV12, -1));
  }
  for (gint i = 0; i < 2; ++i) {
    GstMapInfo map;
    fail_unless(gst_buffer_map(out[i], &map, GST_MAP_READ));
    fail_if(gst_buffer_memcmp(out[i + 1], 0, map.data, map.size) == 0, "gain %g", gains[i + 1]);
    gst_buffer_unmap(out[i], &map);
  }
  for (gint i = 0; i < 3; ++i) gst_buffer_unref(out[i]);
  picture_free(in);
  gst_harness_teardown(h);
}
GST_END_TEST;

/* Pass-through needs no buffers of the element's own; leaving it does, from the first frame on. */
GST_START_TEST(test_out_of_pass_through) {
  GstHarness* h = harness();
  g_object_set(h->element, "luma", FALSE, "chroma", FALSE, NULL);
  Picture* in = picture_new(128, 96, 4);
  for (gint height = 64; height <= 96; height += 32) { /* the second size arrives in pass-through */
    gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 128, height));
    gst_buffer_unref(gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_NV12, -1)));
  }
  g_object_set(h->element, "luma", TRUE, NULL);
  gst_harness_push(h, gst_buffer_new()); /* without any memory: not a frame, not the end either */
  while (gst_harness_buffers_in_queue(h)) gst_buffer_unref(gst_harness_pull(h));
  GstBuffer* out = gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_NV12, -1));
  fail_unless(out->pool != NULL, "frames are allocated one by one");
  gst_buffer_unref(out);
  check_frame(h, GST_VIDEO_FORMAT_NV12, 128, 96, -1, 0, TRUE, FALSE);
  picture_free(in);
  gst_harness_teardown(h);
}
GST_END_TEST;

/* Measured gains follow the noise: none is left alone, much takes strong entries. */
GST_START_TEST(test_automatic_gain) {
  gdouble luma_gain[2];
  for (gint noisy = 0; noisy < 2; ++noisy) {
    GstHarness* h = gst_harness_new("vornycnr");
    g_object_set(h->element, "auto-gain", TRUE, "gain", 64.0, NULL);
    gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV21, 320, 240));
    Picture* in = picture_new(320, 240, 9);
    if (!noisy) {
      for (gint i = 0; i < 320 * 240; ++i) in->y[i] = 60 + i / 320 / 16;
      memset(in->u, 100, in->cw * in->ch);
      memset(in->v, 140, in->cw * in->ch);
    }
    GstBuffer* out = NULL;
    for (gint i = 0; i < 3; ++i) {
      gst_clear_buffer(&out);
      out = gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_NV21, 3));
    }
    if (!noisy) assert_shows(out, in, GST_VIDEO_FORMAT_NV21);
    GstStructure* s = NULL;
    g_object_get(h->element, "stats", &s, NULL);
    fail_unless(gst_structure_get_double(s, "luma-gain", &luma_gain[noisy]));
    gst_structure_free(s);
    gst_buffer_unref(out);
    picture_free(in);
    gst_harness_teardown(h);
  }
  fail_unless(luma_gain[0] == 0 && luma_gain[1] >= 8, "%g, %g", luma_gain[0], luma_gain[1]);
}
GST_END_TEST;

/* A flat picture has nothing to filter, up to its last column, whatever the width. */
GST_START_TEST(test_edges_of_any_width) {
  const gint sizes[][2] = {{854, 48}, {1366, 32}, {130, 98}, {60, 40}, {17, 16}, {1, 1}, {5, 3}};
  for (guint s = 0; s < G_N_ELEMENTS(sizes); ++s) {
    GstHarness* h = gst_harness_new("vornycnr");
    g_object_set(h->element, "gain", 64.0, NULL);
    gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_I420, sizes[s][0], sizes[s][1]));
    Picture* in = picture_new(sizes[s][0], sizes[s][1], 8);
    memset(in->y, 50, in->width * in->height);
    memset(in->u, 90, in->cw * in->ch);
    memset(in->v, 160, in->cw * in->ch);
    GstBuffer* out = gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_I420, 0));
    assert_shows(out, in, GST_VIDEO_FORMAT_I420);
    gst_buffer_unref(out);
    picture_free(in);
    gst_harness_teardown(h);
  }
}
GST_END_TEST;

static guint64 skipped(GstElement* element) {
  guint64 count;
  GstStructure* s = NULL;
  g_object_get(element, "stats", &s, NULL);
  fail_unless(gst_structure_get_uint64(s, "skipped", &count));
  gst_structure_free(s);
  return count;
}

/* A frame that the sink says comes too late passes as it is and is counted; later ones are filtered
 * again, and with "qos" off all of them. */
GST_START_TEST(test_late_frames) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_I420, 128, 96));
  Picture* in = picture_new(128, 96, 6);
  Picture* filtered = denoised(in, 0, TRUE, TRUE);
  const struct {
    gboolean qos;
    GstClockTime time;
    gboolean late;
  } steps[] = {{TRUE, 0, TRUE},
               {TRUE, 60 * GST_MSECOND, TRUE},
               {TRUE, 90 * GST_MSECOND, FALSE},
               {FALSE, 60 * GST_MSECOND, FALSE}};
  /* 20 ms behind at 40 ms: what comes before 80 ms is lost. */
  gst_harness_push_upstream_event(
      h, gst_event_new_qos(GST_QOS_TYPE_UNDERFLOW, 1.5, 20 * GST_MSECOND, 40 * GST_MSECOND));
  guint64 wanted = 0;
  for (guint i = 0; i < G_N_ELEMENTS(steps); ++i) {
    g_object_set(h->element, "qos", steps[i].qos, NULL);
    GstBuffer* buffer = to_buffer(in, GST_VIDEO_FORMAT_I420, 5);
    GST_BUFFER_PTS(buffer) = steps[i].time;
    GstBuffer* out = gst_harness_push_and_pull(h, buffer);
    assert_shows(out, steps[i].late ? in : filtered, GST_VIDEO_FORMAT_I420);
    wanted += steps[i].late;
    fail_unless_equals_uint64(skipped(h->element), wanted);
    gst_buffer_unref(out);
  }
  picture_free(in);
  picture_free(filtered);
  gst_harness_teardown(h);
}
GST_END_TEST;

GST_START_TEST(test_latency) {
  GstHarness* h = harness();
  gst_harness_set_src_caps(h, caps_for(GST_VIDEO_FORMAT_NV12, 640, 480));
  gst_harness_set_upstream_latency(h, 33 * GST_MSECOND);
  fail_unless_equals_uint64(gst_harness_query_latency(h), 33 * GST_MSECOND);
  Picture* in = picture_new(640, 480, 7);
  for (gint i = 0; i < 20; ++i)
    gst_buffer_unref(gst_harness_push_and_pull(h, to_buffer(in, GST_VIDEO_FORMAT_NV12, -1)));
  guint64 frames, last, average, max;
  stats(h->element, &frames, &last, &average, &max);
  const GstClockTime own = gst_harness_query_latency(h) - 33 * GST_MSECOND;
  fail_unless(own > 0 && own <= max + 5 * GST_MSECOND && own % (5 * GST_MSECOND) == 0);
  picture_free(in);
  gst_harness_teardown(h);
}
GST_END_TEST;

GST_START_TEST(test_refused_formats_in_plain_words) {
  GstHarness* h = harness();
  GstBus* bus = gst_bus_new();
  gst_element_set_bus(h->element, bus);
  GstPad* pad = gst_element_get_static_pad(h->element, "sink");
  GstCaps* caps = caps_for(GST_VIDEO_FORMAT_P010_10LE, 128, 96);
  fail_if(gst_pad_query_accept_caps(pad, caps));
  gst_message_unref(next_message(bus, GST_MESSAGE_WARNING, "P010_10LE, 128x96, are not taken"));
  gst_caps_unref(caps);
  gst_object_unref(pad);
  gst_harness_teardown(h);
  gst_object_unref(bus);
}
GST_END_TEST;

/* Sizes, formats and flushes in the middle of frames that are being filtered. */
GST_START_TEST(test_flushes_and_sizes_under_load) {
  GstHarness* h = harness();
  for (gint round = 0; round < 60; ++round) {
    const gint width = 64 + 33 * (round % 5), height = 64 + 16 * (round % 3);
    const GstVideoFormat format = kFormats[round % G_N_ELEMENTS(kFormats)];
    gst_harness_set_src_caps(h, caps_for(format, width, height));
    g_object_set(h->element, "luma", round % 4 != 3, "chroma", round % 4 != 3, NULL);
    Picture* in = picture_new(width, height, round);
    for (gint i = 0; i < 3; ++i)
      gst_buffer_unref(gst_harness_push_and_pull(h, to_buffer(in, format, round % 2 ? 9 : -1)));
    picture_free(in);
    if (round % 4 == 3) continue;
    gst_harness_push_event(h, gst_event_new_flush_start());
    gst_harness_push_event(h, gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_harness_push_event(h, gst_event_new_segment(&segment));
    check_frame(h, format, width, height, 0, 0, TRUE, TRUE);
  }
  gst_harness_teardown(h);
}
GST_END_TEST;

static gpointer run_one(gpointer data) {
  const gint index = GPOINTER_TO_INT(data);
  GstHarness* h = harness();
  g_object_set(h->element, "gain", kGains[index % 2], NULL);
  const gint width = 96 + 32 * index;
  gst_harness_set_src_caps(h, caps_for(kFormats[index % 3], width, 96));
  for (gint i = 0; i < 10; ++i)
    check_frame(h, kFormats[index % 3], width, 96, 0, index % 2, TRUE, TRUE);
  gst_harness_teardown(h);
  return NULL;
}

GST_START_TEST(test_several_at_once) {
  GThread* threads[4];
  for (gint i = 0; i < 4; ++i) threads[i] = g_thread_new("instance", run_one, GINT_TO_POINTER(i));
  for (gint i = 0; i < 4; ++i) g_thread_join(threads[i]);
}
GST_END_TEST;

static Suite* vornycnr_suite(void) {
  Suite* suite = suite_create("vornycnr");
  TCase* tests = tcase_create("element");
  suite_add_tcase(suite, tests);
  tcase_add_checked_fixture(tests, setup, teardown);
  tcase_add_test(tests, test_layouts_strides_sizes);
  tcase_add_test(tests, test_switches);
  tcase_add_test(tests, test_fine_mode_while_playing);
  tcase_add_test(tests, test_temporal);
  tcase_add_test(tests, test_gain_while_playing);
  tcase_add_test(tests, test_gain_of_the_stream);
  tcase_add_test(tests, test_renegotiation);
  tcase_add_test(tests, test_stats);
  tcase_add_test(tests, test_bad_tuning_files);
  tcase_add_test(tests, test_default_set);
  tcase_add_test(tests, test_out_of_pass_through);
  tcase_add_test(tests, test_edges_of_any_width);
  tcase_add_test(tests, test_automatic_gain);
  tcase_add_test(tests, test_late_frames);
  tcase_add_test(tests, test_latency);
  tcase_add_test(tests, test_refused_formats_in_plain_words);
  tcase_add_test(tests, test_flushes_and_sizes_under_load);
  tcase_add_test(tests, test_several_at_once);
  return suite;
}

GST_CHECK_MAIN(vornycnr)
