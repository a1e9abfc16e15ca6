#include "tools/commands/lab_options.h"

namespace vorn::tool {

void add_model_options(CLI::App& command, noise_model& model, std::vector<double>* blurs) {
  const char* const group = "Noise model";
  command.add_option("--full-well", model.full_well, "Electrons at white at gain 1")
      ->check(CLI::Range(10.0, 1e6))
      ->capture_default_str()
      ->group(group);
  command.add_option("--read-noise", model.read_noise, "Read noise in electrons")
      ->check(CLI::Range(0.0, 1e3))
      ->capture_default_str()
      ->group(group);
  command.add_option("--seed", model.seed, "Another number, another picture of the same noise")
      ->capture_default_str()
      ->group(group);
  const char* const blur_help = "How much the camera's demosaicing blurs luma noise, 0 to 1";
  CLI::Option* const blur =
      blurs != nullptr
          ? command
                .add_option("--luma-blur", *blurs,
                            std::string(blur_help) + "; every picture is used with each of them")
                ->delimiter(',')
          : command.add_option("--luma-blur", model.luma_blur, blur_help);
  blur->check(CLI::Range(0.0, 1.0))->capture_default_str()->group(group);
}

}  // namespace vorn::tool
