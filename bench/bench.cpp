// vorn-bench: every kernel in every form, every stage, whole frames; see README.md.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "bench/measure.h"
#include "bench/stages.h"
#include "bench/workload.h"
#include "tests/kernels/kernel_check.h"

namespace bench {

using vorn::kernel_form;

namespace {

std::vector<kernel_form>& forms() {
  static std::vector<kernel_form> all;
  return all;
}

bool has_exported(kernel_form form) {
  return form == kernel_form::scalar || form == kernel_form::neon;
}

double wall() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpu() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

const std::vector<kernel_form>& chosen_forms() {
  return forms();
}

kernel_form best_form() {
  kernel_form best = forms().front();
  for (kernel_form form : forms())  // in rising order of speed, but for NEON emulated on x86-64
    best = form;
  return best;
}

double copy_seconds(size_t bytes) {
  static std::vector<char> from, to;
  if (from.size() < bytes) {
    from.assign(bytes, 1);
    to.assign(bytes, 2);
  }
  std::vector<double> times;
  for (int i = 0; i < 7; ++i) {
    const int rounds = static_cast<int>(1 + 2000000 / (bytes + 1));
    const double start = cpu();
    for (int r = 0; r < rounds; ++r) {
      std::memcpy(to.data(), from.data(), bytes);
      benchmark::ClobberMemory();
    }
    times.push_back((cpu() - start) / rounds);
  }
  return median(times);
}

void measure(benchmark::State& state, double pixels, size_t bytes,
             const std::function<void()>& body, const std::function<void()>& prepare) {
  // Once for nothing: the first touch of fresh memory costs more than a frame.
  if (prepare) prepare();
  body();
  double copy = copy_seconds(bytes);
  std::vector<double> elapsed, busy;
  for (auto _ : state) {
    if (prepare) prepare();
    const double cpu_start = cpu(), start = wall();
    body();
    elapsed.push_back(wall() - start);
    busy.push_back(cpu() - cpu_start);
    state.SetIterationTime(elapsed.back());
  }
  copy = (copy + copy_seconds(bytes)) / 2;
  // Medians: a mean has the disturbances of a shared machine in it.
  const double seconds = median(elapsed);
  state.counters["ns/px"] = seconds * 1e9 / pixels;
  state.counters["MP/s"] = pixels / seconds / 1e6;
  state.counters["cpu_ms/MP"] = median(busy) * 1e3 / (pixels / 1e6);
  state.counters["copies"] = median(busy) / copy;
}

void for_each_form(const std::string& name, double seconds,
                   const std::function<void(benchmark::State&, kernel_form)>& run, bool exported) {
  for (kernel_form form : chosen_forms()) {
    if (exported && !has_exported(form)) continue;
    benchmark::RegisterBenchmark((name + "/" + vorn::kernel_form_name(form)).c_str(),
                                 [run, form](benchmark::State& state) {
                                   vorn::use_kernel_form(form);
                                   run(state, form);
                                 })
        ->UseManualTime()
        ->MinTime(seconds);
  }
}

void register_kernels() {
  kernel_check::add_all_rows();
  for (const kernel_check::row& r : kernel_check::rows()) {
    for (kernel_form form : chosen_forms()) {
      if (r.exported && !has_exported(form)) continue;
      const std::string name = "kernel/" + r.name + "/" + vorn::kernel_form_name(form);
      benchmark::RegisterBenchmark(
          name.c_str(),
          [&r, form](benchmark::State& state) {
            const kernel_check::geometry g = kernel_check::speed_geometry(r);
            const double pixels = static_cast<double>(g.width) * g.height;
            vorn::use_kernel_form(form);
            kernel_check::trial trial(g, form, r.tolerance, [&](const auto& call) {
              // Calls of microseconds: many per reading of the clock.
              constexpr int kCalls = 16;
              measure(state, kCalls * pixels, static_cast<size_t>(kCalls * pixels), [&] {
                for (int i = 0; i < kCalls; ++i) call(form);
              });
            });
            r.body(trial);
          })
          ->UseManualTime()
          ->MinTime(0.05);
    }
  }
}

void register_stages() {
  static constexpr int kWidth = 4000, kHeight = 3000;
  for (int workers : {1, 4})
    for (const stage& s : stages()) {
      if (!s.pooled && workers > 1) continue;
      const std::string name =
          std::string("stage/") + s.name + (s.pooled ? "/" + std::to_string(workers) : "");
      const auto run = [&s, workers](benchmark::State& state, kernel_form) {
        // Kept from one benchmark to the next: drawing the frame takes longer than most stages.
        static std::unique_ptr<scene> at;
        static int at_workers = 0;
        if (at_workers != workers) {
          at.reset();
          at = std::make_unique<scene>(kWidth, kHeight, workers);
          at_workers = workers;
        }
        measure(state, 1.0 * kWidth * kHeight, static_cast<size_t>(kWidth) * kHeight,
                [&] { s.run(*at); });
      };
      for_each_form(name, 0.1, run, s.by_blocks);
    }
}

void register_frames() {
  struct size {
    const char* name;
    int width, height;
  };
  static constexpr size kSizes[] = {{"640x480", 640, 480},
                                    {"1280x720", 1280, 720},
                                    {"1920x1080", 1920, 1080},
                                    {"3840x2160", 3840, 2160},
                                    {"4000x3000", 4000, 3000}};
  for (const size& s : kSizes)
    for (const named_algorithms& c : kAlgorithms)
      for (int workers : {1, 4})
        for_each_form(std::string("frame/") + c.name + "/" + s.name + "/" + std::to_string(workers),
                      0.3, [s, c, workers](benchmark::State& state, kernel_form) {
                        denoiser d(s.width, s.height, workers);
                        const std::vector<uint8_t> original = noisy_frame(s.width, s.height);
                        std::vector<uint8_t> src = original, dst(original.size());
                        _tag_uni_image in = frame_image(src, s.width, s.height);
                        _tag_uni_image out = frame_image(dst, s.width, s.height);
                        tuning t(c.which);
                        measure(
                            state, static_cast<double>(s.width) * s.height, original.size(),
                            [&] {
                              if (vorn_ycnr_process(d.handle(), &in, &out, &t.parameters) != 0)
                                state.SkipWithError("the frame was refused");
                            },
                            [&] { std::memcpy(src.data(), original.data(), original.size()); });
                      });
}

}  // namespace bench

int main(int argc, char** argv) {
  nr_log_Level = 0;
  std::string wanted;
  if (const char* forced = std::getenv("VORN_KERNELS")) wanted = forced;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--form=", 7) == 0)
      wanted = argv[i] + 7;
    else
      argv[kept++] = argv[i];
  }
  argc = kept;
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    if (vorn::kernel_form_available(form) &&
        (wanted.empty() || wanted == vorn::kernel_form_name(form)))
      bench::forms().push_back(form);
  }
  if (bench::forms().empty()) {
    std::fprintf(stderr, "vorn-bench: no kernel form %s on this machine\n", wanted.c_str());
    return 2;
  }
  bench::register_kernels();
  bench::register_stages();
  bench::register_frames();
  bench::register_many();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
