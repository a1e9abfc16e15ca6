// vorn-ycnr noise: how noisy are these pictures, and which tuning entry do they call for? Or puts
// the sensor model's noise on a clean one.
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/commands/lab_options.h"
#include "tools/lab/noise_meter.h"
#include "tools/picture/output_file.h"

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
};

using json = nlohmann::ordered_json;

json figure(double value) {
  return value < 0 ? json(nullptr) : json(std::round(value * 1e3) / 1e3);
}

std::string to_json(const noise_curve& curve, double gain, double entry) {
  json list = json::array();
  for (const noise_class& k : curve.classes) {
    list.push_back({{"brightness", figure(k.brightness)},
                    {"y", figure(k.y)},
                    {"u", figure(k.u)},
                    {"v", figure(k.v)},
                    {"blocks", k.blocks}});
  }
  const json all = {{"unit", "standard deviation in grey levels"},
                    {"classes", list},
                    {"y", figure(curve.y)},
                    {"u", figure(curve.u)},
                    {"v", figure(curve.v)},
                    {"correlation_y", std::round(curve.correlation_y * 1e3) / 1e3},
                    {"correlation_uv", std::round(curve.correlation_uv * 1e3) / 1e3},
                    {"model_gain", figure(gain)},
                    {"tuning_gain", entry}};
  return all.dump(2) + "\n";
}

void print_value(double value) {
  if (value < 0) {
    std::printf("%8s", "-");
  } else {
    std::printf("%8.2f", value);
  }
}

// A noisy version of one picture or stream, every frame with noise of its own.
int run_add(const noise_options& o) {
  if (o.inputs.size() != 1) throw error("--add", "takes one picture or stream");
  if (o.output.empty()) throw error("--add", "needs --output");
  const auto reader = open_reader(o.inputs[0], o.picture);
  std::unique_ptr<frame_writer> writer;
  noise_model model = o.model;
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

int run(const noise_options& o) {
  if (o.add_gain > 0) return run_add(o);
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
  if (curve.classes.empty())
    throw error(o.inputs.front(), "no part is large and calm enough to measure noise in");

  const tuning_set set =
      o.tuning_file.empty() ? default_tuning_set() : read_tuning_set(o.tuning_file);
  const double gain = gain_of(curve, o.model);
  const double entry = set.nearest(gain).gain;

  if (o.json_file != "-") {
    std::printf("standard deviation of the noise in grey levels\n");
    std::printf("brightness       Y       U       V   blocks\n");
    for (const noise_class& k : curve.classes) {
      std::printf("%10.0f", k.brightness);
      print_value(k.y);
      print_value(k.u);
      print_value(k.v);
      std::printf("%9d\n", k.blocks);
    }
    std::printf("%10s%8.2f%8.2f%8.2f\n", "all", curve.y, curve.u, curve.v);
    std::printf("correlation of horizontal neighbours: luma %.2f, chroma %.2f\n",
                curve.correlation_y, curve.correlation_uv);
    std::printf("like gain %.3g of the sensor model; tuning entry: gain %g of %s\n", gain, entry,
                o.tuning_file.empty() ? "the default set" : o.tuning_file.c_str());
  }
  if (!o.json_file.empty()) write_file(o.json_file, to_json(curve, gain, entry));
  return kExitOk;
}

}  // namespace

void add_noise_command(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<noise_options>();
  CLI::App* const command =
      program.add_subcommand("noise", "Measure the noise of pictures without a clean reference");
  command->add_option("input", o->inputs, "Pictures or streams")->required();
  CLI::Option* const flat =
      command->add_flag("--flat", o->flat, "Each picture shows an evenly lit surface");
  command->add_flag("--burst", o->burst, "The pictures are frames of one still scene")
      ->excludes(flat);
  command->add_option("--tuning", o->tuning_file, "Tuning set to pick the entry from");
  command->add_option("--json", o->json_file, "Write the figures here as well (- instead)");
  CLI::Option* const add =
      command
          ->add_option(
              "--add", o->add_gain,
              "Measure nothing: write the clean input with the sensor model's noise at this "
              "gain")
          ->type_name("GAIN")
          ->check(CLI::Range(1e-3, 1e4).description(""));
  command->add_option("-o,--output", o->output, "File for that")->type_name("OUT")->needs(add);
  add_model_options(*command, o->model);
  add_picture_options(*command, o->picture, true);
  command->footer(
      "Examples:\n"
      "  vorn-ycnr demo -o demo && vorn-ycnr noise demo/noisy_gain8.png\n"
      "  vorn-ycnr noise demo/clean.png --add 4 -o noisy.png");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
