// vorn-ycnr tune: searches a tuning set on pictures whose clean version is known.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/commands/score.h"
#include "tools/commands/tune_inputs.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/report_page.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"
#include "tools/tuning/ask_tell.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {
namespace {

std::atomic<bool> stop_requested{false};

// The second interrupt ends the program at once.
void on_interrupt(int) {
  static const char kLine[] = "\nvorn-ycnr: stopping with the best so far (again: at once)\n";
  stop_requested = true;
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  const ssize_t written = write(STDERR_FILENO, kLine, sizeof kLine - 1);
  (void)written;
}

std::string description(const tune_options& o) {
  const size_t pictures = o.clean.size() + o.pairs.size() + 2 * o.bursts.size();
  std::string text = "Searched for best " + o.objective_name + " on " + std::to_string(pictures) +
                     (pictures == 1 ? " picture" : " pictures");
  if (!o.clean.empty()) {
    text += "; sensor model: full well " + short_number(o.model.full_well) + " e, read noise " +
            short_number(o.model.read_noise) + " e, luma blur";
    for (double blur : o.luma_blurs) text += " " + short_number(blur);
  }
  if (!o.bursts.empty()) text += "; shots held against each other, PSNR as estimated";
  return text + ".";
}

// Opens a file to be written at the end, and refuses one that is read as well.
void open_output(const tune_options& o, const std::string& path, std::optional<output_file>& file) {
  if (path.empty()) return;
  std::vector<std::string> inputs = o.clean;
  for (const noisy_pair& pair : o.pairs) inputs.insert(inputs.end(), {pair.noisy, pair.clean});
  for (const shot_pair& burst : o.bursts) inputs.insert(inputs.end(), {burst.first, burst.second});
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

using half_psnr = std::pair<double, double>;  // before, after

std::vector<half_psnr> halves_of(const search_result& r) {
  return {{r.luma_before.psnr, r.luma_after.psnr}, {r.chroma_before.psnr, r.chroma_after.psnr}};
}

// The same where standard output is the engine's.
void note_gain(double gain, const search_result& r) {
  std::string text = "gain " + short_number(gain) + ": " + std::to_string(r.trials) + " trials";
  constexpr const char* kNames[] = {", luma ", ", chroma "};
  for (int i = 0; i < 2; ++i) {
    const auto [before, after] = halves_of(r)[i];
    char figures[64];
    std::snprintf(figures, sizeof figures, "%.2f -> %.2f dB", before, after);
    if (after > 0) text += std::string(kNames[i]) + figures;
  }
  note(text + (r.stopped ? ", stopped" : ""));
}

// The words after the command's name.
std::vector<std::string> own_arguments() {
  const std::vector<std::string>& words = command_words();
  return {words.empty() ? words.end() : words.begin() + 1, words.end()};
}

std::string here() {
  std::error_code fault;
  return std::filesystem::current_path(fault).string();
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
    if (o.ask_tell) {
      if (o.output == "-") throw error("--output", "standard output is taken by --ask-tell");
      engine_.emplace(STDIN_FILENO, STDOUT_FILENO, stop_requested);
    } else {
      check_inputs(o);
    }
    found_.name = o.name;
    found_.description = description(o);
  }

  int run() {
    std::signal(SIGINT, on_interrupt);
    std::signal(SIGTERM, on_interrupt);
    try {
      if (engine_) begin_asking();
      if (!engine_)
        print("  gain   luma before -> after, dB   chroma before -> after, dB   trials\n");
      for (size_t i = 0; i < gains_.size() && !stop_requested; ++i) search_gain(i);
    } catch (const std::exception& fault) {
      if (found_.entries.empty()) end_asking(fault.what());
      if (found_.entries.empty()) throw;
      write();
      end_asking(fault.what());
      throw error("", std::string(fault.what()) + "; " + o_.output +
                          " holds what was found before, up to gain " +
                          short_number(found_.entries.back().gain));
    }
    const std::string fault = engine_ ? engine_->fault() : "";
    if (!found_.entries.empty()) write();
    end_asking(fault);
    if (found_.entries.empty()) {
      if (!fault.empty()) throw error("", fault);
      return kExitStopped;
    }
    const std::string kept = o_.output + " holds the best so far, up to gain " +
                             short_number(found_.entries.back().gain);
    if (!fault.empty()) throw error("", fault + "; " + kept);
    if (!stop_requested) return kExitOk;
    note("stopped; " + kept);
    return kExitStopped;
  }

 private:
  // The job, and every sample as it comes in: whoever answers reads all inputs once before the
  // search begins.
  void begin_asking() {
    std::signal(SIGPIPE, SIG_IGN);  // an engine that goes away must not take the best with it
    std::vector<std::pair<double, size_t>> counts;
    for (double gain : gains_) counts.emplace_back(gain, sample_count(o_, gain));
    engine_->send(job_line({VORN_TOOL_VERSION, here(), own_arguments()}, counts));
    for (const auto& [gain, count] : counts) inputs_.push_back(ask_inputs(*engine_, gain, count));
  }

  void end_asking(const std::string& fault) {
    if (!engine_) return;
    engine_->send(
        end_line(stop_requested, found_.entries.empty() ? std::string() : o_.output, fault));
    engine_->finish();
  }

  void search_gain(size_t index) {
    const double gain = gains_[index];
    std::vector<tuning_sample> samples;
    if (!engine_ || report_file_) samples = samples_for(o_, gain);
    std::unique_ptr<scorer> where = engine_ ? score_elsewhere(*engine_, gain, inputs_[index])
                                            : score_here(samples, options_.goal, options_.threads);
    const tuning first =
        start_.entries.empty() ? guess_tuning(where->inputs()) : start_.nearest(gain).values;
    progress bar("tuning", 100 * static_cast<int64_t>(gains_.size()), "steps");
    const search_result r = search_tuning(
        std::move(where), first, options_,
        [&](const search_progress& p) {
          const int steps = std::max(1, p.total);
          bar.update(static_cast<int64_t>(100 * index) + 100 * p.done / steps,
                     "gain " + short_number(gain) + " " + p.note);
          const double share = static_cast<double>(p.done) / steps + static_cast<double>(index);
          if (engine_)
            engine_->send(progress_line(gain, p.done, steps, p.note,
                                        share / static_cast<double>(gains_.size())));
        },
        stop_requested);
    found_.entries.push_back({gain, r.best});
    bar.clear();
    if (!engine_) print_gain(gain, r, options_.chroma);
    if (engine_) note_gain(gain, r);
    if (engine_) engine_->send(found_line(gain, r.trials, r.stopped, halves_of(r)));
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
      const frame none;
      entry.pictures.push_back(make_report_picture(
          s.name, s.noisy, after, s.held_against().noisy() ? none : s.clean, pixels));
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
      if (engine_) {
        std::fputs(set.c_str(), stderr);
        throw error("", fault.what() + std::string("; the set is on standard error"));
      }
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
  std::optional<engine_channel> engine_;           // with --ask-tell
  std::vector<std::vector<sample_input>> inputs_;  // by gain, then sample; with engine_
  std::vector<report_entry> entries_;
};

int run(tune_options o) {
  take_sensor(o);
  check_options(o);
  find_gains(o);
  return tuning_run(o).run();
}

}  // namespace

void add_tune(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<tune_options>();
  CLI::App* const command =
      program.add_subcommand("tune", "Search a tuning set on clean pictures, pairs or bursts");
  add_tune_options(*command, *o);
  command->footer(
      "All inputs and outputs are checked first; pairs have to lie upon each other to a\n"
      "third of a pixel, shots of --burst to a sixth. Ctrl-C ends the search and keeps\n"
      "the best so far.\n"
      "--ask-tell leaves the trials, and the reading of the pictures, to an engine of\n"
      "your own that talks in JSON lines: docs/farm.md. vorn-ycnr score answers them.\n"
      "Example:\n"
      "  vorn-ycnr demo -o demo && vorn-ycnr tune demo/clean.png --gains 8 --rounds 1 -o set.json");
  command->callback([o, command, &chosen] {
    o->gains_given = command->count("--gains") > 0;
    chosen = [o] { return run(*o); };
  });
}

}  // namespace vorn::tool
