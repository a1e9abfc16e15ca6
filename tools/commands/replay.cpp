// vorn-ycnr replay: runs what a device dumped and compares with what the device made of it.
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/replay.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

struct replay_args {
  std::vector<std::string> inputs;
  std::string output;
  bool run_only = false;
};

tuning tuning_of(const replay_case& c) {
  tuning t = {};
  if (c.luma && !parse_dump_text(read_text_file(c.luma_tuning), c.luma_tuning, t)) {
    throw error(c.luma_tuning, "is not a luma tuning");
  }
  if (c.chroma && parse_dump_text(read_text_file(c.chroma_tuning), c.chroma_tuning, t)) {
    throw error(c.chroma_tuning, "is not a chroma tuning");
  }
  // A dumped input is a frame that its algorithm ran on.
  t.luma.enable = c.luma;
  t.chroma.enable = c.chroma;
  return t;
}

// The library's result of a dumped input. The denoiser stays while the size does.
frame replayed(const replay_case& c, std::unique_ptr<denoiser>& library) {
  const tuning t = tuning_of(c);
  frame f = read_dump_frame(c.input, c.width, c.height);
  naming(c.input, [&] {
    if (!library || library->width() != c.width || library->height() != c.height) {
      library = std::make_unique<denoiser>(c.width, c.height);
    }
    library->run(f, t);
  });
  return f;
}

int run_replay(const replay_args& args) {
  std::vector<std::string> notes;
  const std::vector<replay_case> cases = find_replay_cases(expand_inputs(args.inputs), notes);
  for (const std::string& line : notes) print("%s\n", printable(line).c_str());
  if (cases.empty()) throw error(args.inputs[0], "no dumped frame with its tuning was found");
  if (!args.output.empty()) make_directory(args.output);

  std::unique_ptr<denoiser> library;
  int agree = 0, differ = 0, alone = 0, failed = 0;
  for (const replay_case& c : cases) {
    std::string verdict = "done, no device output to compare with";
    try {
      const frame f = replayed(c, library);
      if (!args.output.empty()) {
        write_file((std::filesystem::path(args.output) / c.result_name()).string(), f.data);
      }
      if (c.output.empty()) {
        alone++;
      } else {
        const byte_difference d = compare_bytes(f, read_dump_frame(c.output, c.width, c.height));
        verdict = describe(d);
        (d.luma + d.chroma == 0 ? agree : differ)++;
      }
    } catch (const error& fault) {  // one bad file is no reason to leave out the others
      note(fault.what());
      verdict = "failed";
      failed++;
    }
    print("%s %dx%d %s: %s\n", c.luma ? (c.chroma ? "ynr2+cnr4" : "ynr2") : "cnr4", c.width,
          c.height, c.stamp.c_str(), verdict.c_str());
  }
  print("%d replayed: %d identical, %d different, %d not compared", agree + differ + alone, agree,
        differ, alone);
  if (failed > 0) print("; %d failed", failed);
  print("\n");
  if (failed > 0) return kExitBadInput;
  if (args.run_only) return kExitOk;
  return differ == 0 && agree > 0 && notes.empty() ? kExitOk : kExitDifferent;
}

}  // namespace

void add_replay(CLI::App& program, job& chosen) {
  CLI::App* const command = program.add_subcommand(
      "replay", "Run the frames that a device dumped and compare with its results");
  const auto args = std::make_shared<replay_args>();
  add_files(*command, "dumps", args->inputs, "Directories or files of dumps")
      ->type_name("DIR")
      ->required();
  add_file(*command, "-o,--output", args->output,
           "Directory for the results, named as the device does")
      ->type_name("DIR");
  command->add_flag("--run-only", args->run_only,
                    "Succeed without or against the device's results");
  command->footer(
      "Exit code 0 only when there were results to compare and every byte of them agrees.\n"
      "Example:\n"
      "  adb pull /data/vendor/cameraserver dumps && vorn-ycnr replay dumps -o replayed");
  command->callback([args, &chosen] { chosen = [args] { return run_replay(*args); }; });
}

}  // namespace vorn::tool
