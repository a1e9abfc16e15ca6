// How the help of every command looks: an option, its value, what it does and its default, in lines
// that fit a terminal of 80 columns.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vorn::tool {

class help_format : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_option(const CLI::Option* option, bool is_positional) const override;
  // Arguments are known by what they stand for.
  std::string make_option_usage(const CLI::Option* option) const override;
};

}  // namespace vorn::tool
