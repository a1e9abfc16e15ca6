// One registration function per subcommand. Each adds its options to the program and leaves its job
// behind: a function that runs when the command line names it and returns the exit code.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/commands/option_kinds.h"
#include "tools/picture/picture_io.h"
#include "tools/tuning/tuning_set.h"
#include "vorn_tuning.h"

namespace vorn::tool {

// The job that the parsed command line asks for.
using job = std::function<int()>;

// All of them, and the program's own options; what main() and the manual page are made from.
void add_all_commands(CLI::App& program, job& chosen);

void add_denoise(CLI::App& program, job& chosen);
void add_demo(CLI::App& program, job& chosen);
void add_noise_command(CLI::App& program, job& chosen);
void add_tune(CLI::App& program, job& chosen);
void add_report(CLI::App& program, job& chosen);
void add_compare(CLI::App& program, job& chosen);
void add_bench(CLI::App& program, job& chosen);
void add_mean(CLI::App& program, job& chosen);
void add_info(CLI::App& program, job& chosen);
void add_replay(CLI::App& program, job& chosen);
void add_tuning(CLI::App& program, job& chosen);
void add_workbench(CLI::App& program, job& chosen);

// Adds --size, --stride and the other options that say how files are read and written.
void add_picture_options(CLI::App& command, picture_options& options, bool writes);

// "1920x1080" into width and height.
void parse_size(const std::string& text, picture_options& options);

constexpr double kDefaultGain = VORN_TUNING_DEFAULT_GAIN;

// What add_tuning_options' options ask for.
struct tuning_options {
  std::string file;         // empty: the set inside the tool
  std::string sensor_file;  // profile of the camera whose gains are meant; empty: the set's own
  double gain = 0;          // 0: none given
  bool luma_only = false;
  bool chroma_only = false;
  bool fine = false;
  std::vector<std::pair<int, int32_t>> overrides;  // field index, value

  // The set that the options name.
  tuning_set load_set() const;
  // Its tuning for the gain (or kDefaultGain), picked by entries_for, with what applied_to does.
  // The filter of --luma-only or --chroma-only is on, whatever the set says.
  tuning resolve() const;
  // The entries for a gain, luma's and chroma's. In a set of --tuning both are the nearest; in the
  // default set a sensor's profile says which gains its own are like.
  std::pair<tuning_entry, tuning_entry> entries_for(double at_gain) const;
  // t with the overrides, and only the halves that are wanted.
  tuning applied_to(tuning t) const;
};

// Adds --tuning, --gain, --sensor, --luma-only, --chroma-only, --fine and an option for every
// field. automatic: without --gain, or with --gain auto, the gain is measured; else it is
// kDefaultGain.
void add_tuning_options(CLI::App& command, tuning_options& options, bool automatic = false);

}  // namespace vorn::tool
