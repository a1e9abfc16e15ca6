#include "tools/commands/tune_inputs.h"

#include <algorithm>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/error.h"
#include "tools/lab/pair_check.h"
#include "tools/numbers.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

std::string base_name(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

tuning_sample read_pair(const tune_options& o, const noisy_pair& pair) {
  tuning_sample s;
  s.name = base_name(pair.noisy);
  s.noisy = read_picture(pair.noisy, o.picture);
  s.clean = read_picture(pair.clean, o.picture);
  if (s.noisy.width != s.clean.width || s.noisy.height != s.clean.height)
    throw error(pair.noisy, "its size differs from that of " + pair.clean);
  if (s.noisy.full_range != s.clean.full_range)
    throw error(pair.noisy, "not of the same sample range as " + pair.clean);
  return s;
}

void add_pairs(CLI::App& command, std::vector<noisy_pair>& pairs) {
  command
      .add_option_function<std::vector<std::string>>(
          "--pair",
          [&pairs](const std::vector<std::string>& texts) {
            for (const std::string& text : texts)
              if (text.size() > 1 && text[0] == '-')  // the next option, where a file is left out
                throw error("--pair", "needs all of GAIN NOISY CLEAN before " + text);
            for (size_t i = 0; i + 2 < texts.size(); i += 3) {
              pairs.push_back({real_number("--pair", texts[i], kLowestGain, kHighestGain),
                               texts[i + 1], texts[i + 2]});
            }
          },
          "The gain of a noisy picture, the picture and its clean version; may be repeated")
      ->type_size(3)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("GAIN NOISY CLEAN");
}

// Samples whose noise is the sensor model's. The clean pictures stand for every gain that is there.
size_t modelled(const tune_options& o) {
  return o.clean.size() * o.luma_blurs.size();
}

std::vector<noisy_pair> pairs_of(const tune_options& o, double gain) {
  std::vector<noisy_pair> pairs;
  for (const noisy_pair& pair : o.pairs)
    if (pair.gain == gain) pairs.push_back(pair);
  return pairs;
}

void check_pair(const tune_options& o, const noisy_pair& pair, const tuning_sample& s) {
  const std::string fault = o.force ? "" : fault_of_pair(s.noisy, s.clean);
  if (!fault.empty())
    throw error(pair.noisy + " and " + pair.clean, fault + " (--force takes them)");
}

}  // namespace

size_t sample_count(const tune_options& o, double gain) {
  return modelled(o) + pairs_of(o, gain).size();
}

tuning_sample sample_at(const tune_options& o, double gain, size_t index) {
  const size_t first_pair = modelled(o);
  if (index >= first_pair) return read_pair(o, pairs_of(o, gain).at(index - first_pair));
  const std::string& path = o.clean[index / o.luma_blurs.size()];
  tuning_sample s;
  s.name = base_name(path);
  s.clean = read_picture(path, o.picture);
  s.noisy = s.clean;
  noise_model model = o.model;
  model.gain = gain;
  model.luma_blur = o.luma_blurs[index % o.luma_blurs.size()];
  model.seed += index;
  add_noise(s.noisy, model);
  return s;
}

std::vector<tuning_sample> samples_for(const tune_options& o, double gain) {
  std::vector<tuning_sample> samples(sample_count(o, gain));
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = sample_at(o, gain, i);
  return samples;
}

std::vector<double> all_gains(const tune_options& o) {
  std::vector<double> gains;
  if (!o.clean.empty()) gains = o.gains;
  for (const noisy_pair& pair : o.pairs) gains.push_back(pair.gain);
  std::sort(gains.begin(), gains.end());
  gains.erase(std::unique(gains.begin(), gains.end()), gains.end());
  return gains;
}

void check_options(const tune_options& o) {
  if (o.clean.empty() && o.pairs.empty())
    throw error("tune", "needs clean pictures or --pair GAIN NOISY CLEAN");
  if (printable(o.name) != o.name) throw error("--name", "is no printable UTF-8 text");
}

void check_inputs(const tune_options& o) {
  progress bar("checking", int64_t(o.clean.size() + o.pairs.size()), "inputs");
  int64_t done = 0;
  for (const std::string& path : o.clean) {
    read_picture(path, o.picture);
    bar.update(++done);
  }
  for (const noisy_pair& pair : o.pairs) {
    check_pair(o, pair, read_pair(o, pair));
    bar.update(++done);
  }
}

void check_sample(const tune_options& o, double gain, size_t index, const tuning_sample& s) {
  if (index >= modelled(o)) check_pair(o, pairs_of(o, gain).at(index - modelled(o)), s);
}

void add_tune_options(CLI::App& command, tune_options& o) {
  add_files(command, "clean", o.clean,
            "Clean pictures; noise of the sensor model is added for every gain");
  add_pairs(command, o.pairs);
  with_default(add_reals(command, "--gains", o.gains, kLowestGain, kHighestGain,
                         "Gains to tune for with clean pictures"),
               o.gains);
  add_file(command, "-o,--output", o.output, "The tuning set")->required();
  add_file(command, "--report", o.report, "An HTML page with the pictures and the curves");
  command
      .add_option("--objective", o.objective_name,
                  "psnr, ssim, or mix (PSNR less a price for lost texture)")
      ->capture_default_str();
  add_file(command, "--start", o.start_file, "Start from this set and not from the noise");
  command.add_option("--name", o.name, "Name of the set")->capture_default_str();
  with_default(add_whole(command, "--rounds", o.rounds, 1, 10, "Rounds, each with finer steps"),
               o.rounds);
  with_default(
      add_whole(command, "--threads", o.threads, 0, 256, "Trials at a time; 0: one per core"),
      o.threads);
  command.add_flag("--corners", o.corners, "Search param0 too, for noise that rises outwards");
  CLI::Option* const luma = command.add_flag("--luma-only", o.luma_only, "Search luma alone");
  command.add_flag("--chroma-only", o.chroma_only, "Search chroma alone")->excludes(luma);
  command.add_flag("--force", o.force,
                   "Take pairs that look displaced or swapped; replace the set of --start");
  command.add_flag("--ask-tell", o.ask_tell,
                   "Ask on standard output for scores, take them on standard input");
  add_model_options(command, o.model, &o.luma_blurs, &o.sensor_file);
  add_picture_options(command, o.picture, false);
}

void take_sensor(tune_options& o) {
  const auto profile = take_sensor(o.sensor_file, o.model);
  if (!profile) return;
  o.luma_blurs = {o.model.luma_blur};
  if (o.gains_given) return;
  o.gains.clear();
  for (const sensor_row& row : profile->rows) o.gains.push_back(row.gain);
}

}  // namespace vorn::tool
