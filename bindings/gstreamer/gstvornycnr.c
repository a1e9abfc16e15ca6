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
 *
 * A source that knows the sensor's ISO speed tells it with the tag "capturing-iso-speed", as often
 * as it changes; a tag stands between the frames that it parts, so that each is filtered with its
 * own:
 *
 * |[
 * gst-launch-1.0 videotestsrc ! taginject tags="capturing-iso-speed=1600" !
 *     vornycnr base-iso=100 ! autovideosink
 * ]|
 */
#include "gstvornycnr.h"

#include <gst/tag/tag.h>
#include <string.h>

#include "../padded_size.h"
#include "planes.h"
#include "vorn_ycnr_ext.h"

GST_DEBUG_CATEGORY_STATIC(vornycnr_debug);
#define GST_CAT_DEFAULT vornycnr_debug

/* Small and odd sizes are padded inside; the larger side keeps width * height * 3 below 2^31. */
#define LEAST_SIDE 1
#define MOST_SIDE 16384
#define SIDES "[ " G_STRINGIFY(LEAST_SIDE) ", " G_STRINGIFY(MOST_SIDE) " ]"

G_DEFINE_TYPE(GstVornYcnr, gst_vorn_ycnr, GST_TYPE_VIDEO_FILTER)

static void release_denoiser(GstVornYcnr* self) {
  if (self->handle) vorn_ycnr_deinit(self->handle);
  self->handle = NULL;
}

static gboolean gst_vorn_ycnr_start(GstBaseTransform* base) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  GST_OBJECT_LOCK(self);
  gchar* path = g_strdup(self->tuning_file);
  GST_OBJECT_UNLOCK(self);

  vorn_tuning_fault fault;
  vorn_tuning_set* tuning = gst_vorn_ycnr_load_tuning(path, &fault);
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
  memset(self->follower, 0, sizeof *self->follower);
  vorn_tuning_temporal_reset(self->blend);
  if (self->handle && self->width == size.width && self->height == size.height) return TRUE;

  release_denoiser(self);
  self->width = size.width;
  self->height = size.height;
  self->handle = vorn_ycnr_init(&size);
  if (!self->handle) {
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

/* Tags come in line with the frames. A new stream begins without one. */
static void hear_iso(GstVornYcnr* self, GstEvent* event) {
  gint iso = 0;
  if (GST_EVENT_TYPE(event) == GST_EVENT_TAG) {
    GstTagList* tags;
    gst_event_parse_tag(event, &tags);
    if (!gst_tag_list_get_int(tags, GST_TAG_CAPTURING_ISO_SPEED, &iso)) return;
  }
  GST_OBJECT_LOCK(self);
  self->iso = iso;
  GST_OBJECT_UNLOCK(self);
}

static gboolean gst_vorn_ycnr_sink_event(GstBaseTransform* base, GstEvent* event) {
  GstVornYcnr* self = GST_VORN_YCNR(base);
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP || GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
    GST_OBJECT_LOCK(self);
    pace_flush(&self->pace);
    GST_OBJECT_UNLOCK(self);
    vorn_tuning_temporal_reset(self->blend); /* in line with the frames, as they are */
  }
  if (GST_EVENT_TYPE(event) == GST_EVENT_TAG || GST_EVENT_TYPE(event) == GST_EVENT_STREAM_START)
    hear_iso(self, event);
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

/* The tuning for a frame, with the switches applied; returns whether in fine mode. The set may be
 * exchanged from another thread, so the lock is held for as long as it is looked at, a measurement
 * of the frame's noise included. */
static gboolean current_tuning(GstVornYcnr* self, const vorn_ycnr_planes* frame,
                               ycnr_ynr_tuning_param* luma, ycnr_cnr_tuning_param* chroma) {
  GST_OBJECT_LOCK(self);
  if (self->automatic) {
    const vorn_noise_frame noise = planes_to_measure(frame);
    vorn_tuning_follow(self->follower, self->tuning, NULL, &noise, luma, chroma);
    self->pace.luma_gain = self->follower->luma_entry;
    self->pace.chroma_gain = self->follower->chroma_entry;
  } else {
    const gboolean told = self->base_iso > 0 && self->iso > 0;
    const gint32 entry =
        vorn_tuning_nearest(self->tuning, told ? self->iso / self->base_iso : self->gain);
    vorn_tuning_get(self->tuning, entry, luma, chroma);
    self->pace.luma_gain = self->pace.chroma_gain = vorn_tuning_gain(self->tuning, entry);
    self->follower->frames = 0; /* switched on again, it begins anew */
  }
  luma->enable = self->luma && luma->enable == 1;
  chroma->enable = self->chroma && chroma->enable == 1;
  const gboolean fine = self->fine;
  GST_OBJECT_UNLOCK(self);
  return fine;
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

/* Behind the filter, where "temporal" is on; switched on again, it begins anew. Without memory for
 * the frame before, frames go on as they are. */
static void steady_frame(GstVornYcnr* self, const vorn_ycnr_planes* frame,
                         const ycnr_ynr_tuning_param* luma) {
  GST_OBJECT_LOCK(self);
  const gboolean on = self->temporal;
  GST_OBJECT_UNLOCK(self);
  if (!on) {
    vorn_tuning_temporal_reset(self->blend);
    return;
  }
  if (!self->blend) self->blend = vorn_tuning_temporal_new();
  if (vorn_tuning_temporal_run(self->blend, frame, luma) < 0)
    GST_WARNING_OBJECT(self, "a frame of %dx%d is not blended", frame->width, frame->height);
}

static GstFlowReturn gst_vorn_ycnr_transform_frame(GstVideoFilter* filter, GstVideoFrame* in,
                                                   GstVideoFrame* out) {
  GstVornYcnr* self = GST_VORN_YCNR(filter);
  if (skip_late_frame(self, in->buffer))
    return gst_video_frame_copy(out, in) ? GST_FLOW_OK : GST_FLOW_ERROR;
  const GstClockTime start = gst_util_get_timestamp();
  const vorn_ycnr_planes from = planes_of(in), to = planes_of(out);
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  const gboolean fine = current_tuning(self, &from, &luma, &chroma);

  if ((fine ? vorn_ycnr_process_any_fine : vorn_ycnr_process_any)(self->handle, &from, &to, &luma,
                                                                  &chroma) != VORN_OK) {
    GST_ELEMENT_ERROR(self, LIBRARY, FAILED, ("A frame of %dx%d was refused", to.width, to.height),
                      ("luma levels %d, chroma scale %d", luma.layer, chroma.scale));
    return GST_FLOW_ERROR;
  }
  steady_frame(self, &to, &luma);
  count_frame(self, gst_util_get_timestamp() - start);
  return GST_FLOW_OK;
}

static void gst_vorn_ycnr_finalize(GObject* object) {
  GstVornYcnr* self = GST_VORN_YCNR(object);
  release_denoiser(self);
  g_free(self->follower);
  vorn_tuning_temporal_free(self->blend);
  g_free(self->tuning_file);
  G_OBJECT_CLASS(gst_vorn_ycnr_parent_class)->finalize(object);
}

static void gst_vorn_ycnr_init(GstVornYcnr* self) {
  gst_vorn_ycnr_default_properties(self);
  self->follower = g_new0(vorn_noise_follower, 1);
}

static void gst_vorn_ycnr_class_init(GstVornYcnrClass* klass) {
  GObjectClass* object = G_OBJECT_CLASS(klass);
  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  GstBaseTransformClass* transform = GST_BASE_TRANSFORM_CLASS(klass);
  GstVideoFilterClass* filter = GST_VIDEO_FILTER_CLASS(klass);
  gst_tag_register_musicbrainz_tags(); /* the photographic ones too */
  gst_vorn_ycnr_install_properties(object);
  object->finalize = gst_vorn_ycnr_finalize;
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
  /* The element itself reports through GStreamer's debug log; a property file has the last word. */
  if (!g_getenv("VORN_PROPERTIES")) vorn_ycnr_set_log_level(1);
  return gst_element_register(plugin, "vornycnr", GST_RANK_NONE, GST_TYPE_VORN_YCNR);
}

#ifndef PACKAGE
#define PACKAGE "vornycnr"
#endif
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vornycnr,
                  "Noise reduction for 8-bit YUV 4:2:0 video", plugin_init, PLUGIN_VERSION,
                  "Apache-2.0", "vornycnr", "https://example.invalid/vornycnr")
