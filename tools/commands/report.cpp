// vorn-ycnr report: one HTML page about what a tuning, or two of them, do to pictures.
#include <atomic>
#include <cstdio>
#include <string>

#include "tools/commands/area_options.h"
#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/report_page.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

struct report_options {
  std::vector<std::string> inputs;
  std::vector<std::string> clean;  // one per input, or one of all
  bool add_noise = false;
  std::string output;
  std::string objective_name = "psnr";
  std::string against;  // another set
  bool no_sweeps = false;
  std::vector<rectangle> patches;
  noise_model model;
  picture_options picture;
  tuning_options tuning_choice;
};

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The inputs with their clean versions, empty where there are none; noise is added where asked.
std::vector<tuning_sample> read_samples(const report_options& o, const noise_model& model) {
  if (o.clean.size() > 1 && o.clean.size() != o.inputs.size())
    throw error("--clean", std::to_string(o.clean.size()) + " clean pictures for " +
                               std::to_string(o.inputs.size()) + " inputs");
  std::vector<tuning_sample> samples;
  for (size_t i = 0; i < o.inputs.size(); ++i) {
    tuning_sample s;
    s.name = base_name(o.inputs[i]);
    s.noisy = read_picture(o.inputs[i], o.picture);
    if (o.add_noise) {
      s.clean = s.noisy;
      noise_model own = model;
      own.seed += i;
      add_noise(s.noisy, own);
    } else if (!o.clean.empty()) {
      const std::string& clean = o.clean[o.clean.size() > 1 ? i : 0];
      s.clean = read_picture(clean, o.picture);
      if (s.clean.width != s.noisy.width || s.clean.height != s.noisy.height)
        throw error(clean, "its size differs from that of " + o.inputs[i]);
    }
    check_patches(o.patches, s.noisy, o.inputs[i]);
    samples.push_back(std::move(s));
  }
  return samples;
}

// One tuning's results, with times of the fastest of several runs: the first one pays for cold
// memory, others for other work.
report_entry entry_of(const report_options& o, const std::vector<tuning_sample>& samples,
                      const report_entry& kind, std::vector<frame>* results) {
  report_entry entry = kind;
  const size_t shares = samples.size() * (o.against.empty() ? 1 : 3);
  for (const tuning_sample& s : samples) {
    frame after;
    std::vector<stage_time> fastest;
    naming(s.name, [&] {
      denoiser filter(s.noisy.padded_width, s.noisy.padded_height);
      for (int run = 0; run < 6; ++run) {
        after = s.noisy;
        const std::vector<stage_time> stages = filter.run_timed(after, entry.values);
        if (run == 0 || stages.back().ms < fastest.back().ms) fastest = stages;
      }
    });
    entry.pictures.push_back(
        make_report_picture(s.name, s.noisy, after, s.clean, report_pixels(shares), o.patches));
    entry.pictures.back().stages = fastest;
    results->push_back(std::move(after));
  }
  return entry;
}

// Curves over every parameter, on all pictures; they have clean versions.
std::vector<parameter_sweep> sweep(const std::vector<tuning_sample>& samples,
                                   const report_entry& entry) {
  search_options options;
  options.goal = entry.goal;
  options.luma = entry.values.luma.enable == 1;
  options.chroma = entry.values.chroma.enable == 1;
  const std::atomic<bool> stop{false};
  progress bar("sweeping", 0, "parameters");
  return sweep_parameters(
      samples, entry.values, options, [&](const search_progress& s) { bar.update(s.done, s.note); },
      stop);
}

// The first tuning's results beside the other's, then each by itself.
std::vector<report_entry> side_by_side(const report_options& o,
                                       const std::vector<tuning_sample>& samples,
                                       const report_entry& kind) {
  const auto name_of = [](const std::string& file) {
    return file.empty() ? "default set" : base_name(file);
  };
  tuning_options other_choice = o.tuning_choice;
  other_choice.file = o.against;
  std::vector<frame> a, b;
  report_entry first = entry_of(o, samples, kind, &a);
  report_entry second = kind;
  second.values = other_choice.resolve();
  second = entry_of(o, samples, second, &b);
  const bool same = name_of(o.tuning_choice.file) == name_of(o.against);
  first.label = same ? o.tuning_choice.file : name_of(o.tuning_choice.file);
  second.label = same ? o.against : name_of(o.against);
  report_entry both = kind;
  both.values = second.values;
  both.against = first.values;
  both.label = first.label + " and " + second.label;
  both.before_name = first.label;
  both.after_name = second.label;
  both.from_model = false;
  for (size_t i = 0; i < samples.size(); ++i)
    both.pictures.push_back(make_report_picture(samples[i].name, a[i], b[i], samples[i].clean,
                                                report_pixels(3 * samples.size()), o.patches));
  return {both, first, second};
}

int run(const report_options& o) {
  std::vector<std::string> read = o.inputs;
  read.insert(read.end(), o.clean.begin(), o.clean.end());
  read.insert(read.end(), {o.tuning_choice.file, o.tuning_choice.sensor_file, o.against});
  refuse_replacing(o.output, read);
  output_file page(o.output);  // before any work

  report_entry entry;
  entry.gain = o.tuning_choice.gain > 0 ? o.tuning_choice.gain : kDefaultGain;
  entry.label = short_number(entry.gain);
  entry.goal = objective_of(o.objective_name);
  entry.values = o.tuning_choice.resolve();
  entry.from_model = o.add_noise;
  entry.model = o.model;
  take_sensor(o.tuning_choice.sensor_file, entry.model);
  entry.model.gain = entry.gain;
  const std::vector<tuning_sample> samples = read_samples(o, entry.model);

  std::vector<report_entry> entries;
  if (!o.against.empty()) {
    entries = side_by_side(o, samples, entry);
  } else {
    std::vector<frame> results;
    entries = {entry_of(o, samples, entry, &results)};
    if (samples[0].clean.width > 0 && !o.no_sweeps) entries[0].sweeps = sweep(samples, entry);
  }
  const std::string noise = o.add_noise ? ", noise of the sensor model" : "";
  const std::string what = samples.size() == 1 ? std::to_string(samples[0].noisy.width) + " x " +
                                                     std::to_string(samples[0].noisy.height)
                                               : std::to_string(samples.size()) + " pictures";
  const std::string title = samples.size() == 1 ? samples[0].name : what;
  const std::string text =
      render_report("Noise reduction of " + title,
                    what + ", tuning for gain " + short_number(entry.gain) + noise, entries);
  page.write(text.data(), text.size());
  page.commit();
  return kExitOk;
}

}  // namespace

void add_report(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<report_options>();
  CLI::App* const command =
      program.add_subcommand("report", "Write one HTML page on what a tuning does to pictures");
  add_files(*command, "input", o->inputs, "The noisy pictures")->required();
  add_file(*command, "-o,--output", o->output, "The page")->required();
  CLI::Option* const clean =
      add_files(
          *command, "--clean", o->clean,
          "The clean picture, for figures and sweeps; repeated: one per input, in their order")
          ->expected(1)
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command
      ->add_flag("--add-noise", o->add_noise,
                 "The inputs are clean: add the sensor model's noise of this gain first")
      ->excludes(clean);
  add_file(*command, "--against", o->against,
           "A second tuning set: its results beside those of --tuning");
  add_patch_option(*command, o->patches);
  command->add_option("--objective", o->objective_name, "Quality in the sweeps: psnr, ssim or mix")
      ->capture_default_str();
  command->add_flag("--no-sweeps", o->no_sweeps, "Leave out the curves over each parameter");
  add_tuning_options(*command, o->tuning_choice);
  add_model_options(*command, o->model);
  add_picture_options(*command, o->picture, false);
  command->footer(
      "Curves over each parameter need clean pictures, and no --against.\n"
      "Example:\n"
      "  vorn-ycnr demo -o demo && "
      "vorn-ycnr report demo/noisy_gain8.png --clean demo/clean.png -o report.html");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
