/**
 * SECTION:element-vornycnr
 *
 * Removes luma and chroma noise from NV12, NV21 and I420 video. Each element has its own denoiser
 * (four worker threads), created when the size is negotiated.
 *
 * |[
 * gst-launch-1.0 filesrc location=night.mkv ! decodebin ! videoconvert ! vornycnr gain=8 !
 *     videoconvert ! autovideosink
 * ]|
 */
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include "frame_copy.h"
#include "tuning_file.h"
#include "vorn_ycnr.h"

GST_DEBUG_CATEGORY_STATIC(vornycnr_debug);
#define GST_CAT_DEFAULT vornycnr_debug

#define GST_TYPE_VORN_YCNR (gst_vorn_ycnr_get_type())
G_DECLARE_FINAL_TYPE(GstVornYcnr, gst_vorn_ycnr, GST, VORN_YCNR, GstVideoFilter)

#define DEFAULT_GAIN 8.0
#define DEFAULT_LUMA TRUE
#define DEFAULT_CHROMA TRUE

/* Below the smaller side a pyramid of five levels has empty ones; the larger one keeps
 * width * height * 3 below 2^31. Odd sizes are padded here. */
#define SIDES "[ 16, 16384 ]"

/* How much the library logs to standard error: 1 errors, 4 every stage. Exported by it, though not
 * declared in its header; a property file (VORN_PROPERTIES) has the last word. */
extern gint nr_log_Level;

struct _GstVornYcnr {
  GstVideoFilter parent;

  /* Guarded by the object lock: properties, and what the application may read while playing. */
  gchar* tuning_file;
  gdouble gain;
  gboolean luma;
  gboolean chroma;
  GArray* tuning; /* of TuningEntry; never NULL between start and stop */
  guint64 frames; /* denoised since start */
  GstClockTime last_time;
  GstClockTime max_time;
  GstClockTime total_time;

  /* Streaming thread only. */
  denoise_handle_t* handle;
  gint width, height;      /* of the handle, even */
  guint8 *source, *result; /* packed frames for buffers of any other layout */
};

enum { PROP_0, PROP_TUNING_FILE, PROP_GAIN, PROP_LUMA, PROP_CHROMA, PROP_STATS };

G_DEFINE_TYPE(GstVornYcnr, gst_vorn_ycnr, GST_TYPE_VIDEO_FILTER)

/* Reads the set that the property names; without one, the installed default set. */
static GArray* load_tuning(const gchar* path, GError** error) {
  if (path && *path) return tuning_file_read(path, error);
  if (g_file_test(DEFAULT_TUNING_FILE, G_FILE_TEST_EXISTS))
    return tuning_file_read(DEFAULT_TUNING_FILE, error);
  return tuning_fallback();
}

static void update_passthrough(GstVornYcnr* self) {
  GST_OBJECT_LOCK(self);
  const gboolean nothing_to_do = !self->luma && !self->chroma;
  GST_OBJECT_UNLOCK(self);
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(self), nothing_to_do);
}

/* While running, a new file is read at once, and one that cannot be read leaves the old tuning. */
static void set_tuning_file(GstVornYcnr* self, const gchar* path) {
  GST_OBJECT_LOCK(self);
  g_free(self->tuning_file);
  self->tuning_file = g_strdup(path);
  const gboolean running = self->tuning != NULL;
  GST_OBJECT_UNLOCK(self);
  if (!running) return;

  GError* error = NULL;
  GArray* tuning = load_tuning(path, &error);
  if (!tuning) {
    GST_ELEMENT_WARNING(self, RESOURCE, READ, ("%s", error->message), ("the old tuning stays"));
    g_clear_error(&error);
    return;
  }
  GST_OBJECT_LOCK(self);
  GArray* old = self->tuning;
  self->tuning = tuning;
  GST_OBJECT_UNLOCK(self);
  if (old) g_array_unref(old);
}

static void gst_vorn_ycnr_set_property(GObject* object, guint id, const GValue* value,
                                       GParamSpec* spec) {
  GstVornYcnr* self = GST_VORN_YCNR(object);
  if (id == PROP_TUNING_FILE) {
    set_tuning_file(self, g_value_get_string(value));
    return;
  }
  GST_OBJECT_LOCK(self);
  switch (id) {
    case PROP_GAIN:
      self->gain = g_value_get_double(value);
      break;
    case PROP_LUMA:
      self->luma = g_value_get_boolean(value);
      break;
    case PROP_CHROMA:
      self->chroma = g_value_get_boolean(value);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
  GST_OBJECT_UNLOCK(self);
  update_passthrough(self);
}

static void gst_vorn_ycnr_get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  GstVornYcnr* self = GST_VORN_YCNR(object);
  GST_OBJECT_LOCK(self);
  switch (id) {
    case PROP_TUNING_FILE:
      g_value_set_string(value, self->tuning_file);
      break;
    case PROP_GAIN:
      g_value_set_double(value, self->gain);
      break;
    case PROP_LUMA:
      g_value_set_boolean(value, self->luma);
      break;
    case PROP_CHROMA:
      g_value_set_boolean(value, self->chroma);
      break;
    case PROP_STATS:
      g_value_take_boxed(value,
                         gst_structure_new("application/x-vornycnr-stats",               //
                                           "frames", G_TYPE_UINT64, self->frames,        //
                                           "last-time", G_TYPE_UINT64, self->last_time,  //
                                           "average-time", G_TYPE_UINT64,
                                           self->frames ? self->total_time / self->frames : 0,  //
                                           "max-time", G_TYPE_UINT64, self->max_time, NULL));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
  GST_OBJECT_UNLOCK(self);
}

static void release_denoiser(GstVornYcnr* self) {
  if (self->handle) vorn_ycnr_deinit(self->handle);
  self->handle = NULL;
  g_clear_pointer(&self->source, g_free);
  g_clear_pointer(&self->result, g_free);
}

static gboolean gst_vorn_ycnr_start(GstBaseTransform* base) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  GST_OBJECT_LOCK(self);
  gchar* path = g_strdup(self->tuning_file);
  GST_OBJECT_UNLOCK(self);

  GError* error = NULL;
  GArray* tuning = load_tuning(path, &error);
  g_free(path);
  if (!tuning) {
    GST_ELEMENT_ERROR(self, RESOURCE, READ, ("%s", error->message), (NULL));
    g_clear_error(&error);
    return FALSE;
  }
  GST_OBJECT_LOCK(self);
  self->tuning = tuning;
  self->frames = 0;
  self->last_time = self->max_time = self->total_time = 0;
  GST_OBJECT_UNLOCK(self);
  return TRUE;
}

static gboolean gst_vorn_ycnr_stop(GstBaseTransform* base) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  release_denoiser(self);
  GST_OBJECT_LOCK(self);
  GArray* tuning = self->tuning;
  self->tuning = NULL;
  GST_OBJECT_UNLOCK(self);
  if (tuning) g_array_unref(tuning);
  return TRUE;
}

static gboolean gst_vorn_ycnr_set_info(GstVideoFilter* filter, GstCaps* in_caps,
                                       GstVideoInfo* in_info, GstCaps* out_caps,
                                       GstVideoInfo* out_info) {
  GstVornYcnr* self = GST_VORN_YCNR(filter);
  (void)in_caps;
  (void)out_caps;
  (void)out_info;
  ycnr_init_param size = {padded_size(GST_VIDEO_INFO_WIDTH(in_info)),
                          padded_size(GST_VIDEO_INFO_HEIGHT(in_info))};
  if (self->handle && self->width == size.width && self->height == size.height) return TRUE;

  release_denoiser(self);
  const gsize bytes = (gsize)size.width * size.height * 3 / 2;
  self->width = size.width;
  self->height = size.height;
  self->handle = vorn_ycnr_init(&size);
  self->source = g_try_malloc(bytes);
  self->result = g_try_malloc(bytes);
  if (!self->handle || !self->source || !self->result) {
    release_denoiser(self);
    GST_ELEMENT_ERROR(self, LIBRARY, INIT,
                      ("No denoiser for frames of %dx%d", size.width, size.height), (NULL));
    return FALSE;
  }
  GST_DEBUG_OBJECT(self, "denoiser for %dx%d", size.width, size.height);
  return TRUE;
}

static void gst_vorn_ycnr_before_transform(GstBaseTransform* base, GstBuffer* buffer) {
  const GstClockTime time =
      gst_segment_to_stream_time(&base->segment, GST_FORMAT_TIME, GST_BUFFER_TIMESTAMP(buffer));
  if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(base), time);
}

/* Copies the tuning in force, with the switches applied. */
static void current_tuning(GstVornYcnr* self, ycnr_ynr_tuning_param* luma,
                           ycnr_cnr_tuning_param* chroma) {
  GST_OBJECT_LOCK(self);
  const TuningEntry* entry = tuning_nearest(self->tuning, self->gain);
  *luma = entry->luma;
  *chroma = entry->chroma;
  luma->enable = self->luma && entry->luma.enable == 1;
  chroma->enable = self->chroma && entry->chroma.enable == 1;
  GST_OBJECT_UNLOCK(self);
}

static void count_frame(GstVornYcnr* self, GstClockTime time) {
  GST_OBJECT_LOCK(self);
  self->frames += 1;
  self->last_time = time;
  self->max_time = MAX(self->max_time, time);
  self->total_time += time;
  GST_OBJECT_UNLOCK(self);
}

static GstFlowReturn gst_vorn_ycnr_transform_frame(GstVideoFilter* filter, GstVideoFrame* in,
                                                   GstVideoFrame* out) {
  GstVornYcnr* self = GST_VORN_YCNR(filter);
  const GstClockTime start = gst_util_get_timestamp();
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  current_tuning(self, &luma, &chroma);

  /* With both filters on, the library overwrites its source, which here is upstream's. */
  guint8* source = luma.enable && chroma.enable ? NULL : frame_as_packed(in);
  if (!source) frame_pack(in, source = self->source);
  guint8* direct = frame_as_packed(out);
  guint8* result = direct ? direct : self->result;

  _tag_uni_image src = {VORN_IMAGE_YUV420SP, self->width, self->height, {source}, {self->width}};
  _tag_uni_image dst = {VORN_IMAGE_YUV420SP, self->width, self->height, {result}, {self->width}};
  Denoise_Parameters_t parameters = {0, &luma, &chroma};
  if (vorn_ycnr_process(self->handle, &src, &dst, &parameters) != VORN_OK) {
    GST_ELEMENT_ERROR(self, LIBRARY, FAILED,
                      ("The tuning does not fit frames of %dx%d", self->width, self->height),
                      ("luma levels %d, chroma scale %d", luma.layer, chroma.scale));
    return GST_FLOW_ERROR;
  }
  if (!direct) frame_unpack(result, out);
  count_frame(self, gst_util_get_timestamp() - start);
  return GST_FLOW_OK;
}

static void gst_vorn_ycnr_finalize(GObject* object) {
  GstVornYcnr* self = GST_VORN_YCNR(object);
  release_denoiser(self);
  g_free(self->tuning_file);
  G_OBJECT_CLASS(gst_vorn_ycnr_parent_class)->finalize(object);
}

static void gst_vorn_ycnr_init(GstVornYcnr* self) {
  self->gain = DEFAULT_GAIN;
  self->luma = DEFAULT_LUMA;
  self->chroma = DEFAULT_CHROMA;
}

static void gst_vorn_ycnr_class_init(GstVornYcnrClass* klass) {
  GObjectClass* object = G_OBJECT_CLASS(klass);
  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  GstBaseTransformClass* transform = GST_BASE_TRANSFORM_CLASS(klass);
  GstVideoFilterClass* filter = GST_VIDEO_FILTER_CLASS(klass);
  const GParamFlags at_any_time =
      G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING;

  object->set_property = gst_vorn_ycnr_set_property;
  object->get_property = gst_vorn_ycnr_get_property;
  object->finalize = gst_vorn_ycnr_finalize;
  g_object_class_install_property(
      object, PROP_TUNING_FILE,
      g_param_spec_string("tuning-file", "Tuning file",
                          "Tuning set (JSON) with one entry per gain; none takes the default set",
                          NULL, at_any_time));
  g_object_class_install_property(
      object, PROP_GAIN,
      g_param_spec_double("gain", "Gain",
                          "Sensor gain of the frames; the set's entry nearest in stops is used",
                          1e-3, 1e6, DEFAULT_GAIN, at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_LUMA,
      g_param_spec_boolean("luma", "Luma", "Remove luma noise", DEFAULT_LUMA,
                           at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_CHROMA,
      g_param_spec_boolean("chroma", "Chroma", "Remove chroma noise", DEFAULT_CHROMA,
                           at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_STATS,
      g_param_spec_boxed("stats", "Statistics",
                         "Frames denoised since start; time per frame, copies included, in "
                         "nanoseconds: last, average, max",
                         GST_TYPE_STRUCTURE, G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));

  GstCaps* caps = gst_caps_from_string(
      "video/x-raw, format = (string) { NV12, I420, NV21 }, "
      "width = (int) " SIDES ", height = (int) " SIDES ", framerate = " GST_VIDEO_FPS_RANGE);
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
  gst_element_class_add_pad_template(
      element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
  gst_element_class_set_static_metadata(
      element, "Luma and chroma noise reduction", "Filter/Effect/Video",
      "Block non-local means on luma, luma-guided edge-preserving filters on chroma",
      "vornycnr developers");

  transform->start = gst_vorn_ycnr_start;
  transform->stop = gst_vorn_ycnr_stop;
  transform->before_transform = gst_vorn_ycnr_before_transform;
  transform->transform_ip_on_passthrough = FALSE;
  filter->set_info = gst_vorn_ycnr_set_info;
  filter->transform_frame = gst_vorn_ycnr_transform_frame;

  GST_DEBUG_CATEGORY_INIT(vornycnr_debug, "vornycnr", 0, "luma and chroma noise reduction");
}

static gboolean plugin_init(GstPlugin* plugin) {
  nr_log_Level = 1; /* the element itself reports through GStreamer's debug log */
  return gst_element_register(plugin, "vornycnr", GST_RANK_NONE, GST_TYPE_VORN_YCNR);
}

#ifndef PACKAGE
#define PACKAGE "vornycnr"
#endif
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vornycnr,
                  "Noise reduction for 8-bit YUV 4:2:0 video", plugin_init, PLUGIN_VERSION,
                  "Apache-2.0", "vornycnr", "https://example.invalid/vornycnr")
