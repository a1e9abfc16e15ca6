// The HTML report: one file that needs no network and nothing beside it. The page itself is
// report_page.html; this unit fills in its data.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/denoiser.h"
#include "tools/lab/figures.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_meter.h"
#include "tools/picture/frame.h"
#include "tools/tuning/tuner.h"
#include "tools/tuning/tuning_set.h"

namespace vorn::tool {

// A picture as the page has it: figures of all of it, samples of a part.
struct report_picture {
  std::string name;
  int width = 0, height = 0;   // of the whole picture
  int x = 0, y = 0;            // where the part lies in it
  frame before, after, clean;  // the part; clean is empty when there is none
  quality quality_before = {}, quality_after = {};
  noise_curve noise_before, noise_after;
  std::vector<stage_time> stages;
  // Parts that were measured, in pixels of the whole picture, each as area_json has it: an object
  // with "name" and "before", "after", "clean". A JSON list.
  std::string areas = "[]";
};

// Measures a picture and the patches in it, and keeps at most most_pixels of it: all, or its
// middle. clean may be empty.
report_picture make_report_picture(const std::string& name, const frame& before, const frame& after,
                                   const frame& clean, int64_t most_pixels,
                                   const std::vector<rectangle>& patches = {});

// Pixels that each of so many pictures may have, so that the page stays below 12 MB.
int64_t report_pixels(size_t pictures);

// One gain with its tuning. A report of `tune` has several.
struct report_entry {
  double gain = 0;
  std::string label;
  tuning values = {};
  // Of an entry that sets two tunings side by side: `before` is the other one's result.
  std::optional<tuning> against;
  std::string before_name, after_name;  // empty: before and after
  std::vector<report_picture> pictures;
  size_t pictures_left_out = 0;  // that were used as well
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
