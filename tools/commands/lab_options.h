// Options that the measuring subcommands share.
#pragma once

#include <CLI/CLI.hpp>
#include <vector>

#include "tools/lab/noise_model.h"

namespace vorn::tool {

// --full-well, --read-noise, --luma-blur, --chroma-blur and --seed. The gain has an option of its
// own. With blurs,
// --luma-blur takes a list and goes there.
void add_model_options(CLI::App& command, noise_model& model, std::vector<double>* blurs = nullptr);

}  // namespace vorn::tool
