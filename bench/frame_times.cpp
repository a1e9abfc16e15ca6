// The time of every single frame through one or more builds of the library, in turn:
//   frame_times WIDTHxHEIGHT FRAMES PERIOD_MS LIBRARY...
// A frame starts every PERIOD_MS milliseconds (0: at once). Prints one line per library, the
// milliseconds of its frames. Taking turns in one process, all builds see the same weather.
#include <dlfcn.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/workload.h"

namespace {

double now_ms() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return 1e3 * static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_nsec);
}

void sleep_until(double ms) {
  timespec t;
  t.tv_sec = static_cast<time_t>(ms / 1e3);
  t.tv_nsec = static_cast<long>((ms - 1e3 * static_cast<double>(t.tv_sec)) * 1e6);
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr);
}

struct build {
  decltype(&vorn_ycnr_process) process;
  decltype(&vorn_ycnr_deinit) deinit;
  denoise_handle_t* handle;
  std::vector<double> times;
};

// Never unloaded: the program ends with it.
build open_build(const char* path, int width, int height) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "frame_times: %s\n", dlerror());
    std::exit(2);
  }
  ycnr_init_param size = {width, height};
  const auto init = reinterpret_cast<decltype(&vorn_ycnr_init)>(dlsym(library, "vorn_ycnr_init"));
  int* level = static_cast<int*>(dlsym(library, "nr_log_Level"));
  if (level) *level = 0;
  build made = {reinterpret_cast<decltype(&vorn_ycnr_process)>(dlsym(library, "vorn_ycnr_process")),
                reinterpret_cast<decltype(&vorn_ycnr_deinit)>(dlsym(library, "vorn_ycnr_deinit")),
                init ? init(&size) : nullptr,
                {}};
  if (!made.process || !made.deinit || !made.handle) {
    std::fprintf(stderr, "frame_times: %s cannot be used\n", path);
    std::exit(2);
  }
  if (level) *level = 0;  // init has set it
  return made;
}

}  // namespace

int main(int argc, char** argv) {
  int width = 0, height = 0;
  if (argc < 5 || std::sscanf(argv[1], "%dx%d", &width, &height) != 2) {
    std::fprintf(stderr, "usage: frame_times WIDTHxHEIGHT FRAMES PERIOD_MS LIBRARY...\n");
    return 2;
  }
  const int frames = std::atoi(argv[2]);
  const double period = std::atof(argv[3]);
  std::vector<build> builds;
  for (int i = 4; i < argc; ++i) builds.push_back(open_build(argv[i], width, height));

  const std::vector<uint8_t> original = bench::noisy_frame(width, height);
  std::vector<uint8_t> src = original, dst(original.size());
  _tag_uni_image in = bench::frame_image(src, width, height);
  _tag_uni_image out = bench::frame_image(dst, width, height);
  bench::tuning tuning(bench::algorithms::both);
  constexpr int kWarm = 3;  // first touch of the planes
  double next = now_ms();
  for (int frame = -kWarm; frame < frames; ++frame)
    for (build& each : builds) {
      std::memcpy(src.data(), original.data(), original.size());  // the library writes to it
      if (period > 0) sleep_until(next = next + period > now_ms() ? next + period : now_ms());
      const double start = now_ms();
      if (each.process(each.handle, &in, &out, &tuning.parameters) != 0) return 1;
      if (frame >= 0) each.times.push_back(now_ms() - start);
    }
  for (build& each : builds) {
    for (double ms : each.times) std::printf("%.4f ", ms);
    std::printf("\n");
    each.deinit(each.handle);
  }
  return 0;
}
