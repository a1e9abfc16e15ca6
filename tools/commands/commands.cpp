#include "tools/commands/commands.h"

#include "vorn_ycnr.h"

namespace vorn::tool {

void add_all_commands(CLI::App& program, job& chosen) {
  program.require_subcommand(1);
  program.set_help_all_flag("--help-all", "Help of every subcommand");
  program.set_version_flag("--version", "vorn-ycnr " VORN_TOOL_VERSION);
  program.footer("vorn-ycnr COMMAND --help tells a command's options. First steps: vorn-ycnr demo");
  add_denoise(program, chosen);
  add_demo(program, chosen);
  add_noise_command(program, chosen);
  add_tune(program, chosen);
  add_report(program, chosen);
  add_workbench(program, chosen);
  add_compare(program, chosen);
  add_bench(program, chosen);
  add_mean(program, chosen);
  add_info(program, chosen);
  add_replay(program, chosen);
  add_tuning(program, chosen);
}

}  // namespace vorn::tool
