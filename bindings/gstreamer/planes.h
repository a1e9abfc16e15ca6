/*
 * GStreamer's frames as the library takes them.
 */
#ifndef VORN_GST_PLANES_H
#define VORN_GST_PLANES_H

#include <gst/video/video.h>

#include "vorn_noise.h"
#include "vorn_ycnr_ext.h"

/* The planes of a mapped NV12, NV21 or I420 frame, where they lie. */
vorn_ycnr_planes planes_of(const GstVideoFrame* frame);

/* The frame as the noise meter takes it. */
vorn_noise_frame planes_to_measure(const vorn_ycnr_planes* frame);

#endif
