// vorn-ycnr report: one HTML page about what a tuning does to a picture.
#include <atomic>
#include <cstdio>
#include <string>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/commands/lab_options.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/lab/report_page.h"

namespace vorn::tool {
namespace {

struct report_options {
  std::string input;
  std::string clean;
  bool add_noise = false;
  std::string output;
  std::string objective_name = "psnr";
  bool no_sweeps = false;
  noise_model model;
  picture_options picture;
  tuning_options tuning_choice;
};

int run(const report_options& o) {
  report_picture p;
  const size_t slash = o.input.find_last_of('/');
  p.name = slash == std::string::npos ? o.input : o.input.substr(slash + 1);
  p.before = read_picture(o.input, o.picture);

  report_entry entry;
  entry.gain = o.tuning_choice.gain > 0 ? o.tuning_choice.gain : kDefaultGain;
  entry.goal = objective_of(o.objective_name);
  entry.values = o.tuning_choice.resolve();
  if (o.add_noise) {
    p.clean = p.before;
    entry.from_model = true;
    entry.model = o.model;
    entry.model.gain = entry.gain;
    add_noise(p.before, entry.model);
  } else if (!o.clean.empty()) {
    p.clean = read_picture(o.clean, o.picture);
    if (p.clean.width != p.before.width || p.clean.height != p.before.height)
      throw error(o.clean, "its size differs from that of " + o.input);
  }
  char label[32];
  std::snprintf(label, sizeof label, "%g", entry.gain);
  entry.label = label;

  if (p.clean.width > 0 && !o.no_sweeps) {
    search_options options;
    options.goal = entry.goal;
    options.luma = entry.values.luma.enable == 1;
    options.chroma = entry.values.chroma.enable == 1;
    const std::atomic<bool> stop{false};
    progress bar("sweeping", 0, "parameters");
    entry.sweeps = sweep_parameters(
        {{p.name, p.clean, p.before}}, entry.values, options,
        [&](const search_progress& s) { bar.update(s.done, s.note); }, stop);
  }

  // Last, because stage times need the library's log, which the sweeps do without.
  verbose_library_log();
  naming(o.input, [&] {
    denoiser filter(p.before.padded_width, p.before.padded_height);
    // The fastest of several runs: the first one pays for cold memory, others for other work.
    for (int run = 0; run < 6; ++run) {
      p.after = p.before;
      const std::vector<stage_time> stages = filter.run_timed(p.after, entry.values);
      if (run == 0 || stages.back().ms < p.stages.back().ms) p.stages = stages;
    }
  });

  char subtitle[160];
  std::snprintf(subtitle, sizeof subtitle, "%d x %d, tuning for gain %g%s", p.before.width,
                p.before.height, entry.gain, o.add_noise ? ", noise of the sensor model" : "");
  const std::string title = "Noise reduction of " + p.name;
  entry.pictures.push_back(std::move(p));
  write_file(o.output, render_report(title, subtitle, {entry}));
  return kExitOk;
}

}  // namespace

void add_report(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<report_options>();
  CLI::App* const command =
      program.add_subcommand("report", "Write one HTML page on what a tuning does to a picture");
  command->add_option("input", o->input, "The noisy picture")->required();
  command->add_option("-o,--output", o->output, "The page")->required();
  CLI::Option* const clean =
      command->add_option("--clean", o->clean, "The clean picture, for figures and sweeps");
  command
      ->add_flag("--add-noise", o->add_noise,
                 "The input is clean: add the sensor model's noise of this gain first")
      ->excludes(clean);
  command->add_option("--objective", o->objective_name, "Quality in the sweeps: psnr, ssim or mix")
      ->capture_default_str();
  command->add_flag("--no-sweeps", o->no_sweeps, "Leave out the curves over each parameter");
  add_tuning_options(*command, o->tuning_choice);
  add_model_options(*command, o->model);
  add_picture_options(*command, o->picture, false);
  command->footer(
      "Example:\n"
      "  vorn-ycnr demo -o demo && "
      "vorn-ycnr report demo/noisy_gain8.png --clean demo/clean.png -o report.html");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
