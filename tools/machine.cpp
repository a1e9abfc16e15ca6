#include "tools/machine.h"

#include <sched.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#if defined(__aarch64__)
#include <sys/auxv.h>
#endif

namespace vorn::tool {
namespace {

std::string cpu_name() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (line.rfind("model name", 0) != 0) continue;
    const size_t colon = line.find(": ");
    if (colon != std::string::npos) return line.substr(colon + 2);
  }
  // Arm kernels name the board instead.
  std::ifstream board("/proc/device-tree/model");
  std::string name;
  std::getline(board, name, '\0');
  return name.empty() ? "unknown processor" : name;
}

}  // namespace

machine this_machine() {
  machine m;
  m.cpu = cpu_name();
  utsname system = {};
  uname(&system);
  m.architecture = system.machine;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) m.processors = CPU_COUNT(&set);
  // The library's order of preference; forms lists what it would take here, best last.
  std::vector<std::string> forms = {"scalar", "neon"};
  const auto has = [&](bool there, const char* name) {
    if (there) m.instruction_sets.push_back(name);
    return there;
  };
#if defined(__x86_64__)
  has(true, "sse2");
  forms.push_back("sse2");
  if (has(__builtin_cpu_supports("avx2"), "avx2")) forms.push_back("avx2");
  bool all = has(__builtin_cpu_supports("avx512f"), "avx512f");
  all &= has(__builtin_cpu_supports("avx512bw"), "avx512bw");
  all &= has(__builtin_cpu_supports("avx512vl"), "avx512vl");
  all &= has(__builtin_cpu_supports("avx512vbmi"), "avx512vbmi");
  all &= has(__builtin_cpu_supports("avx512vnni"), "avx512vnni");
  if (all) forms.push_back("avx512");
#elif defined(__aarch64__)
  constexpr unsigned long kDotProduct = 1ul << 20;  // HWCAP_ASIMDDP
  has(true, "neon");
  if (has(getauxval(AT_HWCAP) & kDotProduct, "dotprod")) forms.push_back("neon_dot");
#endif
  m.kernels = forms.back();
  const char* const forced = std::getenv("VORN_KERNELS");
  if (forced && std::find(forms.begin(), forms.end(), forced) != forms.end()) m.kernels = forced;
  return m;
}

}  // namespace vorn::tool
