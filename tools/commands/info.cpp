// vorn-ycnr info: what is installed and what it runs on.
#include <cstdio>
#include <memory>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/machine.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

template <typename Head>
void print_head(const char* label, const Head& head) {
  print("%-10s %s %s, built %s %s, %d MiB\n", label, head.name, head.version, head.build_date,
        head.build_time, head.memory_mb);
}

int run_info(const picture_options& pictures) {
  const int width = pictures.width ? pictures.width : 1920;
  const int height = pictures.height ? pictures.height : 1080;
  denoiser library(width, height);
  const ycnr_capability_param record = library.capability();
  print("vorn-ycnr  %s\n", VORN_TOOL_VERSION);
  print_head("library", record);
  print_head("luma", record.ynr);
  print_head("chroma", record.cnr);
  print("           (scratch memory for frames of %dx%d)\n", width, height);
  const machine m = this_machine();
  std::string sets;
  for (const std::string& set : m.instruction_sets) sets += " " + set;
  print("processor  %s, %s, %d in reach\n", m.cpu.c_str(), m.architecture.c_str(), m.processors);
  print("can do    %s\n", sets.c_str());
  print("kernels    %s (VORN_KERNELS=NAME forces another)\n", m.kernels.c_str());
  const tuning_set& set = default_tuning_set();
  print("tuning     built in: \"%s\", gains %g to %g\n", set.name.c_str(), set.entries.front().gain,
        set.entries.back().gain);
  return kExitOk;
}

}  // namespace

void add_info(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("info", "Tell versions, memory and the instruction sets in use");
  const auto pictures = std::make_shared<picture_options>();
  command
      ->add_option_function<std::string>(
          "--size", [pictures](const std::string& text) { parse_size(text, *pictures); },
          "Frame size whose memory to tell [1920x1080]")
      ->type_name("WxH");
  command->footer("Example:\n  vorn-ycnr info --size 4000x3000");
  command->callback([pictures, &chosen] { chosen = [pictures] { return run_info(*pictures); }; });
}

}  // namespace vorn::tool
