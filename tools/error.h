// How the tool says that its input is bad: one line that names the file and the cause. main()
// prints it after "vorn-ycnr: " and ends with exit code 2.
#pragma once

#include <new>
#include <stdexcept>
#include <string>

namespace vorn::tool {

struct error : std::runtime_error {
  // where: a file name, "standard input", or the option at fault.
  error(const std::string& where, const std::string& cause)
      : std::runtime_error(where.empty() ? cause : where + ": " + cause) {}
};

// No thread is to be had for a denoiser's workers; another one, elsewhere, may go on.
struct no_threads : error {
  using error::error;
};

// Puts a file's name in front of an error that work ends in.
template <typename Work>
void naming(const std::string& where, const Work& work) {
  try {
    work();
  } catch (const no_threads&) {
    throw;
  } catch (const error& fault) {
    throw error(where, fault.what());
  } catch (const std::bad_alloc&) {
    throw error(where, "out of memory");
  }
}

// Says which file memory ran out for; other errors name it already.
template <typename Work>
auto naming_memory(const std::string& where, const Work& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw error(where, "out of memory");
  } catch (const std::length_error&) {
    throw error(where, "out of memory");
  }
}

// Exit codes, the same for every subcommand.
constexpr int kExitOk = 0;
constexpr int kExitDifferent = 1;  // the job ran, but what it checks does not agree
constexpr int kExitBadInput = 2;   // bad option or file; nothing was written
constexpr int kExitStopped = 130;  // interrupted

}  // namespace vorn::tool
