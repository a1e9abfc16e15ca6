// vorn-ycnr denoise: pictures and streams in, the same without noise out.
#include <algorithm>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "tools/batch.h"
#include "tools/commands/commands.h"
#include "tools/commands/frame_tuning.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/machine.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/stream.h"
#include "tools/temporal.h"
#include "tools/text.h"
#include "tools/threads.h"

namespace vorn::tool {
namespace {

struct denoise_args {
  batch_options files;
  int jobs = 0;  // 0: one per processor
  picture_options pictures;
  tuning_options tuning;
  bool temporal = false;
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

// One file, frame by frame; a stream takes as many processors as it is given. Returns what of the
// input's description the output cannot hold.
std::vector<std::string> denoise_file(const denoise_args& args, const batch_file& file,
                                      denoiser_cache& libraries, int processors,
                                      bool show_progress) {
  const std::string name = file.input == "-" ? "standard input" : file.input;
  const std::unique_ptr<frame_reader> reader = open_reader(file.input, args.pictures);
  frame_tuning tunings(args.tuning, exif_iso(reader->info.metadata.exif));
  std::unique_ptr<frame_writer> writer;
  std::optional<progress> bar;
  if (show_progress)
    bar.emplace(file.input == "-" ? "denoise" : file.input, reader->frame_count(), "frames");
  int64_t count = 0;
  temporal_blend blend;
  // Tunings and results may come on different threads.
  std::mutex said_lock;
  std::string said;
  std::deque<tuning> strengths;  // of the frames under way
  const auto tuning_of = [&](const frame& f) {
    const tuning t = tunings.of(f);
    const std::lock_guard<std::mutex> guard(said_lock);
    if (args.temporal) strengths.push_back(t);
    if (show_progress && !tunings.said().empty()) said = name + ": " + tunings.said();
    return t;
  };
  const auto write = [&](frame& f) {
    if (args.temporal) {
      std::unique_lock<std::mutex> guard(said_lock);
      const tuning now = strengths.front();
      strengths.pop_front();
      guard.unlock();
      blend.run(f, now);
    }
    // Opened last: bad input leaves no trace of the output.
    if (!writer) writer = open_writer(file.output, args.pictures, reader->info);
    writer->write(f);
    {
      const std::lock_guard<std::mutex> guard(said_lock);
      if (!said.empty()) {
        if (bar) bar->clear();
        note(said);
        said.clear();
      }
    }
    if (bar) bar->update(++count);
  };
  naming_memory(name, [&] {
    if (reader->frame_count() == 1) {
      frame f;
      reader->next(f);
      naming(name, [&] { libraries.of(f).run(f, tuning_of(f)); });
      write(f);
      return;
    }
    denoise_stream({[&](frame& f) { return reader->next(f); }, tuning_of, write}, processors);
  });
  writer->finish();
  return lost_in(reader->info.metadata, written_kind(file.output, args.pictures));
}

// "colour profile, density".
std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += (all.empty() ? "" : ", ") + text;
  return all;
}

// Many files on several threads, each with a denoiser of its own. A bad file does not stop the
// others.
class batch_run {
 public:
  batch_run(const denoise_args& args, batch files)
      : args_(args),
        files_(std::move(files)),
        bar_("denoise", int64_t(files_.files.size()), "files") {
    for (const batch_file& file : files_.files) waiting_.push_back(&file);
  }

  int run() {
    const int processors = args_.jobs > 0 ? args_.jobs : this_machine().processors;
    const int jobs = int(std::min<int64_t>(processors, int64_t(files_.files.size())));
    processors_each_ = jobs > 0 ? processors / jobs : 1;
    thread_group threads;
    for (int i = 1; i < jobs && threads.start([this] { work(false); }); i++) {
    }
    work(false);
    threads.join();
    work(true);  // what is left
    bar_.clear();
    return tell();
  }

 private:
  void work(bool alone) {
    denoiser_cache libraries;
    for (;;) {
      const batch_file* file;
      {
        const std::lock_guard<std::mutex> guard(lock_);
        if (waiting_.empty()) return;
        file = waiting_.front();
        waiting_.pop_front();
      }
      std::string fault;
      try {
        std::filesystem::create_directories(std::filesystem::path(file->output).parent_path());
        const auto lost = denoise_file(args_, *file, libraries, processors_each_, false);
        const std::lock_guard<std::mutex> guard(lock_);
        for (const std::string& what : lost) ++lost_[what];
      } catch (const no_threads& e) {
        const std::lock_guard<std::mutex> guard(lock_);
        if (!alone) {  // others have some, or this thread's own end gives one back
          waiting_.push_back(file);
          return;
        }
        fault = e.what();
      } catch (const error& e) {
        fault = e.what();
      } catch (const std::exception& e) {
        fault = file->input + ": " + e.what();
      }
      const std::lock_guard<std::mutex> guard(lock_);
      if (!fault.empty()) faults_.push_back(fault);
      bar_.update(++done_);
    }
  }

  int tell() {
    const std::string passed = files_.passed_over();
    if (!passed.empty()) note("passed over " + passed);
    if (files_.existing > 0) note("already there: " + std::to_string(files_.existing));
    std::vector<std::string> lost;
    for (const auto& [what, files] : lost_)
      lost.push_back(what + " of " + std::to_string(files) + (files == 1 ? " file" : " files"));
    if (!lost.empty()) note("not kept: " + joined(lost));
    std::sort(faults_.begin(), faults_.end());
    for (const std::string& fault : faults_) note(fault);
    if (faults_.size() > 1) {
      note(std::to_string(faults_.size()) + " of " + std::to_string(files_.files.size()) +
           " files failed");
    }
    return faults_.empty() ? kExitOk : kExitBadInput;
  }

  const denoise_args& args_;
  const batch files_;
  progress bar_;
  int processors_each_ = 1;
  std::mutex lock_;
  std::deque<const batch_file*> waiting_;
  int64_t done_ = 0;
  std::vector<std::string> faults_;
  std::map<std::string, int> lost_;  // and from how many files
};

// Names that say one file cannot take the results of many.
void check_directory_name(const denoise_args& args) {
  const std::string& output = args.files.output;
  if (output == "-") {
    throw error("-o -", "standard output takes the result of one file; name a directory");
  }
  if (output.back() == '/' || is_directory(output)) return;
  if (std::filesystem::exists(output)) throw error(output, "is no directory for several results");
  if (file_kind_of(output) != file_kind::unknown) {
    throw error(output,
                "is a file's name, but there are several inputs; for a directory of this "
                "name write " +
                    output + "/");
  }
}

int run_denoise(const denoise_args& args) {
  const std::vector<std::string>& inputs = args.files.inputs;
  const std::string& output = args.files.output;
  const bool one_file = inputs.size() == 1 && (inputs[0] == "-" || !is_directory(inputs[0]));
  const bool into_directory = output != "-" && (output.back() == '/' || is_directory(output));
  const int processors = args.jobs > 0 ? args.jobs : this_machine().processors;
  args.tuning.resolve();  // its faults come before any work
  if (one_file && !into_directory) {
    if (!args.files.force)
      refuse_replacing(output, {inputs[0], args.tuning.file, args.tuning.sensor_file});
    if (args.files.skip_existing && output != "-" && std::filesystem::is_regular_file(output)) {
      note("already there: " + output);
      return kExitOk;
    }
    denoiser_cache libraries;
    const auto lost = denoise_file(args, {inputs[0], output}, libraries, processors, true);
    if (!lost.empty()) note(output + ": not kept: " + joined(lost));
    return kExitOk;
  }
  check_directory_name(args);
  batch_options options = args.files;
  options.write_as = args.pictures.write_as;
  batch files = find_batch(options);
  make_directory(output);
  return batch_run(args, std::move(files)).run();
}

}  // namespace

void add_denoise(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("denoise", "Remove noise from pictures and video");
  const auto args = std::make_shared<denoise_args>();
  add_files(*command, "inputs", args->files.inputs,
            "PNG, JPEG, y4m or raw files, or directories of them; - is y4m on standard input")
      ->required()
      ->type_name("IN");
  add_file(*command, "-o,--output", args->files.output,
           "File to write, or directory for the results of several inputs; - is y4m on standard "
           "output")
      ->required()
      ->type_name("OUT");
  add_whole(*command, "-j,--jobs", args->jobs, 1, 64,
            "Files, or frames of a stream, at a time; else one per processor");
  command->add_flag("-r,--recursive", args->files.recursive,
                    "Take the folders in a directory, too; results lie in the same folders");
  command->add_flag("--skip-existing", args->files.skip_existing,
                    "Leave out what has its result already: an interrupted job goes on");
  command->add_flag("--force", args->files.force, "Let a result replace its input");
  command->add_flag("--temporal", args->temporal,
                    "Video: blend what stands still with the frame before, against flicker");
  add_tuning_options(*command, args->tuning, true);
  add_picture_options(*command, args->pictures, true);
  command->footer(
      "Examples:\n"
      "  vorn-ycnr denoise noisy.jpg -o clean.png\n"
      "  vorn-ycnr denoise noisy.jpg -o clean.png --gain 16\n"
      "  vorn-ycnr denoise holiday/ -o cleaned/ --gain 4 --recursive --skip-existing\n"
      "  ffmpeg -i in.mp4 -pix_fmt yuv420p -f yuv4mpegpipe - | vorn-ycnr denoise - -o - | "
      "ffmpeg -i - out.mp4");
  command->callback([args, &chosen] { chosen = [args] { return run_denoise(*args); }; });
}

}  // namespace vorn::tool
