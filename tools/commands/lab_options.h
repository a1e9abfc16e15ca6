// Options that the measuring subcommands share.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/lab/noise_model.h"
#include "tools/lab/sensor_profile.h"

namespace vorn::tool {

// --full-well, --read-noise, --luma-blur, --chroma-blur and --seed. The gain has an option of its
// own. With blurs, --luma-blur takes a list and goes there; with sensor, --sensor goes there.
void add_model_options(CLI::App& command, noise_model& model, std::vector<double>* blurs = nullptr,
                       std::string* sensor = nullptr);

// --sensor, the file of a profile.
CLI::Option* add_sensor_option(CLI::App& command, std::string& file);

// The profile in a file, none where the name is empty; its numbers go to model, which keeps its
// gain and seed.
std::optional<sensor_profile> take_sensor(const std::string& file, noise_model& model);

}  // namespace vorn::tool
