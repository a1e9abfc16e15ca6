// vorn-ycnr mean: a clean reference from a burst of one still scene.
#include <cmath>
#include <memory>
#include <optional>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/lab/frame_mean.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

struct mean_args {
  std::vector<std::string> inputs;
  std::string output;
  bool keep_all = false;
  bool force = false;
  picture_options pictures;
};

// The frames of all inputs, twice over: files are read again, standard input is kept in memory.
class burst_reader {
 public:
  explicit burst_reader(const mean_args& args) : args_(args) {
    for (const std::string& input : args.inputs) {
      for (const std::string& name : expand_inputs({input})) {
        const bool listed = name == input;
        if (listed || file_kind_of(name) != file_kind::unknown) names_.push_back(name);
      }
    }
    if (names_.empty()) throw error(args.inputs[0], "no picture or video was found");
  }

  // Calls take(frame, name) for every frame.
  template <typename Take>
  void each(const Take& take) {
    for (const std::string& name : names_) {
      if (name == "-" && !kept_.empty()) {
        for (const frame& f : kept_) take(f, name);
        continue;
      }
      const auto reader = open_reader(name, args_.pictures);
      if (info.metadata.from == file_kind::unknown) info = reader->info;
      int64_t index = 0;
      for (frame f; next_upright(*reader, f); ++index) {
        if (name == "-") kept_.push_back(f);
        take(f, reader->frame_count() == 1 ? name : name + " frame " + std::to_string(index));
      }
    }
  }
  stream_info info;

 private:
  const mean_args& args_;
  std::vector<std::string> names_;
  std::vector<frame> kept_;
};

void tell(const std::vector<std::string>& names, const std::vector<burst_frame>& burst) {
  print("%-32s %8s %8s %11s\n", "frame", "shift x", "y", "brightness");
  for (size_t i = 0; i < burst.size(); ++i) {
    const burst_frame& b = burst[i];
    std::string name = printable(names[i]);
    if (name.size() > 32) name = "..." + name.substr(name.size() - 29);
    print("%-32s %8.2f %8.2f %11.2f%s%s\n", name.c_str(), b.moved.x, b.moved.y, b.brightness,
          b.left_out ? "   left out: " : "", b.left_out ? b.left_out : "");
  }
}

int run_mean(const mean_args& args) {
  if (!args.force) refuse_replacing(args.output, args.inputs);
  const std::string output_name = args.output == "-" ? "standard output" : args.output;
  if (args.output != "-") output_file check(args.output);  // before any work
  burst_reader reader(args);
  frame first;
  std::vector<burst_frame> burst;
  std::vector<std::string> names;
  {
    progress bar("measuring", 0, "frames");
    reader.each([&](const frame& f, const std::string& name) {
      if (burst.empty()) first = f;
      if (f.width != first.width || f.height != first.height || f.full_range != first.full_range) {
        throw error(name, "not of the same size and sample range as the first frame");
      }
      burst.push_back(look_at(f, first));
      names.push_back(name);
      bar.update(int64_t(burst.size()));
    });
  }
  if (burst.size() < 2) throw error("mean", "needs two frames or more of one scene");
  if (!args.keep_all) leave_out_odd_ones(burst);

  frame_sum sum(first);
  {
    progress bar("adding", int64_t(burst.size()), "frames");
    size_t index = 0;
    reader.each([&](const frame& f, const std::string&) {
      if (index < burst.size() && !burst[index].left_out) sum.add(f, burst[index].moved);
      bar.update(int64_t(++index));
    });
    if (index != burst.size()) throw error(args.inputs[0], "changed while it was read");
  }
  stream_info info = reader.info;
  info.orientation = 1;
  const auto writer = open_writer(args.output, args.pictures, info);
  writer->write(sum.mean());
  writer->finish();
  if (args.output == "-") return kExitOk;
  tell(names, burst);
  print("%d of %zu frames; their noise is divided by %.1f\n", sum.count(), burst.size(),
        std::sqrt(double(sum.count())));
  return kExitOk;
}

}  // namespace

void add_mean(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("mean", "Make a clean picture of a burst of one still scene");
  const auto args = std::make_shared<mean_args>();
  add_files(*command, "burst", args->inputs,
            "Pictures, streams or directories of them, all frames of one still scene")
      ->required()
      ->type_name("IN");
  add_file(*command, "-o,--output", args->output, "The picture")->required()->type_name("OUT");
  command->add_flag("--keep-all", args->keep_all, "Leave no frame out");
  command->add_flag("--force", args->force, "Let the result replace an input");
  add_picture_options(*command, args->pictures, true);
  command->footer(
      "Every frame is laid upon the first one: its displacement is measured to a fraction of a\n"
      "pixel, told, and taken back. Frames that differ from the others (a flash, something that\n"
      "moved) are left out, and that is told. The result is the clean partner of the first frame\n"
      "for vorn-ycnr tune --pair.\n"
      "Example:\n"
      "  vorn-ycnr mean burst/ -o clean.png && vorn-ycnr tune --pair 8 burst/001.png clean.png "
      "-o set.json");
  command->callback([args, &chosen] { chosen = [args] { return run_mean(*args); }; });
}

}  // namespace vorn::tool
