/*
 * The element's instance, shared by its streaming side and its properties.
 */
#ifndef VORN_GST_VORNYCNR_H
#define VORN_GST_VORNYCNR_H

#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include "pace.h"
#include "vorn_noise.h"
#include "vorn_temporal.h"
#include "vorn_tuning.h"
#include "vorn_ycnr.h"

#define GST_TYPE_VORN_YCNR (gst_vorn_ycnr_get_type())
G_DECLARE_FINAL_TYPE(GstVornYcnr, gst_vorn_ycnr, GST, VORN_YCNR, GstVideoFilter)

struct _GstVornYcnr {
  GstVideoFilter parent;

  /* Guarded by the object lock: properties, and what the application may read while playing. */
  gchar* tuning_file;
  gdouble gain;
  gboolean automatic;
  gdouble base_iso;
  gint iso; /* of the stream's last tag, 0 before one */
  gboolean luma;
  gboolean chroma;
  gboolean fine;
  gboolean temporal;
  vorn_tuning_set* tuning; /* never NULL between start and stop */
  Pace pace;

  /* Streaming thread only. */
  denoise_handle_t* handle;
  gint width, height;            /* of the handle: padded */
  vorn_noise_follower* follower; /* of the automatic gain */
  vorn_temporal* blend;          /* NULL before "temporal" is first on */
};

/* Properties, with their texts and ranges, into the class; their defaults into an instance. */
void gst_vorn_ycnr_install_properties(GObjectClass* object);
void gst_vorn_ycnr_default_properties(GstVornYcnr* self);

/* The set in the file, or the default set for no name; NULL, with fault told. */
vorn_tuning_set* gst_vorn_ycnr_load_tuning(const gchar* path, vorn_tuning_fault* fault);

#endif
