// Steadies a denoised stream of frames: vorn_temporal.h in the tool's terms.
#pragma once

#include <memory>
#include <new>

#include "tools/error.h"
#include "tools/picture/frame.h"
#include "tools/tuning/tuning_set.h"
#include "vorn_temporal.h"

namespace vorn::tool {

class temporal_blend {
 public:
  // Blends f, the next frame of the stream as t has denoised it, with the result of the call
  // before. The first frame, and one of another size, stay as they are.
  void run(frame& f, const tuning& t) {
    if (!stream_) stream_.reset(vorn_tuning_temporal_new());
    const int32_t stride = f.padded_width;
    const vorn_ycnr_planes planes = {
        VORN_LAYOUT_NV12, f.width, f.height, {f.luma(), f.chroma(), nullptr}, {stride, stride, 0}};
    const int32_t code = stream_ ? vorn_tuning_temporal_run(stream_.get(), &planes, &t.luma)
                                 : int32_t{VORN_TUNING_MEMORY};
    if (code == VORN_TUNING_MEMORY) throw std::bad_alloc();
    if (code < 0) throw error("--temporal", vorn_tuning_result_text(code));
  }

 private:
  struct freeing {
    void operator()(vorn_temporal* stream) const { vorn_tuning_temporal_free(stream); }
  };
  std::unique_ptr<vorn_temporal, freeing> stream_;
};

}  // namespace vorn::tool
