// Runs a stage or whole frames a number of times and nothing else, for programs that count
// instructions: count_work FORM WIDTH HEIGHT TIMES both|luma|chroma|gain-1|gain-8|gain-64|STAGE
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/stages.h"
#include "runtime/kernel_form.h"

namespace {

int denoise(int width, int height, int times, bench::algorithms which) {
  const bench::tuning tuning(which);
  bench::denoiser denoiser(width, height, 1);
  auto src = bench::noisy_frame(width, height), dst = src;
  _tag_uni_image in = bench::frame_image(src, width, height);
  _tag_uni_image out = bench::frame_image(dst, width, height);
  Denoise_Parameters_t parameters = tuning.parameters;
  for (int i = 0; i < times; ++i)
    if (vorn_ycnr_process(denoiser.handle(), &in, &out, &parameters) != 0) return 1;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: count_work FORM WIDTH HEIGHT TIMES both|luma|chroma|STAGE\n");
    return 2;
  }
  bool known = false;
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    if (std::strcmp(argv[1], vorn::kernel_form_name(form)) == 0)
      known = vorn::use_kernel_form(form);
  }
  const int width = std::atoi(argv[2]), height = std::atoi(argv[3]), times = std::atoi(argv[4]);
  const std::string what = argv[5];
  if (!known || width < 64 || height < 64) {
    std::fprintf(stderr, "count_work: form not available, or frame below 64x64\n");
    return 2;
  }
  int result = 2;
  for (const bench::named_algorithms& a : bench::kAlgorithms)
    if (what == a.name) result = denoise(width, height, times, a.which);
  for (const bench::stage& s : bench::stages()) {
    if (what != s.name) continue;
    bench::scene at(width, height, 1);
    for (int i = 0; i < times; ++i) s.run(at);
    result = 0;
  }
  std::printf("%d pixels per call\n", width * height);
  return result;
}
