// Checks whole frames against checksums that are kept in the repository, in every form of the
// kernels, with four workers and with one. The same file holds on every machine.
//
//   corpus [--form NAME] FILE   check; without --form every form that this machine can run
//   corpus --model FILE         check the file itself against the slow model
//   corpus --update FILE        compute the checksums of the cases anew, with the model
//   corpus --make N FILE        draw N new cases, then as --update
//
// A line of the file is a case: width, height, content, seed, the fifteen luma and the eleven
// chroma tuning values in their order, and the checksum of the result, dst and src. A line that
// begins with the word fine is a case of vorn_ycnr_process_fine. Exit code 0:
// all agree; 1: some do not; 2: the file or the options are wrong; 77: the form is not available
// here.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/handle.h"
#include "cnr/cnr_handle.h"
#include "runtime/exported/pool.h"
#include "runtime/kernel_form.h"
#include "runtime/pool.h"
#include "tests/model/model.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"
#include "ynr/ynr_handle.h"

namespace {

using namespace vorn_test;

struct corpus_case {
  int width, height, content;
  uint64_t seed;
  vorn_test::tuning tuning;
  uint64_t checksum;
  bool fine;
};

// The twenty-six tuning values in file order.
std::vector<int32_t*> fields(tuning& t) {
  auto& y = t.ynr;
  auto& c = t.cnr;
  std::vector<int32_t*> list = {&y.enable, &y.layer};
  for (int32_t& v : y.pIntensity) list.push_back(&v);
  for (int32_t& v : y.pRadius) list.push_back(&v);
  for (int32_t* v :
       {&y.param0, &y.param1, &y.param2, &c.enable, &c.range_factor, &c.smooth_radius, &c.scale,
        &c.step, &c.color_edge_u, &c.color_edge_v, &c.saturation, &c.param0, &c.param1, &c.param2})
    list.push_back(v);
  return list;
}

constexpr char kFineWord[] = "fine ";

bool read(const char* path, std::vector<corpus_case>& cases) {
  std::FILE* file = std::fopen(path, "r");
  if (!file) return false;
  char line[1024];
  bool good = true;
  while (good && std::fgets(line, sizeof line, file)) {
    if (line[0] == '#') continue;
    corpus_case c = {};
    c.fine = std::strncmp(line, kFineWord, std::strlen(kFineWord)) == 0;
    int used = c.fine ? static_cast<int>(std::strlen(kFineWord)) : 0, more = 0;
    good = std::sscanf(line + used, "%d %d %d %" SCNu64 "%n", &c.width, &c.height, &c.content,
                       &c.seed, &more) == 4 &&
           c.content >= 0 && c.content < kContents;
    used += more;
    for (int32_t* field : fields(c.tuning)) {
      good = good && std::sscanf(line + used, "%" SCNd32 "%n", field, &more) == 1;
      used += more;
    }
    good = good && std::sscanf(line + used, "%" SCNx64, &c.checksum) == 1;
    if (good) cases.push_back(c);
  }
  std::fclose(file);
  return good && !cases.empty();
}

bool write(const char* path, std::vector<corpus_case>& cases) {
  std::FILE* file = std::fopen(path, "w");
  if (!file) return false;
  std::fprintf(file,
               "# width height content seed, 15 luma values, 11 chroma values, checksum\n"
               "# made by: corpus --make %zu FILE\n",
               static_cast<size_t>(std::count_if(cases.begin(), cases.end(),
                                                 [](const corpus_case& c) { return !c.fine; })));
  for (corpus_case& c : cases) {
    std::fprintf(file, "%s%d %d %d %" PRIu64, c.fine ? kFineWord : "", c.width, c.height, c.content,
                 c.seed);
    for (const int32_t* field : fields(c.tuning)) std::fprintf(file, " %" PRId32, *field);
    std::fprintf(file, " %016" PRIx64 "\n", c.checksum);
  }
  return std::fclose(file) == 0;
}

uint64_t result_checksum(int result, const frame& dst, const frame& src) {
  const auto code = static_cast<uint8_t>(result);
  uint64_t hash = checksum(&code, 1);
  hash = checksum(dst.data(), dst.size(), hash);
  return checksum(src.data(), src.size(), hash);
}

frame painted(const corpus_case& c) {
  frame f(c.width, c.height);
  random_source random(c.seed);
  f.paint(static_cast<content>(c.content), random);
  return f;
}

bool refused(const corpus_case& c) {
  frame src = painted(c), dst(c.width, c.height);
  return model::process(c.width, c.height, src.data(), dst.data(), c.tuning.ynr, c.tuning.cnr) != 0;
}

uint64_t by_model(const corpus_case& c) {
  frame src = painted(c), dst(c.width, c.height);
  const int result =
      model::process(c.width, c.height, src.data(), dst.data(), c.tuning.ynr, c.tuning.cnr, c.fine);
  return result_checksum(result, dst, src);
}

// Gives a handle a pool of one worker in place of its four.
bool use_one_worker(denoise_handle_t* handle) {
  if (vorn_threadpool_destroy(handle->pool) != 0) return false;
  if (vorn_threadpool_init(&handle->pool, 1) != 0) return false;
  handle->ynr->pool = handle->cnr->pool = handle->pool;
  return true;
}

uint64_t by_library(corpus_case& c, int workers) {
  const denoiser d(c.width, c.height);
  if (!d.get() || (workers == 1 && !use_one_worker(d.get()))) return 0;
  frame src = painted(c), dst(c.width, c.height);
  const int result = d.run(src, dst, c.tuning, c.fine);
  return src.guards_intact() && dst.guards_intact() ? result_checksum(result, dst, src) : 0;
}

int check(std::vector<corpus_case>& cases, const char* what, int workers) {
  int wrong = 0;
  for (corpus_case& c : cases) {
    const uint64_t got = workers == 0 ? by_model(c) : by_library(c, workers);
    if (got == c.checksum) continue;
    if (++wrong <= 10)
      std::printf("%s: %scase %zu, %dx%d %s: %016" PRIx64 ", not %016" PRIx64 "; %s\n", what,
                  c.fine ? kFineWord : "", static_cast<size_t>(&c - cases.data()), c.width,
                  c.height, content_name(static_cast<content>(c.content)), got, c.checksum,
                  text(c.tuning).c_str());
  }
  std::printf("%s: %zu of %zu cases agree\n", what, cases.size() - wrong, cases.size());
  return wrong;
}

// Everyday tunings at the sizes that matter first, then everything at random.
std::vector<corpus_case> draw(int count) {
  static const int everyday_sizes[][2] = {{640, 480}, {322, 242}, {480, 270}, {102, 78},
                                          {130, 98},  {64, 48},   {34, 130},  {16, 16}};
  std::vector<corpus_case> cases;
  for (int i = 0, draws = 0; i < count; ++draws) {
    random_source random(0x5eed0000u + draws);
    corpus_case c = {};
    c.seed = random.next();
    if (i < 24) {
      c.width = everyday_sizes[i % 8][0];
      c.height = everyday_sizes[i % 8][1];
      c.content = static_cast<int>(i < 8    ? content::texture
                                   : i < 16 ? content::noise
                                            : content::saturated);
      c.tuning = everyday();
      c.tuning.cnr.scale = i < 8 ? 2 : i < 16 ? 1 : 0;
      c.tuning.ynr.layer = std::max(2, (c.width < 100 ? 3 : 4) + i / 8 - 1);
      c.tuning.ynr.pRadius[0] = 3 + 2 * (i / 8);
    } else {
      const bool large = i % 8 == 0;
      c.width = random.between(large ? 100 : 4, large ? 300 : 90);
      c.height = random.between(large ? 100 : 4, large ? 240 : 90);
      c.content = random.between(0, kContents - 1);
      c.tuning = random_tuning(random);
      if (i % 5 != 0) c.width &= ~1;
    }
    // One refused frame in sixteen is enough.
    if (i % 16 != 0 && refused(c)) continue;
    cases.push_back(c);
    ++i;
  }
  // Every fourth in fine mode as well.
  for (int i = 0; i < count; i += i < 24 ? 1 : 4) {
    cases.push_back(cases[static_cast<size_t>(i)]);
    cases.back().fine = true;
  }
  return cases;
}

int usage() {
  std::fprintf(stderr, "usage: corpus [--form NAME | --model | --update | --make N] FILE\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  vorn_ycnr_set_log_level(0);
  std::string mode = argc > 2 ? argv[1] : "";
  const bool valued = mode == "--form" || mode == "--make";
  if (argc != (mode.empty() ? 2 : valued ? 4 : 3)) return usage();
  const char* path = argv[argc - 1];
  std::vector<corpus_case> cases;

  if (mode == "--make") {
    cases = draw(std::atoi(argv[2]));
  } else if (!read(path, cases)) {
    std::fprintf(stderr, "corpus: %s cannot be read as a corpus\n", path);
    return 2;
  }
  if (mode == "--make" || mode == "--update") {
    for (corpus_case& c : cases) c.checksum = by_model(c);
    return write(path, cases) ? 0 : 2;
  }
  if (mode == "--model") return check(cases, "model", 0) == 0 ? 0 : 1;
  if (!mode.empty() && mode != "--form") return usage();

  int wrong = 0, run = 0;
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    const std::string name = vorn::kernel_form_name(form);
    if (!mode.empty() && name != argv[2]) continue;
    if (!vorn::use_kernel_form(form)) continue;
    ++run;
    wrong += check(cases, (name + ", four workers").c_str(), 4);
    wrong += check(cases, (name + ", one worker").c_str(), 1);
  }
  if (run == 0) {
    std::printf("form %s is not available here\n", argc > 2 ? argv[2] : "");
    return 77;
  }
  return wrong == 0 ? 0 : 1;
}
