/**
 * SECTION:element-vornycnr
 *
 * Removes luma and chroma noise from 8-bit 4:2:0 video (NV12, NV21, I420). Each element has its own
 * denoiser (four worker threads), created when the size is negotiated. Frames that a live sink says
 * come too late pass on as they are, counted in "stats" and told by QoS messages; "qos" switches
 * that off. In live pipelines the mean time per frame is reported as latency.
 *
 * |[
 * gst-launch-1.0 filesrc location=night.mkv ! decodebin ! videoconvert ! vornycnr gain=8 !
 *     videoconvert ! autovideosink
 * ]|
 */
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include "frame_copy.h"
#include "pace.h"
#include "vorn_tuning.h"
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
#define LEAST_SIDE 16
#define MOST_SIDE 16384
#define SIDES "[ " G_STRINGIFY(LEAST_SIDE) ", " G_STRINGIFY(MOST_SIDE) " ]"

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
  vorn_tuning_set* tuning; /* never NULL between start and stop */
  Pace pace;

  /* Streaming thread only. */
  denoise_handle_t* handle;
  gint width, height;      /* of the handle, even */
  guint8 *source, *result; /* packed frames for buffers of any other layout */
};

enum { PROP_0, PROP_TUNING_FILE, PROP_GAIN, PROP_LUMA, PROP_CHROMA, PROP_STATS };

G_DEFINE_TYPE(GstVornYcnr, gst_vorn_ycnr, GST_TYPE_VIDEO_FILTER)

/* The set in the file, or the default set for no name; NULL, with fault told. */
static vorn_tuning_set* load_tuning(const gchar* path, vorn_tuning_fault* fault) {
  return path && *path ? vorn_tuning_load(path, fault) : vorn_tuning_default(fault);
}

/* Before the element starts any name is kept, and start says whether it is good. While it runs, a
 * file is read at once, and one that cannot be used leaves the old tuning and the old name. */
static void set_tuning_file(GstVornYcnr* self, const gchar* path) {
  GST_OBJECT_LOCK(self);
  const gboolean running = self->tuning != NULL;
  GST_OBJECT_UNLOCK(self);
  vorn_tuning_set* tuning = NULL;
  if (running) {
    vorn_tuning_fault fault;
    tuning = load_tuning(path, &fault);
    if (!tuning) {
      GST_ELEMENT_WARNING(self, RESOURCE, READ, ("%s", fault.text), ("the old tuning stays"));
      return;
    }
  }
  GST_OBJECT_LOCK(self);
  g_free(self->tuning_file);
  self->tuning_file = g_strdup(path);
  if (tuning && self->tuning) {
    vorn_tuning_set* old = self->tuning;
    self->tuning = tuning;
    tuning = old;
  }
  GST_OBJECT_UNLOCK(self);
  vorn_tuning_free(tuning);
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
      g_value_take_boxed(value, pace_stats(&self->pace));
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

  vorn_tuning_fault fault;
  vorn_tuning_set* tuning = load_tuning(path, &fault);
  g_free(path);
  if (!tuning) {
    GST_ELEMENT_ERROR(self, RESOURCE, READ, ("%s", fault.text), (NULL));
    return FALSE;
  }
  GST_OBJECT_LOCK(self);
  self->tuning = tuning;
  pace_reset(&self->pace);
  GST_OBJECT_UNLOCK(self);
  return TRUE;
}

static gboolean gst_vorn_ycnr_stop(GstBaseTransform* base) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  release_denoiser(self);
  GST_OBJECT_LOCK(self);
  vorn_tuning_set* tuning = self->tuning;
  self->tuning = NULL;
  GST_OBJECT_UNLOCK(self);
  vorn_tuning_free(tuning);
  return TRUE;
}

/* Says in plain words why caps are refused; the generic error that follows does not. */
static gboolean gst_vorn_ycnr_accept_caps(GstBaseTransform* base, GstPadDirection direction,
                                          GstCaps* caps) {
  if (GST_BASE_TRANSFORM_CLASS(gst_vorn_ycnr_parent_class)->accept_caps(base, direction, caps))
    return TRUE;
  GstVideoInfo info;
  if (direction == GST_PAD_SINK && gst_video_info_from_caps(&info, caps))
    GST_ELEMENT_WARNING(
        base, STREAM, FORMAT,
        ("Frames of %s, %dx%d, are not taken, but 8-bit 4:2:0 (NV12, NV21, I420) of %d to %d "
         "pixels "
         "a side; put videoconvert in front.",
         gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&info)), GST_VIDEO_INFO_WIDTH(&info),
         GST_VIDEO_INFO_HEIGHT(&info), LEAST_SIDE, MOST_SIDE),
        (NULL));
  return FALSE;
}

static gboolean gst_vorn_ycnr_set_info(GstVideoFilter* filter, GstCaps* in_caps,
                                       GstVideoInfo* in_info, GstCaps* out_caps,
                                       GstVideoInfo* out_info) {
  GstVornYcnr* self = GST_VORN_YCNR(filter);
  (void)in_caps;
  (void)out_caps;
  (void)out_info;
  ycnr_init_param size = {padded_width(GST_VIDEO_INFO_WIDTH(in_info)),
                          padded_height(GST_VIDEO_INFO_HEIGHT(in_info))};
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

/* Settings are taken over here, on the streaming thread and before the base class decides where
 * the next buffer goes: leaving pass-through needs a new negotiation of buffers first. */
static GstFlowReturn gst_vorn_ycnr_submit_input_buffer(GstBaseTransform* base, gboolean is_discont,
                                                       GstBuffer* buffer) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  const GstClockTime time =
      gst_segment_to_stream_time(&base->segment, GST_FORMAT_TIME, GST_BUFFER_TIMESTAMP(buffer));
  if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(base), time);

  GST_OBJECT_LOCK(self);
  const gboolean nothing_to_do = !self->luma && !self->chroma;
  GST_OBJECT_UNLOCK(self);
  if (nothing_to_do != gst_base_transform_is_passthrough(base)) {
    gst_base_transform_set_passthrough(base, nothing_to_do);
    gst_base_transform_reconfigure_src(base);
  }
  return GST_BASE_TRANSFORM_CLASS(gst_vorn_ycnr_parent_class)
      ->submit_input_buffer(base, is_discont, buffer);
}

/* QoS events are this element's own to follow: the base class would drop the frames. */
static gboolean gst_vorn_ycnr_src_event(GstBaseTransform* base, GstEvent* event) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  if (GST_EVENT_TYPE(event) != GST_EVENT_QOS)
    return GST_BASE_TRANSFORM_CLASS(gst_vorn_ycnr_parent_class)->src_event(base, event);
  GST_OBJECT_LOCK(self);
  pace_hear(&self->pace, event);
  GST_OBJECT_UNLOCK(self);
  return gst_pad_push_event(base->sinkpad, event);
}

static gboolean gst_vorn_ycnr_sink_event(GstBaseTransform* base, GstEvent* event) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP || GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
    GST_OBJECT_LOCK(self);
    pace_flush(&self->pace);
    GST_OBJECT_UNLOCK(self);
  }
  return GST_BASE_TRANSFORM_CLASS(gst_vorn_ycnr_parent_class)->sink_event(base, event);
}

/* Adds the time per frame to what upstream reports. */
static gboolean gst_vorn_ycnr_query(GstBaseTransform* base, GstPadDirection direction,
                                    GstQuery* query) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  if (!GST_BASE_TRANSFORM_CLASS(gst_vorn_ycnr_parent_class)->query(base, direction, query))
    return FALSE;
  if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY && direction == GST_PAD_SRC) {
    gboolean live;
    GstClockTime least, most;
    gst_query_parse_latency(query, &live, &least, &most);
    GST_OBJECT_LOCK(self);
    const GstClockTime own = live ? self->pace.latency : 0;
    GST_OBJECT_UNLOCK(self);
    gst_query_set_latency(query, live, least + own,
                          GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
  }
  return TRUE;
}

/* Copies the tuning in force, with the switches applied. */
static void current_tuning(GstVornYcnr* self, ycnr_ynr_tuning_param* luma,
                           ycnr_cnr_tuning_param* chroma) {
  GST_OBJECT_LOCK(self);
  vorn_tuning_for_gain(self->tuning, self->gain, luma, chroma);
  luma->enable = self->luma && luma->enable == 1;
  chroma->enable = self->chroma && chroma->enable == 1;
  GST_OBJECT_UNLOCK(self);
}

/* Whether the frame comes too late anyway; it is then counted and told. */
static gboolean skip_late_frame(GstVornYcnr* self, GstBuffer* buffer) {
  GstBaseTransform* base = GST_BASE_TRANSFORM(self);
  if (!gst_base_transform_is_qos_enabled(base)) return FALSE;
  const GstClockTime time =
      gst_segment_to_running_time(&base->segment, GST_FORMAT_TIME, GST_BUFFER_TIMESTAMP(buffer));
  GstMessage* message = NULL;
  GST_OBJECT_LOCK(self);
  const gboolean late = pace_is_late(&self->pace, time);
  if (late) {
    self->pace.skipped += 1;
    message = pace_message(&self->pace, GST_ELEMENT(self), &base->segment, buffer);
  }
  GST_OBJECT_UNLOCK(self);
  if (message) gst_element_post_message(GST_ELEMENT(self), message);
  return late;
}

static void count_frame(GstVornYcnr* self, GstClockTime time) {
  GST_OBJECT_LOCK(self);
  const gboolean slower = pace_count(&self->pace, time);
  GST_OBJECT_UNLOCK(self);
  if (slower)
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
}

static GstFlowReturn gst_vorn_ycnr_transform_frame(GstVideoFilter* filter, GstVideoFrame* in,
                                                   GstVideoFrame* out) {
  GstVornYcnr* self = GST_VORN_YCNR(filter);
  if (skip_late_frame(self, in->buffer))
    return gst_video_frame_copy(out, in) ? GST_FLOW_OK : GST_FLOW_ERROR;
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
                          "Tuning set (JSON) with one entry per gain; none takes the default set. "
                          "While playing, a file that cannot be used is a warning and changes "
                          "nothing",
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
                         "Since start: frames denoised, frames skipped because they came too late; "
                         "time per frame, copies included, in nanoseconds: last, average, max",
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
  transform->accept_caps = gst_vorn_ycnr_accept_caps;
  transform->submit_input_buffer = gst_vorn_ycnr_submit_input_buffer;
  transform->src_event = gst_vorn_ycnr_src_event;
  transform->sink_event = gst_vorn_ycnr_sink_event;
  transform->query = gst_vorn_ycnr_query;
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
