#include "pace.h"

void pace_reset(Pace* pace) {
  *pace = (Pace){.earliest = GST_CLOCK_TIME_NONE, .proportion = 1};
}

void pace_flush(Pace* pace) {
  pace->earliest = GST_CLOCK_TIME_NONE;
  pace->proportion = 1;
  pace->jitter = 0;
}

void pace_hear(Pace* pace, GstEvent* event) {
  GstClockTimeDiff diff;
  GstClockTime timestamp;
  gst_event_parse_qos(event, NULL, &pace->proportion, &diff, &timestamp);
  pace->jitter = diff;
  if (!GST_CLOCK_TIME_IS_VALID(timestamp)) {
    pace->earliest = GST_CLOCK_TIME_NONE;
  } else if (diff > 0) {
    /* Late: what is twice as far behind can still catch up; the rest would only be late again. */
    pace->earliest = timestamp + 2 * (GstClockTime)diff;
  } else {
    pace->earliest = timestamp > (GstClockTime)-diff ? timestamp + diff : 0;
  }
}

gboolean pace_is_late(const Pace* pace, GstClockTime running_time) {
  return GST_CLOCK_TIME_IS_VALID(pace->earliest) && GST_CLOCK_TIME_IS_VALID(running_time) &&
         running_time <= pace->earliest;
}

gboolean pace_count(Pace* pace, GstClockTime time) {
  /* Steps keep the pipeline from adapting to every frame; the first frames warm caches up. */
  const GstClockTime step = 5 * GST_MSECOND;
  const guint64 first = 16;

  pace->frames += 1;
  pace->last = time;
  pace->max = MAX(pace->max, time);
  pace->total += time;
  pace->recent = pace->frames == 1 ? time : (15 * pace->recent + time) / 16;
  if (pace->frames < first || pace->recent <= pace->latency) return FALSE;
  pace->latency = (pace->recent + step - 1) / step * step;
  return TRUE;
}

GstStructure* pace_stats(const Pace* pace) {
  return gst_structure_new("application/x-vornycnr-stats",                          //
                           "frames", G_TYPE_UINT64, pace->frames,                   //
                           "skipped", G_TYPE_UINT64, pace->skipped,                 //
                           "last-time", G_TYPE_UINT64, pace->last,                  //
                           "average-time", G_TYPE_UINT64,                           //
                           pace->frames ? pace->total / pace->frames : (guint64)0,  //
                           "max-time", G_TYPE_UINT64, pace->max,                    //
                           "luma-gain", G_TYPE_DOUBLE, pace->luma_gain,             //
                           "chroma-gain", G_TYPE_DOUBLE, pace->chroma_gain, NULL);
}

GstMessage* pace_message(const Pace* pace, GstElement* element, const GstSegment* segment,
                         GstBuffer* buffer) {
  const GstClockTime time = GST_BUFFER_TIMESTAMP(buffer);
  GstMessage* message = gst_message_new_qos(
      GST_OBJECT(element), FALSE, gst_segment_to_running_time(segment, GST_FORMAT_TIME, time),
      gst_segment_to_stream_time(segment, GST_FORMAT_TIME, time), time,
      GST_BUFFER_DURATION(buffer));
  gst_message_set_qos_values(message, pace->jitter, pace->proportion, 1000000);
  gst_message_set_qos_stats(message, GST_FORMAT_BUFFERS, pace->frames, pace->skipped);
  return message;
}
