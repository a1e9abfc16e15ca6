#include "tools/commands/score.h"

#include "tools/commands/help_format.h"
#include "vorn_ycnr.h"

namespace vorn::tool {

std::vector<std::string>& command_words() {
  static std::vector<std::string> words;
  return words;
}

void add_all_commands(CLI::App& program, job& chosen) {
  const auto format = std::make_shared<help_format>();
  format->label("OPTIONS", "options");
  format->label("SUBCOMMAND", "COMMAND");
  format->label("Positionals", "Arguments");
  program.formatter(format);  // commands take it over, and the flag below
  program.set_help_flag("-h,--help", "Print this help");
  program.require_subcommand(1);
  program.footer("vorn-ycnr COMMAND --help tells a command's options. First steps: vorn-ycnr demo");
  add_denoise(program, chosen);
  add_demo(program, chosen);
  add_noise_command(program, chosen);
  add_tune(program, chosen);
  add_score(program, chosen);
  add_report(program, chosen);
  add_workbench(program, chosen);
  add_compare(program, chosen);
  add_bench(program, chosen);
  add_mean(program, chosen);
  add_info(program, chosen);
  add_replay(program, chosen);
  add_tuning(program, chosen);
  for (CLI::App* command : program.get_subcommands({})) {
    command->group("Commands");
    for (CLI::App* below : command->get_subcommands({})) below->group("Commands");
  }
  // Not taken over by the commands: they come first.
  program.set_help_all_flag("--help-all", "Help of every command");
  program.set_version_flag("--version", "vorn-ycnr " VORN_TOOL_VERSION, "Print the version");
}

}  // namespace vorn::tool
