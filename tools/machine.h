// What the tool runs on: for `info` and for the head of benchmark files.
#pragma once

#include <string>
#include <vector>

namespace vorn::tool {

struct machine {
  std::string cpu;                            // as the system names it
  std::string architecture;                   // "x86_64", "aarch64"
  int processors = 1;                         // that this process may use
  std::vector<std::string> instruction_sets;  // those that matter here
  std::string kernels;  // form of the kernels that the library takes: "avx2", "neon_dot", ...
};
machine this_machine();

}  // namespace vorn::tool
