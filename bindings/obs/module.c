/*
 * What OBS Studio loads: a filter for sources of video frames (webcams, capture devices, media).
 */
#include <obs-module.h>
#include <stdlib.h>

#include "filter.h"
#include "vorn_tuning.h"
#include "vorn_ycnr_ext.h"

OBS_DECLARE_MODULE()
OBS_MODULE_USE_DEFAULT_LOCALE("obs-vornycnr", "en-US")

#define PROPERTY_STATE "state"
#define STATE_BYTES 2048

static const char* filter_name(void* unused) {
  UNUSED_PARAMETER(unused);
  return obs_module_text("Name");
}

static void* filter_create(obs_data_t* settings, obs_source_t* source) {
  return noise_filter_new(settings, source);
}

static void filter_destroy(void* filter) {
  noise_filter_free(filter);
}

static void filter_update(void* filter, obs_data_t* settings) {
  noise_filter_update(filter, settings);
}

static struct obs_source_frame* filter_video(void* filter, struct obs_source_frame* frame) {
  return noise_filter_run(filter, frame);
}

static void filter_defaults(obs_data_t* settings) {
  obs_data_set_default_bool(settings, SETTING_AUTOMATIC, true);
  obs_data_set_default_double(settings, SETTING_GAIN, VORN_TUNING_DEFAULT_GAIN);
  obs_data_set_default_bool(settings, SETTING_LUMA, true);
  obs_data_set_default_bool(settings, SETTING_CHROMA, true);
  obs_data_set_default_bool(settings, SETTING_FINE, false);
  obs_data_set_default_string(settings, SETTING_TUNING_FILE, "");
}

/* The gain is asked for only where it is used. */
static bool automatic_changed(obs_properties_t* properties, obs_property_t* property,
                              obs_data_t* settings) {
  UNUSED_PARAMETER(property);
  obs_property_set_enabled(obs_properties_get(properties, SETTING_GAIN),
                           !obs_data_get_bool(settings, SETTING_AUTOMATIC));
  return true;
}

static bool show_state(obs_properties_t* properties, obs_property_t* property, void* filter) {
  UNUSED_PARAMETER(property);
  char text[STATE_BYTES];
  noise_filter_state(filter, text, sizeof text);
  obs_property_set_description(obs_properties_get(properties, PROPERTY_STATE), text);
  return true;
}

static void add_switch(obs_properties_t* properties, const char* name, const char* text) {
  obs_properties_add_bool(properties, name, obs_module_text(text));
}

/* filter is NULL when OBS asks for the properties of the kind and not of one filter. */
static obs_properties_t* filter_properties(void* filter) {
  obs_properties_t* properties = obs_properties_create();
  obs_property_t* automatic =
      obs_properties_add_bool(properties, SETTING_AUTOMATIC, obs_module_text("Automatic"));
  obs_property_set_long_description(automatic, obs_module_text("Automatic.Help"));
  obs_property_set_modified_callback(automatic, automatic_changed);
  obs_property_t* gain = obs_properties_add_float_slider(properties, SETTING_GAIN,
                                                         obs_module_text("Gain"), 0.5, 128, 0.5);
  obs_property_set_long_description(gain, obs_module_text("Gain.Help"));
  add_switch(properties, SETTING_LUMA, "Luma");
  add_switch(properties, SETTING_CHROMA, "Chroma");
  add_switch(properties, SETTING_FINE, "Fine");
  obs_property_set_long_description(obs_properties_get(properties, SETTING_FINE),
                                    obs_module_text("Fine.Help"));
  obs_property_t* file =
      obs_properties_add_path(properties, SETTING_TUNING_FILE, obs_module_text("TuningFile"),
                              OBS_PATH_FILE, "JSON (*.json)", NULL);
  obs_property_set_long_description(file, obs_module_text("TuningFile.Help"));
  if (filter) {
    obs_properties_add_text(properties, PROPERTY_STATE, "", OBS_TEXT_INFO);
    obs_properties_add_button2(properties, "refresh", obs_module_text("Refresh"), show_state,
                               filter);
    show_state(properties, NULL, filter);
  }
  return properties;
}

bool obs_module_load(void) {
  /* Faults are told through OBS's log; a property file has the last word. */
  if (!getenv("VORN_PROPERTIES")) vorn_ycnr_set_log_level(1);
  const struct obs_source_info info = {.id = "vornycnr_filter",
                                       .type = OBS_SOURCE_TYPE_FILTER,
                                       .output_flags = OBS_SOURCE_ASYNC_VIDEO,
                                       .get_name = filter_name,
                                       .create = filter_create,
                                       .destroy = filter_destroy,
                                       .update = filter_update,
                                       .get_defaults = filter_defaults,
                                       .get_properties = filter_properties,
                                       .filter_video = filter_video};
  obs_register_source(&info);
  blog(LOG_INFO, "[vornycnr] version " PLUGIN_VERSION ", kernels %s", vorn_ycnr_kernel_form());
  return true;
}

MODULE_EXPORT const char* obs_module_name(void) {
  return obs_module_text("Name");
}

MODULE_EXPORT const char* obs_module_description(void) {
  return "Noise reduction for 8-bit YUV video, luma and chroma";
}
