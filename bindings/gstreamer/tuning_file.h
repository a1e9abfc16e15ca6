/*
 * Reads a tuning set: a JSON file with one entry per sensor gain.
 */
#ifndef VORN_GST_TUNING_FILE_H
#define VORN_GST_TUNING_FILE_H

#include <glib.h>

#include "vorn_ycnr.h"

typedef struct {
  gdouble gain; /* sensor gain, 1 is the base sensitivity */
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
} TuningEntry;

/* Entries of the set, as a GArray of TuningEntry, never empty. On failure NULL, and error says
 * which field of which entry is wrong. */
GArray* tuning_file_read(const gchar* path, GError** error);

/* A set of one entry of middle strength, for when there is no file at all. */
GArray* tuning_fallback(void);

/* The entry whose gain is nearest in stops, as a camera picks it; of two equally near ones, the
 * first. */
const TuningEntry* tuning_nearest(const GArray* set, gdouble gain);

#endif
