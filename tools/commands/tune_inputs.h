// What a search is asked for: the options of `tune`, and the samples that they name.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/lab/noise_model.h"
#include "tools/picture/picture_io.h"
#include "tools/tuning/tuning_bench.h"

namespace vorn::tool {

struct noisy_pair {
  double gain;
  std::string noisy, clean;
};

// Two noisy shots of one still scene.
struct shot_pair {
  double gain = 0;  // 0: not told
  std::string first, second;
};

struct tune_options {
  std::vector<std::string> clean;
  std::vector<noisy_pair> pairs;
  std::vector<shot_pair> bursts;
  std::vector<double> gains = {1, 2, 4, 8, 16, 32, 64};
  std::string objective_name = "psnr";
  std::string start_file;
  std::string name = "tuned";
  std::string output;
  std::string report;
  int threads = 0;
  int rounds = 4;
  bool corners = false, luma_only = false, chroma_only = false;
  bool force = false;
  bool ask_tell = false;
  noise_model model;
  std::vector<double> luma_blurs = {0};
  std::string sensor_file;
  bool gains_given = false;
  picture_options picture;
};

// Arguments of the command into o, which has to live on; gains_given once they are parsed.
void add_tune_options(CLI::App& command, tune_options& o);

// --sensor, where it is given: its noise, and its gains unless there are others.
void take_sensor(tune_options& o);

// Gains of bursts that were not told: from EXIF ISO, else from the noise; in words what was taken.
void find_gains(tune_options& o);

// Rising, each once.
std::vector<double> all_gains(const tune_options& o);
// The pictures of one gain with their noise: clean pictures first, every one with every blur, then
// the pairs, then the bursts, each shot of them held against the other, in the order of the command
// line.
size_t sample_count(const tune_options& o, double gain);
tuning_sample sample_at(const tune_options& o, double gain, size_t index);
std::vector<tuning_sample> samples_for(const tune_options& o, double gain);
// What can be told without reading a picture.
void check_options(const tune_options& o);
// Reads every input once: a name that is wrong must not come to light after an hour of search.
void check_inputs(const tune_options& o);
// An `error` when it is one of a pair or a burst that does not fit the other, unless --force takes
// it.
void check_sample(const tune_options& o, double gain, size_t index, const tuning_sample& s);

}  // namespace vorn::tool
