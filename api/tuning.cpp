#include "api/tuning.h"

#include <algorithm>
#include <iterator>

#include "base/dump.h"
#include "base/log.h"

int get_param_gain_info(denoise_handle_t* handle, Denoise_Parameters_t* params) {
  char timestamp[256] = {};
  getTimestamp_NR(timestamp, sizeof timestamp);
  const ycnr_ynr_tuning_param& luma = *params->ynr;
  const ycnr_cnr_tuning_param& chroma = *params->cnr;
  DUMP_ynr_config_file(vorn::kLumaDumps.input, "yes", vorn::kLumaDumps.path, timestamp,
                       params->ynr);
  const int result = DUMP_cnr_config_file(vorn::kChromaDumps.input, "yes", vorn::kChromaDumps.path,
                                          timestamp, params->cnr);

  _tag_ynr_param_output& ynr = handle->ynr_param;
  std::copy(std::begin(luma.pIntensity), std::end(luma.pIntensity), ynr.pIntensity);
  std::copy(std::begin(luma.pRadius), std::end(luma.pRadius), ynr.pRadius);
  ynr.layer = luma.layer;
  ynr.param0 = luma.param0;
  ynr.param1 = luma.param1;
  ynr.param2 = luma.param2;

  _tag_cnr_param_output& cnr = handle->cnr_param;
  cnr.range_factor = chroma.range_factor;
  cnr.smooth_radius = chroma.smooth_radius;
  cnr.saturation = chroma.saturation;
  cnr.scale = chroma.scale;
  cnr.step = static_cast<int>(static_cast<unsigned>(chroma.step) * 2u);  // wraps when it is huge
  cnr.color_edge_u = chroma.color_edge_u;
  cnr.color_edge_v = chroma.color_edge_v;
  cnr.param0 = chroma.param0;
  cnr.param1 = chroma.param1;
  cnr.param2 = chroma.param2;
  return result;
}
