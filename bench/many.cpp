// Throughput with several frames under way: a handle for each processor with one worker each,
// against one handle with four workers.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/platform.h"
#include "bench/measure.h"
#include "bench/workload.h"

namespace bench {

namespace {

struct stream {
  denoiser filter;
  std::vector<uint8_t> src, dst;
  tuning with{algorithms::both};

  stream(int width, int height, int workers)
      : filter(width, height, workers), src(noisy_frame(width, height)), dst(src.size()) {}

  // The frames after the first are its result: the filters' time does not depend on the samples.
  char run(int width, int height, int frames) {
    _tag_uni_image in = frame_image(src, width, height), out = frame_image(dst, width, height);
    while (frames-- > 0)
      if (vorn_ycnr_process(filter.handle(), &in, &out, &with.parameters) != 0) return 0;
    return 1;
  }
};

void run_streams(benchmark::State& state, int width, int height, int handles, int workers) {
  std::vector<std::unique_ptr<stream>> streams;
  for (int i = 0; i < handles; ++i)
    streams.push_back(std::make_unique<stream>(width, height, workers));
  // Long enough for the threads' start not to count.
  const int frames = std::max(2, 8000000 / (width * height));
  const double pixels = 1.0 * width * height * frames * handles;
  measure(state, pixels, streams[0]->src.size(), [&] {
    std::vector<std::thread> threads;
    std::vector<char> done(streams.size());
    for (size_t i = 0; i < streams.size(); ++i)
      threads.emplace_back([&, i] { done[i] = streams[i]->run(width, height, frames); });
    for (std::thread& each : threads) each.join();
    if (std::count(done.begin(), done.end(), 0)) state.SkipWithError("a frame was refused");
  });
  state.counters.erase("copies");  // of many frames, they would say nothing
  state.counters["frames/s"] = state.counters["MP/s"] * 1e6 / (1.0 * width * height);
}

}  // namespace

void register_many() {
  constexpr int kSizes[][2] = {{640, 480}, {1920, 1080}, {4000, 3000}};
  const int processors = vorn::platform_usable_processors();
  struct way {
    int handles, workers;
  };
  for (const auto& [width, height] : kSizes)
    for (const way& w : {way{1, 4}, way{processors, 1}, way{processors, 4}})
      benchmark::RegisterBenchmark(
          ("many/" + std::to_string(width) + "x" + std::to_string(height) + "/" +
           std::to_string(w.handles) + "x" + std::to_string(w.workers))
              .c_str(),
          [width = width, height = height, w](benchmark::State& state) {
            vorn::use_kernel_form(best_form());
            run_streams(state, width, height, w.handles, w.workers);
          })
          ->UseManualTime()
          ->MinTime(0.3);
}

}  // namespace bench
