#include "tools/commands/lab_options.h"

#include "tools/commands/option_kinds.h"

namespace vorn::tool {

CLI::Option* add_sensor_option(CLI::App& command, std::string& file) {
  return add_file(command, "--sensor", file,
                  "Profile of the camera, made by noise --fit: gains are the camera's own");
}

std::optional<sensor_profile> take_sensor(const std::string& file, noise_model& model) {
  if (file.empty()) return std::nullopt;
  std::optional<sensor_profile> profile = read_sensor_profile(file);
  const double gain = model.gain;
  const uint64_t seed = model.seed;
  model = profile->model;
  model.gain = gain;
  model.seed = seed;
  return profile;
}

void add_model_options(CLI::App& command, noise_model& model, std::vector<double>* blurs,
                       std::string* sensor) {
  const char* const group = "Noise model";
  with_default(
      add_real(command, "--full-well", model.full_well, 10, 1e6, "Electrons at white at gain 1"),
      model.full_well)
      ->group(group);
  with_default(
      add_real(command, "--read-noise", model.read_noise, 0, 1e3, "Read noise in electrons"),
      model.read_noise)
      ->group(group);
  with_default(
      add_seed(command, "--seed", model.seed, "Another number, another picture of the same noise"),
      double(model.seed))
      ->group(group);
  const std::string blur = "How much the camera's demosaicing blurs luma noise, 0 to 1";
  if (blurs) {
    with_default(add_reals(command, "--luma-blur", *blurs, 0, 1,
                           blur + "; every picture is used with each of them"),
                 *blurs)
        ->group(group);
  } else {
    with_default(add_real(command, "--luma-blur", model.luma_blur, 0, 1, blur), model.luma_blur)
        ->group(group);
  }
  with_default(add_real(command, "--chroma-blur", model.chroma_blur, 0, 4,
                        "How far the camera blurs chroma noise: deviation in chroma samples"),
               model.chroma_blur)
      ->group(group);
  if (!sensor) return;
  CLI::Option* const file = add_sensor_option(command, *sensor)->group(group);
  for (const char* const own : {"--full-well", "--read-noise", "--luma-blur", "--chroma-blur"})
    file->excludes(own);
}

}  // namespace vorn::tool
