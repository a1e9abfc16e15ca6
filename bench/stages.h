// The stages of a frame, each by itself on the buffers of a real handle.
#pragma once

#include <functional>
#include <vector>

#include "bench/workload.h"

namespace bench {

// One handle with its frame, mask and chroma tuning. Its planes hold what the stages before the one
// measured would leave there.
struct scene {
  const int width, height;
  denoiser d;

 private:
  std::vector<uint8_t> bytes_, result_, details_;

 public:
  _tag_uni_image frame, dst, detail;
  _tag_uni_image mask{};
  _tag_cnr_param chroma{};

  scene(int width, int height, int workers);
  ~scene();

  _tag_uni_image* plane(int i) { return d.chroma()->images + i; }
};

struct stage {
  const char* name;
  bool pooled;  // runs on the workers; the others on the caller's thread
  std::function<void(scene&)> run;
  bool by_blocks = false;  // of exported members, which have a scalar and a NEON form alone
};

const std::vector<stage>& stages();

}  // namespace bench
