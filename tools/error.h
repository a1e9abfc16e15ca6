// How the tool says that its input is bad: one line that names the file and the cause. main()
// prints it after "vorn-ycnr: " and ends with exit code 2.
#pragma once

#include <stdexcept>
#include <string>

namespace vorn::tool {

struct error : std::runtime_error {
  // where: a file name, "standard input", or the option at fault.
  error(const std::string& where, const std::string& cause)
      : std::runtime_error(where.empty() ? cause : where + ": " + cause) {}
};

// Puts a file's name in front of an error that work ends in.
template <typename Work>
void naming(const std::string& where, const Work& work) {
  try {
    work();
  } catch (const error& fault) {
    throw error(where, fault.what());
  }
}

// Exit codes, the same for every subcommand.
constexpr int kExitOk = 0;
constexpr int kExitDifferent = 1;  // the job ran, but what it checks does not agree
constexpr int kExitBadInput = 2;   // bad option or file; nothing was written
constexpr int kExitStopped = 130;  // interrupted

}  // namespace vorn::tool
