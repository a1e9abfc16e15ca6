#include "tools/machine.h"

#include <sched.h>
#include <sys/utsname.h>

#include <fstream>

#include "vorn_ycnr_ext.h"

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
  const auto has = [&](bool there, const char* name) {
    if (there) m.instruction_sets.push_back(name);
  };
#if defined(__x86_64__)
  has(true, "sse2");
  has(__builtin_cpu_supports("avx2"), "avx2");
  has(__builtin_cpu_supports("avx512f"), "avx512f");
  has(__builtin_cpu_supports("avx512bw"), "avx512bw");
  has(__builtin_cpu_supports("avx512vl"), "avx512vl");
  has(__builtin_cpu_supports("avx512vbmi"), "avx512vbmi");
  has(__builtin_cpu_supports("avx512vnni"), "avx512vnni");
#elif defined(__aarch64__)
  constexpr unsigned long kDotProduct = 1ul << 20;  // HWCAP_ASIMDDP
  has(true, "neon");
  has(getauxval(AT_HWCAP) & kDotProduct, "dotprod");
#endif
  m.kernels = vorn_ycnr_kernel_form();
  return m;
}

}  // namespace vorn::tool
