// vorn-ycnr tune: searches a tuning set on pictures whose clean version is known.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/pair_check.h"
#include "tools/lab/report_page.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {
namespace {

struct noisy_pair {
  double gain;
  std::string noisy, clean;
};

struct tune_options {
  std::vector<std::string> clean;
  std::vector<noisy_pair> pairs;
  std::vector<double> gains = {1, 2, 4, 8, 16, 32, 64};
  std::string objective_name = "psnr";
  std::string start_file;
  std::string name = "tuned";
  std::string output;
  std::string report;
  int threads = 0;
  int rounds = 4;
  bool corners = false, luma_only = false, chroma_only = false;
  bool force = false;
  noise_model model;
  std::vector<double> luma_blurs = {0};
  std::string sensor_file;
  bool gains_given = false;
  picture_options picture;
};

std::atomic<bool> stop_requested{false};

// The second interrupt ends the program at once.
void on_interrupt(int) {
  static const char kLine[] = "\nvorn-ycnr: stopping with the best so far (again: at once)\n";
  stop_requested = true;
  std::signal(SIGINT, SIG_DFL);
  const ssize_t written = write(STDERR_FILENO, kLine, sizeof kLine - 1);
  (void)written;
}

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

tuning_sample read_pair(const tune_options& o, const noisy_pair& pair) {
  tuning_sample s;
  s.name = base_name(pair.noisy);
  s.noisy = read_picture(pair.noisy, o.picture);
  s.clean = read_picture(pair.clean, o.picture);
  if (s.noisy.width != s.clean.width || s.noisy.height != s.clean.height)
    throw error(pair.noisy, "its size differs from that of " + pair.clean);
  if (s.noisy.full_range != s.clean.full_range)
    throw error(pair.noisy, "not of the same sample range as " + pair.clean);
  return s;
}

std::vector<tuning_sample> samples_for(const tune_options& o, double gain) {
  std::vector<tuning_sample> samples;
  noise_model model = o.model;
  model.gain = gain;
  for (const std::string& path : o.clean) {
    const frame clean = read_picture(path, o.picture);
    for (double blur : o.luma_blurs) {
      tuning_sample s;
      s.name = base_name(path);
      s.clean = clean;
      s.noisy = clean;
      model.luma_blur = blur;
      add_noise(s.noisy, model);
      ++model.seed;
      samples.push_back(std::move(s));
    }
  }
  for (const noisy_pair& pair : o.pairs)
    if (pair.gain == gain) samples.push_back(read_pair(o, pair));
  return samples;
}

std::vector<double> all_gains(const tune_options& o) {
  std::vector<double> gains;
  if (!o.clean.empty()) gains = o.gains;
  for (const noisy_pair& pair : o.pairs) gains.push_back(pair.gain);
  std::sort(gains.begin(), gains.end());
  gains.erase(std::unique(gains.begin(), gains.end()), gains.end());
  return gains;
}

std::string description(const tune_options& o) {
  const size_t pictures = o.clean.size() + o.pairs.size();
  std::string text = "Searched for best " + o.objective_name + " on " + std::to_string(pictures) +
                     (pictures == 1 ? " picture" : " pictures");
  if (!o.clean.empty()) {
    text += "; sensor model: full well " + short_number(o.model.full_well) + " e, read noise " +
            short_number(o.model.read_noise) + " e, luma blur";
    for (double blur : o.luma_blurs) text += " " + short_number(blur);
  }
  return text + ".";
}

// Reads every input once: a name that is wrong must not come to light after an hour of search.
void check_inputs(const tune_options& o) {
  if (o.clean.empty() && o.pairs.empty())
    throw error("tune", "needs clean pictures or --pair GAIN NOISY CLEAN");
  if (printable(o.name) != o.name) throw error("--name", "is no printable UTF-8 text");
  progress bar("checking", int64_t(o.clean.size() + o.pairs.size()), "inputs");
  int64_t done = 0;
  for (const std::string& path : o.clean) {
    read_picture(path, o.picture);
    bar.update(++done);
  }
  for (const noisy_pair& pair : o.pairs) {
    const tuning_sample s = read_pair(o, pair);
    const std::string fault = fault_of_pair(s.noisy, s.clean);
    if (!fault.empty() && !o.force)
      throw error(pair.noisy + " and " + pair.clean, fault + " (--force takes them)");
    bar.update(++done);
  }
}

// Opens a file to be written at the end, and refuses one that is read as well.
void open_output(const tune_options& o, const std::string& path, std::optional<output_file>& file) {
  if (path.empty()) return;
  std::vector<std::string> inputs = o.clean;
  for (const noisy_pair& pair : o.pairs) inputs.insert(inputs.end(), {pair.noisy, pair.clean});
  refuse_replacing(path, inputs);
  if (!o.force) refuse_replacing(path, {o.start_file});
  file.emplace(path);
}

void print_gain(double gain, const search_result& r, bool chroma) {
  print("%6g   %8.2f -> %.2f (%+.2f)", gain, r.luma_before.psnr, r.luma_after.psnr,
        r.luma_after.psnr - r.luma_before.psnr);
  if (chroma && r.chroma_after.psnr > 0)
    print("   %12.2f -> %.2f (%+.2f)", r.chroma_before.psnr, r.chroma_after.psnr,
          r.chroma_after.psnr - r.chroma_before.psnr);
  print("   %6d%s\n", r.trials, r.stopped ? "   stopped" : "");
  finish_standard_output();
}

// One run: what is asked for, where it goes, what was found.
class tuning_run {
 public:
  explicit tuning_run(const tune_options& o) : o_(o) {
    options_.goal = objective_of(o.objective_name);
    options_.threads = o.threads;
    options_.rounds = o.rounds;
    options_.corners = o.corners;
    options_.luma = !o.chroma_only;
    options_.chroma = !o.luma_only;
    options_.curves = !o.report.empty();
    if (!o.start_file.empty()) start_ = read_tuning_set(o.start_file);
    gains_ = all_gains(o);
    open_output(o, o.output, set_file_);
    open_output(o, o.report, report_file_);
    check_inputs(o);
    found_.name = o.name;
    found_.description = description(o);
  }

  int run() {
    std::signal(SIGINT, on_interrupt);
    print("  gain   luma before -> after, dB   chroma before -> after, dB   trials\n");
    try {
      for (size_t i = 0; i < gains_.size() && !stop_requested; ++i) search_gain(i);
    } catch (const std::exception& fault) {
      if (found_.entries.empty()) throw;
      write();
      throw error("", std::string(fault.what()) + "; " + o_.output +
                          " holds what was found before, up to gain " +
                          short_number(found_.entries.back().gain));
    }
    if (found_.entries.empty()) return kExitStopped;
    write();
    if (!stop_requested) return kExitOk;
    note("stopped; " + o_.output + " holds the best so far, up to gain " +
         short_number(found_.entries.back().gain));
    return kExitStopped;
  }

 private:
  void search_gain(size_t index) {
    const double gain = gains_[index];
    const std::vector<tuning_sample> samples = samples_for(o_, gain);
    const tuning first =
        start_.entries.empty() ? guess_tuning(samples) : start_.nearest(gain).values;
    progress bar("tuning", 100 * static_cast<int64_t>(gains_.size()), "steps");
    const search_result r = search_tuning(
        samples, first, options_,
        [&](const search_progress& p) {
          bar.update(static_cast<int64_t>(100 * index) + 100 * p.done / std::max(1, p.total),
                     "gain " + short_number(gain) + " " + p.note);
        },
        stop_requested);
    found_.entries.push_back({gain, r.best});
    bar.clear();
    print_gain(gain, r, options_.chroma);
    if (report_file_) add_to_report(gain, samples, r);
  }

  void add_to_report(double gain, const std::vector<tuning_sample>& samples,
                     const search_result& r) {
    report_entry entry;
    entry.gain = gain;
    entry.label = short_number(gain);
    entry.values = r.best;
    entry.sweeps = r.sweeps;
    entry.goal = options_.goal;
    entry.scored = true;
    entry.luma_before = r.luma_before;
    entry.luma_after = r.luma_after;
    entry.chroma_before = r.chroma_before;
    entry.chroma_after = r.chroma_after;
    entry.from_model = !o_.clean.empty();
    entry.model = o_.model;
    entry.model.gain = gain;
    const size_t pictures = std::min(samples.size(), kMostPictures);
    const int64_t pixels = report_pixels(pictures * gains_.size());
    for (size_t i = 0; i < pictures; ++i) {
      const tuning_sample& s = samples[i];
      frame after = s.noisy;
      denoiser(after.padded_width, after.padded_height).run(after, r.best);
      entry.pictures.push_back(make_report_picture(s.name, s.noisy, after, s.clean, pixels));
    }
    entry.pictures_left_out = samples.size() - pictures;
    entries_.push_back(std::move(entry));
  }

  void write() {
    const std::string set = tuning_set_to_json(found_);
    try {
      set_file_->write(set.data(), set.size());
      set_file_->commit();
    } catch (const error& fault) {  // a full disk must not cost the search
      print("%s", set.c_str());
      finish_standard_output();
      throw error("", fault.what() + std::string("; the set is on standard output"));
    }
    if (!report_file_) return;
    const std::string page = render_report("Tuning " + o_.name, found_.description, entries_);
    report_file_->write(page.data(), page.size());
    report_file_->commit();
  }

  // More would leave each of them a stamp's size.
  static constexpr size_t kMostPictures = 6;

  const tune_options& o_;
  search_options options_;
  tuning_set start_, found_;
  std::vector<double> gains_;
  std::optional<output_file> set_file_, report_file_;
  std::vector<report_entry> entries_;
};

int run(tune_options o) {
  if (const auto profile = take_sensor(o.sensor_file, o.model)) {
    o.luma_blurs = {o.model.luma_blur};
    if (!o.gains_given) {
      o.gains.clear();
      for (const sensor_row& row : profile->rows) o.gains.push_back(row.gain);
    }
  }
  return tuning_run(o).run();
}

void add_pairs(CLI::App& command, std::vector<noisy_pair>& pairs) {
  command
      .add_option_function<std::vector<std::string>>(
          "--pair",
          [&pairs](const std::vector<std::string>& texts) {
            for (const std::string& text : texts)
              if (text.size() > 1 && text[0] == '-')  // the next option, where a file is left out
                throw error("--pair", "needs all of GAIN NOISY CLEAN before " + text);
            for (size_t i = 0; i + 2 < texts.size(); i += 3) {
              pairs.push_back({real_number("--pair", texts[i], kLowestGain, kHighestGain),
                               texts[i + 1], texts[i + 2]});
            }
          },
          "The gain of a noisy picture, the picture and its clean version; may be repeated")
      ->type_size(3)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("GAIN NOISY CLEAN");
}

}  // namespace

void add_tune(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<tune_options>();
  CLI::App* const command =
      program.add_subcommand("tune", "Search a tuning set on pictures with a clean version");
  add_files(*command, "clean", o->clean,
            "Clean pictures; noise of the sensor model is added for every gain");
  add_pairs(*command, o->pairs);
  with_default(add_reals(*command, "--gains", o->gains, kLowestGain, kHighestGain,
                         "Gains to tune for with clean pictures"),
               o->gains);
  add_file(*command, "-o,--output", o->output, "The tuning set")->required();
  add_file(*command, "--report", o->report, "An HTML page with the pictures and the curves");
  command
      ->add_option("--objective", o->objective_name,
                   "psnr, ssim, or mix (PSNR less a price for lost texture)")
      ->capture_default_str();
  add_file(*command, "--start", o->start_file, "Start from this set and not from the noise");
  command->add_option("--name", o->name, "Name of the set")->capture_default_str();
  with_default(add_whole(*command, "--rounds", o->rounds, 1, 10, "Rounds, each with finer steps"),
               o->rounds);
  with_default(
      add_whole(*command, "--threads", o->threads, 0, 256, "Trials at a time; 0: one per core"),
      o->threads);
  command->add_flag("--corners", o->corners, "Search param0 too, for noise that rises outwards");
  CLI::Option* const luma = command->add_flag("--luma-only", o->luma_only, "Search luma alone");
  command->add_flag("--chroma-only", o->chroma_only, "Search chroma alone")->excludes(luma);
  command->add_flag("--force", o->force,
                    "Take pairs that look displaced or swapped; replace the set of --start");
  add_model_options(*command, o->model, &o->luma_blurs, &o->sensor_file);
  add_picture_options(*command, o->picture, false);
  command->footer(
      "All inputs and outputs are checked first; pairs have to lie upon each other to a third of "
      "a\n"
      "pixel. Ctrl-C ends the search and keeps the best so far.\n"
      "Example:\n"
      "  vorn-ycnr demo -o demo && vorn-ycnr tune demo/clean.png --gains 8 --rounds 1 -o set.json");
  command->callback([o, command, &chosen] {
    o->gains_given = command->count("--gains") > 0;
    chosen = [o] { return run(*o); };
  });
}

}  // namespace vorn::tool
