/*
 * How long frames take, which of them come too late, and what the element tells about both.
 *
 * Every call is made with the element's object lock held, but for those that say otherwise.
 */
#ifndef VORN_GST_PACE_H
#define VORN_GST_PACE_H

#include <gst/gst.h>

typedef struct {
  guint64 frames;  /* denoised since start */
  guint64 skipped; /* passed on as they were, because they came too late */
  GstClockTime last, max, total;
  GstClockTime recent;   /* mean of about the last 16 frames */
  GstClockTime latency;  /* what the element says it adds in a live pipeline */
  GstClockTime earliest; /* running time before which a frame is too late; may be NONE */
  gdouble proportion;    /* of the last QoS event: above 1 downstream waits for us */
  GstClockTimeDiff jitter;
  gdouble luma_gain, chroma_gain; /* of the entries in use */
} Pace;

/* Forgets everything: for a start. */
void pace_reset(Pace* pace);

/* Forgets lateness: for a flush. */
void pace_flush(Pace* pace);

/* Takes in a QoS event from downstream. */
void pace_hear(Pace* pace, GstEvent* event);

/* Whether a frame of this running time would come too late to be shown. */
gboolean pace_is_late(const Pace* pace, GstClockTime running_time);

/* Counts a denoised frame that took time. TRUE when the latency to report has grown. */
gboolean pace_count(Pace* pace, GstClockTime time);

/* A new structure for the property "stats". */
GstStructure* pace_stats(const Pace* pace);

/* A QoS message about a frame that was skipped; to be posted without the lock. */
GstMessage* pace_message(const Pace* pace, GstElement* element, const GstSegment* segment,
                         GstBuffer* buffer);

#endif
