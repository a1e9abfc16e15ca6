// Denoises a number of frames and nothing else, for programs that count instructions:
// count_frames FORM WIDTH HEIGHT FRAMES [both|luma|chroma]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/workload.h"
#include "runtime/kernels.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: count_frames FORM WIDTH HEIGHT FRAMES [both|luma|chroma]\n");
    return 2;
  }
  bool known = false;
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    if (std::strcmp(argv[1], vorn::kernel_form_name(form)) == 0)
      known = vorn::use_kernel_form(form);
  }
  const int width = std::atoi(argv[2]), height = std::atoi(argv[3]), frames = std::atoi(argv[4]);
  const char* what = argc > 5 ? argv[5] : "both";
  if (!known || width < 64 || height < 64) {
    std::fprintf(stderr, "count_frames: form not available, or frame below 64x64\n");
    return 2;
  }
  bench::tuning tuning(std::strcmp(what, "luma") == 0     ? bench::algorithms::luma
                       : std::strcmp(what, "chroma") == 0 ? bench::algorithms::chroma
                                                          : bench::algorithms::both);
  bench::denoiser denoiser(width, height, 1);
  auto src = bench::noisy_frame(width, height), dst = src;
  _tag_uni_image in = bench::frame_image(src, width, height);
  _tag_uni_image out = bench::frame_image(dst, width, height);
  for (int i = 0; i < frames; ++i)
    if (vorn_ycnr_process(denoiser.handle(), &in, &out, &tuning.parameters) != 0) return 1;
  std::printf("%d pixels per call\n", width * height);
  return 0;
}
