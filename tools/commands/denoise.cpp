// vorn-ycnr denoise: pictures and streams in, the same without noise out.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/machine.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"

namespace vorn::tool {
namespace {

struct denoise_args {
  std::vector<std::string> inputs;
  std::string output;
  int jobs = 0;  // 0: one per processor
  picture_options pictures;
  tuning_options tuning;
};

// A denoiser for the size at hand; scratch memory and workers stay while the size does.
class denoiser_cache {
 public:
  denoiser& of(const frame& f) {
    if (!library_ || library_->width() != f.padded_width || library_->height() != f.padded_height) {
      library_.reset();  // first, to have the memory once only
      library_ = std::make_unique<denoiser>(f.padded_width, f.padded_height);
    }
    return *library_;
  }

 private:
  std::unique_ptr<denoiser> library_;
};

// One file, frame by frame.
void denoise_file(const denoise_args& args, const std::string& input, const std::string& output,
                  const tuning& t, denoiser_cache& libraries, bool show_progress) {
  const std::unique_ptr<frame_reader> reader = open_reader(input, args.pictures);
  std::unique_ptr<frame_writer> writer;
  std::optional<progress> bar;
  if (show_progress) bar.emplace(input == "-" ? "denoise" : input, reader->frame_count(), "frames");
  int64_t count = 0;
  frame f;
  while (reader->next(f)) {
    naming(input == "-" ? "standard input" : input, [&] { libraries.of(f).run(f, t); });
    // Opened last: bad input leaves no trace of the output.
    if (!writer) writer = open_writer(output, args.pictures, reader->info);
    writer->write(f);
    count++;
    if (bar) bar->update(count);
  }
  writer->finish();
}

struct file_pair {
  std::string input;
  std::string output;
};

// Names of the results in a directory: those of the inputs, with the ending of --out-format.
std::vector<file_pair> pair_names(const denoise_args& args) {
  std::vector<file_pair> pairs;
  std::map<std::string, std::string> taken;
  for (const std::string& name : args.inputs) {
    for (const std::string& input : expand_inputs({name})) {
      if (input == "-") throw error("-", "standard input cannot be one of several inputs");
      // Directories hold other things, too.
      if (input != name && file_kind_of(input) == file_kind::unknown) continue;
      std::filesystem::path file = std::filesystem::path(input).filename();
      if (args.pictures.write_as != file_kind::unknown) {
        file.replace_extension(file_kind_name(args.pictures.write_as));
      }
      const std::string output = (std::filesystem::path(args.output) / file).string();
      if (!taken.emplace(output, input).second) {
        throw error(input, "its result would have the name of that of " + taken[output]);
      }
      std::error_code code;
      if (std::filesystem::equivalent(input, output, code)) {
        throw error(input, "its result would replace it; name another directory");
      }
      pairs.push_back({input, output});
    }
  }
  if (pairs.empty()) throw error(args.inputs[0], "no picture or video was found");
  return pairs;
}

// Many files on several threads, each with a denoiser of its own. A bad file does not stop the
// others.
int denoise_files(const denoise_args& args, const tuning& t) {
  const std::vector<file_pair> pairs = pair_names(args);
  make_directory(args.output);
  const int jobs = args.jobs > 0 ? args.jobs : this_machine().processors;
  std::atomic<size_t> next{0};
  std::mutex lock;
  std::vector<std::string> faults;
  int64_t done = 0;
  progress bar("denoise", int64_t(pairs.size()), "files");
  const auto work = [&] {
    denoiser_cache libraries;
    for (size_t i; (i = next++) < pairs.size();) {
      std::string fault;
      try {
        denoise_file(args, pairs[i].input, pairs[i].output, t, libraries, false);
      } catch (const error& e) {
        fault = e.what();
      } catch (const std::exception& e) {
        fault = pairs[i].input + ": " + e.what();
      }
      std::lock_guard<std::mutex> guard(lock);
      if (!fault.empty()) faults.push_back(fault);
      bar.update(++done);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 1; i < std::min<int64_t>(jobs, int64_t(pairs.size())); i++)
    threads.emplace_back(work);
  work();
  for (std::thread& thread : threads) thread.join();
  std::sort(faults.begin(), faults.end());
  for (size_t i = 0; i + 1 < faults.size(); i++) {
    std::fprintf(stderr, "vorn-ycnr: %s\n", faults[i].c_str());
  }
  if (!faults.empty()) throw error("", faults.back());
  return kExitOk;
}

int run_denoise(const denoise_args& args) {
  const tuning t = args.tuning.resolve();
  const bool one_file =
      args.inputs.size() == 1 && (args.inputs[0] == "-" || !is_directory(args.inputs[0]));
  const bool into_directory =
      args.output != "-" && (args.output.back() == '/' || is_directory(args.output));
  if (!one_file || into_directory) return denoise_files(args, t);
  denoiser_cache libraries;
  denoise_file(args, args.inputs[0], args.output, t, libraries, true);
  return kExitOk;
}

}  // namespace

void add_denoise(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("denoise", "Remove noise from pictures and video");
  const auto args = std::make_shared<denoise_args>();
  command
      ->add_option(
          "inputs", args->inputs,
          "PNG, JPEG, y4m or raw files, or directories of them; - is y4m on standard input")
      ->required()
      ->type_name("IN");
  command
      ->add_option("-o,--output", args->output,
                   "File to write, or directory for the results of several inputs; - is y4m on "
                   "standard output")
      ->required()
      ->type_name("OUT");
  command->add_option("-j,--jobs", args->jobs, "Files at a time; else one per processor")
      ->type_name("N")
      ->check(CLI::Range(1, 64).description(""));
  add_tuning_options(*command, args->tuning);
  add_picture_options(*command, args->pictures, true);
  command->footer(
      "Examples:\n"
      "  vorn-ycnr denoise noisy.jpg -o clean.png --gain 16\n"
      "  vorn-ycnr denoise holiday/ -o cleaned/ --gain 4\n"
      "  ffmpeg -i in.mp4 -pix_fmt yuv420p -f yuv4mpegpipe - | vorn-ycnr denoise - -o - | "
      "ffmpeg -i - out.mp4");
  command->callback([args, &chosen] { chosen = [args] { return run_denoise(*args); }; });
}

}  // namespace vorn::tool
