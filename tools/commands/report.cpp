// vorn-ycnr report: one HTML page about what a tuning does to a picture.
#include <atomic>
#include <cstdio>
#include <string>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/report_page.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"

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
  refuse_replacing(o.output, {o.input, o.clean, o.tuning_choice.file});
  output_file page(o.output);  // before any work
  const size_t slash = o.input.find_last_of('/');
  const std::string name = slash == std::string::npos ? o.input : o.input.substr(slash + 1);
  frame before = read_picture(o.input, o.picture), clean;

  report_entry entry;
  entry.gain = o.tuning_choice.gain > 0 ? o.tuning_choice.gain : kDefaultGain;
  entry.goal = objective_of(o.objective_name);
  entry.values = o.tuning_choice.resolve();
  if (o.add_noise) {
    clean = before;
    entry.from_model = true;
    entry.model = o.model;
    entry.model.gain = entry.gain;
    add_noise(before, entry.model);
  } else if (!o.clean.empty()) {
    clean = read_picture(o.clean, o.picture);
    if (clean.width != before.width || clean.height != before.height)
      throw error(o.clean, "its size differs from that of " + o.input);
  }
  entry.label = short_number(entry.gain);

  if (clean.width > 0 && !o.no_sweeps) {
    search_options options;
    options.goal = entry.goal;
    options.luma = entry.values.luma.enable == 1;
    options.chroma = entry.values.chroma.enable == 1;
    const std::atomic<bool> stop{false};
    progress bar("sweeping", 0, "parameters");
    entry.sweeps = sweep_parameters(
        {{name, clean, before}}, entry.values, options,
        [&](const search_progress& s) { bar.update(s.done, s.note); }, stop);
  }

  frame after;
  std::vector<stage_time> fastest;
  naming(o.input, [&] {
    denoiser filter(before.padded_width, before.padded_height);
    // The fastest of several runs: the first one pays for cold memory, others for other work.
    for (int run = 0; run < 6; ++run) {
      after = before;
      const std::vector<stage_time> stages = filter.run_timed(after, entry.values);
      if (run == 0 || stages.back().ms < fastest.back().ms) fastest = stages;
    }
  });
  entry.pictures.push_back(make_report_picture(name, before, after, clean, report_pixels(1)));
  entry.pictures.back().stages = fastest;

  char subtitle[160];
  std::snprintf(subtitle, sizeof subtitle, "%d x %d, tuning for gain %g%s", before.width,
                before.height, entry.gain, o.add_noise ? ", noise of the sensor model" : "");
  const std::string text = render_report("Noise reduction of " + name, subtitle, {entry});
  page.write(text.data(), text.size());
  page.commit();
  return kExitOk;
}

}  // namespace

void add_report(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<report_options>();
  CLI::App* const command =
      program.add_subcommand("report", "Write one HTML page on what a tuning does to a picture");
  add_file(*command, "input", o->input, "The noisy picture")->required();
  add_file(*command, "-o,--output", o->output, "The page")->required();
  CLI::Option* const clean =
      add_file(*command, "--clean", o->clean, "The clean picture, for figures and sweeps");
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
