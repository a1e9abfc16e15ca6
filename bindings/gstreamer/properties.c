#include "gstvornycnr.h"

#define DEFAULT_LUMA TRUE
#define DEFAULT_CHROMA TRUE

enum {
  PROP_0,
  PROP_TUNING_FILE,
  PROP_GAIN,
  PROP_AUTO_GAIN,
  PROP_BASE_ISO,
  PROP_LUMA,
  PROP_CHROMA,
  PROP_FINE,
  PROP_TEMPORAL,
  PROP_STATS
};

vorn_tuning_set* gst_vorn_ycnr_load_tuning(const gchar* path, vorn_tuning_fault* fault) {
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
    tuning = gst_vorn_ycnr_load_tuning(path, &fault);
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

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
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
    case PROP_AUTO_GAIN:
      self->automatic = g_value_get_boolean(value);
      break;
    case PROP_BASE_ISO:
      self->base_iso = g_value_get_double(value);
      break;
    case PROP_LUMA:
      self->luma = g_value_get_boolean(value);
      break;
    case PROP_CHROMA:
      self->chroma = g_value_get_boolean(value);
      break;
    case PROP_FINE:
      self->fine = g_value_get_boolean(value);
      break;
    case PROP_TEMPORAL:
      self->temporal = g_value_get_boolean(value);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
  GST_OBJECT_UNLOCK(self);
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  GstVornYcnr* self = GST_VORN_YCNR(object);
  GST_OBJECT_LOCK(self);
  switch (id) {
    case PROP_TUNING_FILE:
      g_value_set_string(value, self->tuning_file);
      break;
    case PROP_GAIN:
      g_value_set_double(value, self->gain);
      break;
    case PROP_AUTO_GAIN:
      g_value_set_boolean(value, self->automatic);
      break;
    case PROP_BASE_ISO:
      g_value_set_double(value, self->base_iso);
      break;
    case PROP_LUMA:
      g_value_set_boolean(value, self->luma);
      break;
    case PROP_CHROMA:
      g_value_set_boolean(value, self->chroma);
      break;
    case PROP_FINE:
      g_value_set_boolean(value, self->fine);
      break;
    case PROP_TEMPORAL:
      g_value_set_boolean(value, self->temporal);
      break;
    case PROP_STATS:
      g_value_take_boxed(value, pace_stats(&self->pace));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
  GST_OBJECT_UNLOCK(self);
}

void gst_vorn_ycnr_default_properties(GstVornYcnr* self) {
  self->gain = VORN_TUNING_DEFAULT_GAIN;
  self->luma = DEFAULT_LUMA;
  self->chroma = DEFAULT_CHROMA;
}

void gst_vorn_ycnr_install_properties(GObjectClass* object) {
  const GParamFlags at_any_time =
      G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING;

  object->set_property = set_property;
  object->get_property = get_property;
  g_object_class_install_property(
      object, PROP_TUNING_FILE,
      g_param_spec_string("tuning-file", "Tuning file",
                          "Tuning set (JSON) with one entry per gain; none takes the default set. "
                          "While playing, a file that cannot be used is a warning and changes "
                          "nothing",
                          NULL, at_any_time));
  g_object_class_install_property(
      object, PROP_GAIN,
      g_param_spec_double(
          "gain", "Gain", "Sensor gain of the frames; the set's entry nearest in stops is used",
          1e-3, 1e6, VORN_TUNING_DEFAULT_GAIN, at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_AUTO_GAIN,
      g_param_spec_boolean(
          "auto-gain", "Automatic gain",
          "Measure the noise, in the first four frames and then every 30th, and take "
          "the entries that fit it instead of \"gain\"; what has no noise stays as it "
          "is",
          FALSE, at_any_time));
  g_object_class_install_property(
      object, PROP_BASE_ISO,
      g_param_spec_double(
          "base-iso", "Base ISO speed",
          "ISO speed that is gain 1 of the tuning set. Above 0, frames behind a tag "
          "capturing-iso-speed are filtered for its value divided by this instead "
          "of \"gain\"; 0 takes no notice of tags",
          0, 1e6, 0, at_any_time));
  g_object_class_install_property(
      object, PROP_LUMA,
      g_param_spec_boolean("luma", "Luma", "Remove luma noise", DEFAULT_LUMA,
                           at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_CHROMA,
      g_param_spec_boolean("chroma", "Chroma", "Remove chroma noise", DEFAULT_CHROMA,
                           at_any_time | GST_PARAM_CONTROLLABLE));
  g_object_class_install_property(
      object, PROP_FINE,
      g_param_spec_boolean(
          "fine", "Fine mode",
          "Filter on four shifted grids of blocks and take out coarse blotches of "
          "colour: luma 0.1 to 0.4 dB better, chroma 0.7 to 1.1, in about four times "
          "the time",
          FALSE, at_any_time));
  g_object_class_install_property(
      object, PROP_TEMPORAL,
      g_param_spec_boolean(
          "temporal", "Temporal blend",
          "Blend what stands still with the frame before, against flicker; begins anew at a cut, "
          "a seek and new caps",
          FALSE, at_any_time));
  g_object_class_install_property(
      object, PROP_STATS,
      g_param_spec_boxed(
          "stats", "Statistics",
          "Since start: frames denoised, frames skipped because they came too late; "
          "time per frame, copies included, in nanoseconds: last, average, max; gains "
          "of the entries that the last frame took, 0 for none",
          GST_TYPE_STRUCTURE, G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
}
