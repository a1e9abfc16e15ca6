// Frames for a given time over changing tunings on a few handles; memory, threads and descriptors
// must stand still. soak [--seconds N] [--width W] [--height H]; exit code 0 when they did.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "vorn_ycnr.h"

namespace {

using namespace vorn_test;

struct resources {
  long resident_kib;
  int threads;
  int descriptors;
};

resources now() {
  long pages = 0, resident = 0;
  if (FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(file);
  }
  return {resident * (sysconf(_SC_PAGESIZE) / 1024), count_entries("/proc/self/task"),
          open_descriptors()};
}

void change(tuning* with, unsigned step) {
  with->ynr.enable = step % 5 != 4;
  with->cnr.enable = step % 7 != 6;
  with->ynr.layer = 2 + static_cast<int>(step % 4);
  for (unsigned level = 0; level < 5; ++level) {
    with->ynr.pIntensity[level] = static_cast<int>((step * 13 + level * 29) % 120);
    with->ynr.pRadius[level] = 3 + 2 * static_cast<int>((step / 3 + level) % 3);
  }
  with->ynr.param0 = 32 + static_cast<int>(step % 64);
  with->cnr.range_factor = 1 + static_cast<int>(step % 60);
  with->cnr.smooth_radius = 2 + static_cast<int>(step % 18);
  with->cnr.step = 1 + static_cast<int>(step % 3);
  with->cnr.scale = static_cast<int>(step % 3);
  with->cnr.saturation = static_cast<int>(step % 9) - 4;
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 60;
  int width = 640, height = 480;
  for (int i = 1; i + 1 < argc; i += 2) {
    const int value = std::atoi(argv[i + 1]);
    if (!std::strcmp(argv[i], "--seconds")) seconds = value;
    if (!std::strcmp(argv[i], "--width")) width = value;
    if (!std::strcmp(argv[i], "--height")) height = value;
  }
  quiet_log silence;
  denoiser steady(width, height);
  frame src(width, height), dst(width, height);
  src.draw(1);
  const std::vector<uint8_t> input = src.bytes();

  constexpr unsigned kWarmUp = 30;
  resources before = {}, after = {};
  long peak = 0;
  unsigned frames = 0, failed = 0;
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  while (frames <= kWarmUp || elapsed() < seconds) {
    tuning with;
    change(&with, frames);
    std::memcpy(src.image.plane[0], input.data(), input.size());
    failed += steady.run(src, dst, with) != 0;
    if (frames % 16 == 15) {  // a stream that starts and stops beside it
      const int w = 2 * (8 + static_cast<int>(frames) % 100),
                h = 2 * (8 + static_cast<int>(frames) % 77);
      denoiser brief(w, h);
      frame s(w, h), d(w, h);
      s.draw(frames);
      tuning usual;
      usual.ynr.layer = 2;
      failed += brief.run(s, d, usual) != 0;
    }
    ++frames;
    after = now();
    if (frames == kWarmUp) {
      before = after;
      before.threads = running_threads();
    }
    if (after.resident_kib > peak) peak = after.resident_kib;
  }
  after.threads = threads_reaching(before.threads);
  std::printf(
      "%u frames of %dx%d in %.1f s, %u failed; resident %ld -> %ld KiB (peak %ld), "
      "threads %d -> %d, descriptors %d -> %d\n",
      frames, width, height, elapsed(), failed, before.resident_kib, after.resident_kib, peak,
      before.threads, after.threads, before.descriptors, after.descriptors);
  // The allocator's own reuse moves the resident size a little; a leak moves it without end.
  const bool steady_memory = peak <= before.resident_kib + 8 * 1024;
  return failed == 0 && steady_memory && before.threads == after.threads &&
                 before.descriptors == after.descriptors
             ? 0
             : 1;
}
