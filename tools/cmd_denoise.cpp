// vorn-ycnr denoise: pictures and streams in, the same without noise out.
#include <memory>

#include "tools/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/progress.h"

namespace vorn::tool {
namespace {

struct denoise_args {
  std::string input;
  std::string output;
  picture_options pictures;
  tuning_options tuning;
};

// One file, frame by frame. Returns the number of frames.
int64_t denoise_file(const denoise_args& args, const std::string& input, const std::string& output,
                     const tuning& t) {
  const std::unique_ptr<frame_reader> reader = open_reader(input, args.pictures);
  std::unique_ptr<frame_writer> writer;
  std::unique_ptr<denoiser> library;
  progress bar(input == "-" ? "denoise" : input, reader->frame_count(), "frames");
  int64_t count = 0;
  frame f;
  while (reader->next(f)) {
    if (!library) library = std::make_unique<denoiser>(f.padded_width, f.padded_height);
    library->run(f, t);
    // Opened last: bad input leaves no trace of the output.
    if (!writer) writer = open_writer(output, args.pictures, reader->info);
    writer->write(f);
    bar.update(++count);
  }
  writer->finish();
  return count;
}

int run_denoise(const denoise_args& args) {
  const tuning t = args.tuning.resolve();
  denoise_file(args, args.input, args.output, t);
  return kExitOk;
}

}  // namespace

void add_denoise(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("denoise", "Remove noise from pictures and video");
  const auto args = std::make_shared<denoise_args>();
  command
      ->add_option("input", args->input, "PNG, JPEG, y4m or raw file; - is y4m on standard input")
      ->required()
      ->type_name("IN");
  command->add_option("-o,--output", args->output, "File to write; - is y4m on standard output")
      ->required()
      ->type_name("OUT");
  add_tuning_options(*command, args->tuning);
  add_picture_options(*command, args->pictures, true);
  command->footer(
      "Examples:\n"
      "  vorn-ycnr denoise noisy.jpg -o clean.png --gain 16\n"
      "  ffmpeg -i in.mp4 -pix_fmt yuv420p -f yuv4mpegpipe - | vorn-ycnr denoise - -o - | "
      "ffmpeg -i - out.mp4");
  command->callback([args, &chosen] { chosen = [args] { return run_denoise(*args); }; });
}

}  // namespace vorn::tool
