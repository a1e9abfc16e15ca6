// Debug dumps: raw frames and tuning texts, switched on by properties that are read per frame.
#pragma once

#include "vorn_ycnr.h"

// Writes the luma tuning as "<path>_<timestamp>_ynr2_turning_param.txt" when enable_property has
// the value expected. Returns 0, or non-zero when nothing was written.
VORN_API int DUMP_ynr_config_file(const char* enable_property, const char* expected,
                                  const char* path_property, const char* timestamp,
                                  ycnr_ynr_tuning_param* tuning);

// The same for the chroma tuning: "<path>_<timestamp>_cnr4_turning_param.txt".
VORN_API int DUMP_cnr_config_file(const char* enable_property, const char* expected,
                                  const char* path_property, const char* timestamp,
                                  ycnr_cnr_tuning_param* tuning);

// Writes size bytes from data as "<path><label>_<width>x<height>_<timestamp>.yuv".
VORN_API int DUMP_IMAGE_CONDITION(const char* enable_property, const char* expected,
                                  const char* path_property, const char* label,
                                  const char* timestamp, void* data, int width, int height,
                                  int size);

namespace vorn {

// The properties of a filter's dumps: which switch on those before and after it, and where they go.
struct dump_properties {
  const char *input, *output, *path;
};
constexpr dump_properties kLumaDumps = {"persist.vendor.cam.ynr2.input",
                                        "persist.vendor.cam.ynr2.output",
                                        "persist.vendor.cam.ynr2.save_path"};
constexpr dump_properties kChromaDumps = {"persist.vendor.cam.cnr4.input",
                                          "persist.vendor.cam.cnr4.output",
                                          "persist.vendor.cam.cnr4.save_path"};

// DUMP_IMAGE_CONDITION for a whole 4:2:0 frame that lies without gaps from its first plane on.
void dump_frame(const char* enable_property, const char* path_property, const char* label,
                const char* timestamp, const _tag_uni_image& frame);

// Whether a dump's property switches it on.
bool dumps(const char* enable_property);

}  // namespace vorn
