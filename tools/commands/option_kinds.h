// Options by the kind of their value. Numbers go through numbers.h, so no option takes what is not
// finite, not whole or out of its bounds; file names may not be empty. Faults are `error`s that
// name the option.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace vorn::tool {

CLI::Option* add_whole(CLI::App& command, const std::string& names, int& value, int64_t lowest,
                       int64_t highest, const std::string& help);
CLI::Option* add_seed(CLI::App& command, const std::string& names, uint64_t& value,
                      const std::string& help);
CLI::Option* add_real(CLI::App& command, const std::string& names, double& value, double lowest,
                      double highest, const std::string& help);
// By commas; replaces what values holds.
CLI::Option* add_reals(CLI::App& command, const std::string& names, std::vector<double>& values,
                       double lowest, double highest, const std::string& help);
CLI::Option* add_file(CLI::App& command, const std::string& names, std::string& value,
                      const std::string& help);
// One or more, as arguments.
CLI::Option* add_files(CLI::App& command, const std::string& names,
                       std::vector<std::string>& values, const std::string& help);
// Shows a number, or a list of them, as the option's default in the help.
CLI::Option* with_default(CLI::Option* option, double value);
CLI::Option* with_default(CLI::Option* option, const std::vector<double>& values);

// Bounds that several commands share.
constexpr double kLowestGain = 1e-3, kHighestGain = 1e6;
constexpr int kLongestStride = 1 << 21;  // bytes; twice the longest row

}  // namespace vorn::tool
