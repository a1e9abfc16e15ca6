// Leaves the dumps of a few frames in a directory, as a device's debug switches do, for a replay on
// another machine (scripts/check-replay). Uses the public calls alone.
//
//   dump_frames DIRECTORY     an existing one, its name at most 80 characters
//
// Writes four frames, six dumped stages: both algorithms, luma alone, chroma alone, and both on an
// odd height. Exit code 0 only when every frame was processed and changed.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/frames.h"

namespace {

using namespace vorn_test;

bool switch_dumps_on(const std::string& directory) {
  const std::string file = directory + "/properties";
  std::FILE* out = std::fopen(file.c_str(), "w");
  if (!out) return false;
  std::fputs("persist.vendor.cam.nr_api.log=1\n", out);
  for (const char* algorithm : {"ynr2", "cnr4"}) {
    for (const char* side : {"input", "output"})
      std::fprintf(out, "persist.vendor.cam.%s.%s=yes\n", algorithm, side);
    std::fprintf(out, "persist.vendor.cam.%s.save_path=%s/\n", algorithm, directory.c_str());
  }
  return std::fclose(out) == 0 && setenv("VORN_PROPERTIES", file.c_str(), 1) == 0;
}

// The names of the dumps hold seconds: without a pause a frame would replace the tuning texts of
// the one before it.
void wait_for_next_second() {
  const timespec pause = {0, 20 * 1000 * 1000};
  for (const time_t now = time(nullptr); time(nullptr) == now;) nanosleep(&pause, nullptr);
}

bool dump(int width, int height, uint32_t seed, tuning with) {
  denoiser one(width, height);
  frame src(width, height), dst(width, height);
  src.draw(seed);
  const std::vector<uint8_t> input = src.bytes();
  if (!one.get() || one.run(src, dst, with) != 0) return false;
  const size_t luma = src.luma_bytes();
  const std::vector<uint8_t> output = dst.bytes();
  const bool luma_changed = std::memcmp(&output[0], &input[0], luma) != 0;
  const bool chroma_changed = std::memcmp(&output[luma], &input[luma], output.size() - luma) != 0;
  wait_for_next_second();
  return luma_changed == (with.ynr.enable == 1) && chroma_changed == (with.cnr.enable == 1);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2 || std::strlen(arguments[1]) > 80 || !switch_dumps_on(arguments[1])) {
    std::fprintf(stderr, "usage: dump_frames DIRECTORY\n");
    return 2;
  }
  tuning strong;
  strong.ynr.layer = 5;
  strong.ynr.param0 = 80;  // stronger towards the corners
  strong.cnr.step = 2;
  strong.cnr.saturation = 3;
  bool good = dump(322, 242, 1, strong);
  good &= dump(200, 120, 2, tuning(1, 0));
  good &= dump(132, 98, 3, tuning(0, 1));
  good &= dump(190, 143, 4, tuning(1, 1));
  return good ? 0 : 1;
}
