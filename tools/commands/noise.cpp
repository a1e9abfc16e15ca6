// vorn-ycnr noise: how noisy are these pictures, and which tuning entry do they call for? Or puts
// the sensor model's noise on a clean one.
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/commands/noise_fit.h"
#include "tools/error.h"
#include "tools/lab/noise_meter.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

struct noise_options {
  std::vector<std::string> inputs;
  picture_options picture;
  bool flat = false;
  bool burst = false;
  std::string tuning_file;
  std::string json_file;
  double add_gain = 0;  // 0: measure
  std::string output;
  noise_model model;
  std::string sensor_file;
  bool fit = false;
  noise_fit_options fitting;
};

using json = nlohmann::ordered_json;

json figure(double value) {
  return value < 0 ? json(nullptr) : json(std::round(value * 1e3) / 1e3);
}

// Entries of a set for luma and chroma; 0 where no noise calls for one.
struct chosen_entries {
  noise_gains like;  // of the sensor model
  noise_gains entry;
};

json levels_json(const double* levels, int count) {
  json list = json::array();
  for (int l = 0; l < count; ++l) list.push_back(figure(levels[l]));
  return list;
}

std::string to_json(const noise_curve& curve, const chosen_entries& chosen) {
  json list = json::array();
  for (const noise_class& k : curve.classes) {
    list.push_back({{"brightness", figure(k.brightness)},
                    {"y", figure(k.y)},
                    {"u", figure(k.u)},
                    {"v", figure(k.v)},
                    {"blocks", k.blocks}});
  }
  const auto gain = [](double value) { return value > 0 ? figure(value) : json(nullptr); };
  const std::string doubt = doubt_of(curve);
  const json all = {{"unit", "standard deviation in grey levels"},
                    {"found", curve.all.found != 0},
                    {"doubt", doubt.empty() ? json(nullptr) : json(doubt)},
                    {"confidence", figure(curve.all.confidence)},
                    {"classes", list},
                    {"y", figure(curve.y)},
                    {"u", figure(curve.u)},
                    {"v", figure(curve.v)},
                    {"levels_y", levels_json(curve.all.luma_levels, VORN_NOISE_LEVELS)},
                    {"levels_uv", levels_json(curve.all.chroma_levels, 2)},
                    {"correlation_y", std::round(curve.correlation_y * 1e3) / 1e3},
                    {"correlation_uv", std::round(curve.correlation_uv * 1e3) / 1e3},
                    {"model_gain", gain(chosen.like.luma)},
                    {"model_gain_chroma", gain(chosen.like.chroma)},
                    {"tuning_gain", gain(chosen.entry.luma)},
                    {"tuning_gain_chroma", gain(chosen.entry.chroma)}};
  return all.dump(2) + "\n";
}

void print_value(double value) {
  if (value < 0) {
    print("%8s", "-");
  } else {
    print("%8.2f", value);
  }
}

void print_table(const noise_curve& curve) {
  print("standard deviation of the noise in grey levels\n");
  print("brightness       Y       U       V   blocks\n");
  for (const noise_class& k : curve.classes) {
    print("%10.0f", k.brightness);
    print_value(k.y);
    print_value(k.u);
    print_value(k.v);
    print("%9d\n", k.blocks);
  }
  print("%10s%8.2f%8.2f%8.2f\n", "all", curve.y, curve.u, curve.v);
  print("per pyramid level: luma");
  for (const double level : curve.all.luma_levels) print(" %.2f", level);
  print(", chroma %.2f %.2f\n", curve.all.chroma_levels[0], curve.all.chroma_levels[1]);
  print("correlation of neighbours: luma %.2f, chroma %.2f\n", curve.correlation_y,
        curve.correlation_uv);
}

void print_curve(const noise_curve& curve, const chosen_entries& chosen, const std::string& set,
                 const std::string& sensor) {
  if (!curve.classes.empty()) print_table(curve);
  const std::string doubt = doubt_of(curve);
  if (!doubt.empty()) print("doubtful: %s\n", doubt.c_str());
  if (curve.all.found == 0) {
    print("no noise found\n");
    return;
  }
  print("like gain %.3g (luma) and %.3g (chroma) of %s%s\n", chosen.like.luma, chosen.like.chroma,
        sensor.c_str(), doubt.empty() ? "" : ", taken lower for the doubt");
  print("tuning entries of %s: gain %g for luma, gain %g for chroma\n", set.c_str(),
        chosen.entry.luma, chosen.entry.chroma);
}

// Gains of the sensor, and the entries: of a set of --tuning for the same gains, of the default set
// for the gains of the sensor that it was made for.
chosen_entries choose(const noise_options& o, const noise_curve& curve, const tuning_set& set) {
  chosen_entries chosen{gains_of(curve, o.model), {}};
  if (curve.all.found == 0) return chosen;
  noise_gains picked = chosen.like;
  if (!o.sensor_file.empty()) {
    const noise_gains of_default = gains_of(curve);
    chosen.like = read_sensor_profile(o.sensor_file).from_default(of_default);
    picked = o.tuning_file.empty() ? of_default : chosen.like;
  }
  chosen.entry = {set.nearest(picked.luma).gain, set.nearest(picked.chroma).gain};
  return chosen;
}

// A noisy version of one picture or stream, every frame with noise of its own.
int run_add(const noise_options& o) {
  if (o.inputs.size() != 1) throw error("--add", "takes one picture or stream");
  if (o.output.empty()) throw error("--add", "needs --output");
  refuse_replacing(o.output, o.inputs);
  const auto reader = open_reader(o.inputs[0], o.picture);
  std::unique_ptr<frame_writer> writer;
  noise_model model = o.model;
  take_sensor(o.sensor_file, model);
  model.gain = o.add_gain;
  frame f;
  while (reader->next(f)) {
    add_noise(f, model);
    ++model.seed;
    if (!writer) writer = open_writer(o.output, o.picture, reader->info);
    writer->write(f);
  }
  writer->finish();
  return kExitOk;
}

int run_fit(const noise_options& o) {
  noise_fit_options fitting = o.fitting;
  fitting.inputs = o.inputs;
  fitting.picture = o.picture;
  fitting.burst = o.burst;
  fitting.output = o.output;
  return run_noise_fit(fitting);
}

int run(const noise_options& o) {
  if (o.fit) return run_fit(o);
  if (o.add_gain > 0) return run_add(o);
  if (!o.output.empty()) throw error("--output", "goes with --add or --fit");
  std::vector<frame> frames;
  for (const std::string& path : o.inputs) {
    const auto reader = open_reader(path, o.picture);
    frame f;
    while (reader->next(f)) {
      if (o.burst && !frames.empty() &&
          (f.width != frames[0].width || f.height != frames[0].height))
        throw error(path, "the frames of a burst must have one size");
      frames.push_back(f);
    }
  }
  if (o.burst && frames.size() < 2) throw error("--burst", "needs two frames or more of one scene");

  const noise_scene scene = o.burst  ? noise_scene::burst
                            : o.flat ? noise_scene::flat
                                     : noise_scene::any;
  const noise_curve curve = measure_noise(frames, scene);
  const tuning_set set = load_or_default(o.tuning_file);
  const chosen_entries chosen = choose(o, curve, set);

  if (o.json_file != "-")
    print_curve(curve, chosen, o.tuning_file.empty() ? "the default set" : o.tuning_file,
                o.sensor_file.empty() ? "the sensor model" : o.sensor_file);
  if (!o.json_file.empty()) write_file(o.json_file, to_json(curve, chosen));
  return kExitOk;
}

}  // namespace

void add_noise_command(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<noise_options>();
  CLI::App* const command =
      program.add_subcommand("noise", "Measure the noise of pictures without a clean reference");
  add_files(*command, "input", o->inputs, "Pictures or streams")->required();
  CLI::Option* const flat =
      command->add_flag("--flat", o->flat, "Each picture shows an evenly lit surface");
  command->add_flag("--burst", o->burst, "The pictures are frames of one still scene")
      ->excludes(flat);
  add_file(*command, "--tuning", o->tuning_file, "Tuning set to pick the entry from");
  add_file(*command, "--json", o->json_file, "Write the figures here as well (- instead)");
  CLI::Option* const add =
      add_real(*command, "--add", o->add_gain, kLowestGain, 1e4,
               "Measure nothing: write the clean input with the sensor model's noise at this gain")
          ->type_name("GAIN");
  add_file(*command, "-o,--output", o->output, "File for that")->type_name("OUT");
  CLI::Option* const fit =
      command
          ->add_flag("--fit", o->fit,
                     "Fit the sensor's noise to flats (or --burst) and write its profile")
          ->excludes(add);
  add_reals(*command, "--gain", o->fitting.gains, kLowestGain, 1e4,
            "Gains of the files in their order, or one of all; else from the ISO in EXIF data")
      ->type_name("GAIN,...")
      ->needs(fit)
      ->group("Fitting");
  with_default(add_real(*command, "--base-iso", o->fitting.base_iso, 1, 1e6, "The ISO of gain 1"),
               o->fitting.base_iso)
      ->needs(fit)
      ->group("Fitting");
  command->add_option("--name", o->fitting.name, "Name of the sensor")
      ->capture_default_str()
      ->needs(fit)
      ->group("Fitting");
  add_model_options(*command, o->model, nullptr, &o->sensor_file);
  add_picture_options(*command, o->picture, true);
  command->footer(
      "Examples:\n"
      "  vorn-ycnr demo -o demo && vorn-ycnr noise demo/noisy_gain8.png\n"
      "  vorn-ycnr noise demo/clean.png --add 4 -o noisy.png\n"
      "  vorn-ycnr noise iso100*.jpg iso800*.jpg --fit --burst -o sensor.json");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
