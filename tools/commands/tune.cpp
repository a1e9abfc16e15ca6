// vorn-ycnr tune: searches a tuning set on pictures whose clean version is known.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/commands/lab_options.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/lab/report_page.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {
namespace {

struct tune_options {
  std::vector<std::string> clean;
  std::vector<std::tuple<double, std::string, std::string>> pairs;  // gain, noisy, clean
  std::vector<double> gains = {1, 2, 4, 8, 16, 32, 64};
  std::string objective_name = "psnr";
  std::string start_file;
  std::string name = "tuned";
  std::string output;
  std::string report;
  int threads = 0;
  int rounds = 4;
  bool corners = false, luma_only = false, chroma_only = false;
  noise_model model;
  std::vector<double> luma_blurs = {0};
  picture_options picture;
};

std::atomic<bool> stop_requested{false};

// The second interrupt ends the program at once.
void on_interrupt(int) {
  stop_requested = true;
  std::signal(SIGINT, SIG_DFL);
}

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
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
  for (const auto& [pair_gain, noisy, clean] : o.pairs) {
    if (pair_gain != gain) continue;
    tuning_sample s;
    s.name = base_name(noisy);
    s.noisy = read_picture(noisy, o.picture);
    s.clean = read_picture(clean, o.picture);
    if (s.noisy.width != s.clean.width || s.noisy.height != s.clean.height)
      throw error(noisy, "its size differs from that of " + clean);
    samples.push_back(std::move(s));
  }
  return samples;
}

std::vector<double> all_gains(const tune_options& o) {
  std::vector<double> gains;
  if (!o.clean.empty()) gains = o.gains;
  for (const auto& pair : o.pairs) gains.push_back(std::get<0>(pair));
  for (double gain : gains)
    if (!(gain > 0)) throw error("--gains", "a gain must be above 0");
  std::sort(gains.begin(), gains.end());
  gains.erase(std::unique(gains.begin(), gains.end()), gains.end());
  return gains;
}

std::string short_number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
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

int run(const tune_options& o) {
  if (o.clean.empty() && o.pairs.empty())
    throw error("tune", "needs clean pictures or --pair GAIN NOISY CLEAN");
  search_options options;
  options.goal = objective_of(o.objective_name);
  options.threads = o.threads;
  options.rounds = o.rounds;
  options.corners = o.corners;
  options.luma = !o.chroma_only;
  options.chroma = !o.luma_only;
  const tuning_set start = o.start_file.empty() ? tuning_set{} : read_tuning_set(o.start_file);
  const std::vector<double> gains = all_gains(o);

  std::signal(SIGINT, on_interrupt);
  tuning_set found;
  found.name = o.name;
  found.description = description(o);
  std::vector<report_entry> entries;
  std::printf("  gain   luma before -> after, dB   chroma before -> after, dB   trials\n");
  progress bar("tuning", 100 * static_cast<int64_t>(gains.size()), "steps");
  for (size_t i = 0; i < gains.size() && !stop_requested; ++i) {
    const std::vector<tuning_sample> samples = samples_for(o, gains[i]);
    const tuning first =
        o.start_file.empty() ? guess_tuning(samples) : start.nearest(gains[i]).values;
    const search_result r = search_tuning(
        samples, first, options,
        [&](const search_progress& p) {
          bar.update(static_cast<int64_t>(100 * i) + 100 * p.done / std::max(1, p.total),
                     "gain " + short_number(gains[i]) + " " + p.note);
        },
        stop_requested);
    found.entries.push_back({gains[i], r.best});
    bar.clear();
    std::printf("%6g   %8.2f -> %.2f (%+.2f)", gains[i], r.luma_before.psnr, r.luma_after.psnr,
                r.luma_after.psnr - r.luma_before.psnr);
    if (options.chroma && r.chroma_after.psnr > 0)
      std::printf("   %12.2f -> %.2f (%+.2f)", r.chroma_before.psnr, r.chroma_after.psnr,
                  r.chroma_after.psnr - r.chroma_before.psnr);
    std::printf("   %6d%s\n", r.trials, r.stopped ? "   stopped" : "");
    std::fflush(stdout);

    if (o.report.empty()) continue;
    report_entry entry;
    entry.gain = gains[i];
    entry.label = short_number(gains[i]);
    entry.values = r.best;
    entry.sweeps = r.sweeps;
    entry.goal = options.goal;
    entry.scored = true;
    entry.luma_before = r.luma_before;
    entry.luma_after = r.luma_after;
    entry.chroma_before = r.chroma_before;
    entry.chroma_after = r.chroma_after;
    entry.from_model = !o.clean.empty();
    entry.model = o.model;
    entry.model.gain = gains[i];
    const tuning_sample& s = samples.front();
    frame after = s.noisy;
    denoiser(after.padded_width, after.padded_height).run(after, r.best);
    entry.pictures.push_back({s.name, s.noisy, std::move(after), s.clean, {}});
    entries.push_back(std::move(entry));
  }
  bar.clear();
  if (found.entries.empty()) return kExitStopped;
  write_file(o.output, tuning_set_to_json(found));
  if (!o.report.empty())
    write_file(o.report, render_report("Tuning " + o.name, found.description, entries));
  if (!stop_requested) return kExitOk;
  std::fprintf(stderr, "vorn-ycnr: stopped; %s holds the best so far, up to gain %g\n",
               o.output.c_str(), found.entries.back().gain);
  return kExitStopped;
}

}  // namespace

void add_tune(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<tune_options>();
  CLI::App* const command =
      program.add_subcommand("tune", "Search a tuning set on pictures with a clean version");
  command->add_option("clean", o->clean,
                      "Clean pictures; noise of the sensor model is added for every gain");
  command
      ->add_option("--pair", o->pairs,
                   "A noisy picture, its gain and its clean version; may be repeated")
      ->type_name("GAIN NOISY CLEAN");
  command->add_option("--gains", o->gains, "Gains to tune for with clean pictures")
      ->delimiter(',')
      ->capture_default_str();
  command->add_option("-o,--output", o->output, "The tuning set")->required();
  command->add_option("--report", o->report, "An HTML page with the pictures and the curves");
  command
      ->add_option("--objective", o->objective_name,
                   "psnr, ssim, or mix (PSNR less a price for lost texture)")
      ->capture_default_str();
  command->add_option("--start", o->start_file, "Start from this set and not from the noise");
  command->add_option("--name", o->name, "Name of the set")->capture_default_str();
  command->add_option("--rounds", o->rounds, "Rounds, each with finer steps")
      ->check(CLI::Range(1, 10))
      ->capture_default_str();
  command->add_option("--threads", o->threads, "Trials at a time; 0: one per core")
      ->check(CLI::Range(0, 256))
      ->capture_default_str();
  command->add_flag("--corners", o->corners, "Search param0 too, for noise that rises outwards");
  CLI::Option* const luma = command->add_flag("--luma-only", o->luma_only, "Search luma alone");
  command->add_flag("--chroma-only", o->chroma_only, "Search chroma alone")->excludes(luma);
  add_model_options(*command, o->model, &o->luma_blurs);
  add_picture_options(*command, o->picture, false);
  command->footer(
      "Ctrl-C ends the search and keeps the best so far.\n"
      "Example:\n"
      "  vorn-ycnr demo -o demo && vorn-ycnr tune demo/clean.png --gains 8 --rounds 1 -o set.json");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
