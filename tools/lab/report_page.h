// The HTML report: one file that needs no network and nothing beside it. The page itself is
// report_page.html; this unit fills in its data.
#pragma once

#include <string>
#include <vector>

#include "tools/denoiser.h"
#include "tools/picture/frame.h"
#include "tools/lab/noise_meter.h"
#include "tools/tuning/tuner.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

struct report_picture {
  std::string name;
  frame before, after;
  frame clean;  // empty when there is none: no quality figures then
  std::vector<stage_time> stages;
};

// One gain with its tuning. A report of `tune` has several.
struct report_entry {
  double gain = 0;
  std::string label;
  tuning values = {};
  std::vector<report_picture> pictures;
  std::vector<parameter_sweep> sweeps;
  objective goal = objective::psnr;  // of the sweeps
  bool scored = false;               // the four scores are filled in
  tuning_score luma_before, luma_after, chroma_before, chroma_after;
  bool from_model = false;  // noise came from the model below
  noise_model model;
};

// Pictures are compared sample by sample in the page, so they are embedded without loss.
std::string render_report(const std::string& title, const std::string& subtitle,
                          const std::vector<report_entry>& entries);

}  // namespace vorn::tool
