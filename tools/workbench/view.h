// What the page shows of a picture: the visible part of one version of it, as pixels.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/denoiser.h"
#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"
#include "tools/workbench/project.h"

namespace vorn::tool {

// The versions of a picture. Pyramid levels above 0 show luma alone.
enum class version {
  before,     // as it came in
  after,      // denoised
  clean,      // the clean version
  change,     // after - before, amplified around 128
  left_over,  // after - clean, amplified around 128
  detail,     // what a level's filter changes in luma, amplified around 128
  mask,       // the strength factor of every 4x4 block: white is 4, black 1
};
version version_of(const std::string& name);  // an `error` for other names

enum class channel { rgb, y, u, v };
channel channel_of(const std::string& name);

struct view_request {
  size_t picture = 0;
  tuning values = {};
  version shown = version::after;
  channel plane = channel::rgb;
  int level = 0;    // pyramid level, 0..4
  int amplify = 8;  // of the differences
  // The part that is visible, in pixels of the level: from x, y on, width * height of them, each
  // 1/reduce of the screen's. reduce is 1 for views at 1:1 and closer.
  int x = 0, y = 0, width = 0, height = 0;
  int reduce = 1;
};

// 8-bit RGBA rows without padding.
struct pixels {
  int x = 0, y = 0;  // of the level's pixel in the corner: requests are moved to even places
  int width = 0, height = 0;
  std::vector<uint8_t> rgba;
};

// How the filter weighs one block's neighbours.
struct block_weights {
  int x = 0, y = 0;                   // of the block, in pixels of the level
  int window = 0;                     // 3, 5 or 7; 0 where the level is only copied
  int mask = 64;                      // 64 is neutral, larger values weaken distances
  std::vector<int> distance, weight;  // window * window, row by row; the centre weighs 256
};

// Denoises whole frames and cuts views out of them. Results are kept, so that panning and looking
// at another plane costs no frame. Any thread; one frame at a time.
class viewer {
 public:
  explicit viewer(project& pictures) : project_(pictures) {}

  // Bytes of a view are those of the whole frame: at level 0 the very pixels that `denoise` writes.
  pixels render(const view_request& request);

  // One picture denoised. level above 0: its pyramid level as the filter works on it, luma alone.
  std::shared_ptr<const frame> denoised(size_t picture, const tuning& values, int level = 0);
  // A picture's luma reduced `level` times by the filter's own 2:1 steps, chroma neutral.
  std::shared_ptr<const frame> reduced(size_t picture, int level);

  block_weights weights(size_t picture, const tuning& values, int level, int x, int y);

  // Milliseconds that the last frame took in the filter.
  double last_ms() const { return last_ms_; }

 private:
  struct result {
    std::string key;
    std::shared_ptr<frame> picture;
  };
  template <typename Make>
  std::shared_ptr<const frame> kept(const std::string& key, const Make& make);
  const frame& source(const bench_picture& p, const view_request& r,
                      std::shared_ptr<const frame>* hold, const frame** reference);

  project& project_;
  std::recursive_mutex mutex_;
  std::vector<result> results_;  // the one used last is at the end
  std::vector<std::unique_ptr<denoiser>> filters_;
  double last_ms_ = 0;
};

}  // namespace vorn::tool
