#include "tools/commands/tune_inputs.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/error.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_meter.h"
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

// One picture and what it is held against.
tuning_sample read_two(const tune_options& o, const std::string& noisy, const std::string& other) {
  tuning_sample s;
  s.name = base_name(noisy);
  s.noisy = read_picture(noisy, o.picture);
  s.clean = read_picture(other, o.picture);
  if (s.noisy.width != s.clean.width || s.noisy.height != s.clean.height)
    throw error(noisy, "its size differs from that of " + other);
  if (s.noisy.full_range != s.clean.full_range)
    throw error(noisy, "not of the same sample range as " + other);
  return s;
}

tuning_sample read_pair(const tune_options& o, const noisy_pair& pair) {
  return read_two(o, pair.noisy, pair.clean);
}

// Half of the mean squared difference is the variance of either shot's noise.
tuning_sample read_shots(const tune_options& o, const std::string& noisy,
                         const std::string& other) {
  tuning_sample s = read_two(o, noisy, other);
  s.luma_noise = mean_squared_error(luma_view(s.noisy), luma_view(s.clean)) / 2;
  s.chroma_noise = (mean_squared_error(u_view(s.noisy), u_view(s.clean)) +
                    mean_squared_error(v_view(s.noisy), v_view(s.clean))) /
                   4;
  return s;
}

// Index 2 i is the first shot of burst i, 2 i + 1 the second.
tuning_sample read_shot(const tune_options& o, const std::vector<shot_pair>& bursts, size_t index) {
  const shot_pair& burst = bursts.at(index / 2);
  return index % 2 == 0 ? read_shots(o, burst.first, burst.second)
                        : read_shots(o, burst.second, burst.first);
}

shot_pair shot_pair_of(const std::vector<std::string>& texts) {
  for (const std::string& text : texts)
    if (text.size() > 1 && text[0] == '-')  // the next option, where a file is left out
      throw error("--burst", "needs both of A B before " + text);
  if (texts.size() == 2) return {0, texts[0], texts[1]};
  if (texts[0].find_first_not_of("0123456789.") != std::string::npos)
    throw error("--burst",
                "takes two shots, A B or GAIN A B: clean pictures stand before it, others have a "
                "--burst of their own");
  return {real_number("--burst", texts[0], kLowestGain, kHighestGain), texts[1], texts[2]};
}

void add_bursts(CLI::App& command, std::vector<shot_pair>& bursts) {
  command
      .add_option_function<std::vector<std::vector<std::string>>>(
          "--burst",
          [&bursts](const std::vector<std::vector<std::string>>& all) {
            for (const auto& texts : all) bursts.push_back(shot_pair_of(texts));
          },
          "Two noisy shots of one still scene and their gain (without it from EXIF ISO or from "
          "the noise); may be repeated")
      ->type_size(2, 3)
      ->expected(1)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("[GAIN] A B");
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

std::vector<shot_pair> bursts_of(const tune_options& o, double gain) {
  std::vector<shot_pair> bursts;
  for (const shot_pair& burst : o.bursts)
    if (burst.gain == gain) bursts.push_back(burst);
  return bursts;
}

void check_pair(const tune_options& o, const noisy_pair& pair, const tuning_sample& s) {
  const std::string fault = o.force ? "" : fault_of_pair(s.noisy, s.clean);
  if (!fault.empty())
    throw error(pair.noisy + " and " + pair.clean, fault + " (--force takes them)");
}

// --force does not take one picture twice: its noise would be none.
void check_shots(const tune_options& o, const shot_pair& burst, const tuning_sample& s) {
  const bool same = s.noisy.data == s.clean.data;
  const std::string fault = o.force && !same ? "" : fault_of_shots(s.noisy, s.clean);
  if (!fault.empty())
    throw error(burst.first + " and " + burst.second,
                fault + (same ? "" : " (--force takes them)"));
}

}  // namespace

size_t sample_count(const tune_options& o, double gain) {
  return modelled(o) + pairs_of(o, gain).size() + 2 * bursts_of(o, gain).size();
}

tuning_sample sample_at(const tune_options& o, double gain, size_t index) {
  const size_t first_pair = modelled(o);
  if (index >= first_pair) {
    const std::vector<noisy_pair> pairs = pairs_of(o, gain);
    const size_t place = index - first_pair;
    return place < pairs.size() ? read_pair(o, pairs[place])
                                : read_shot(o, bursts_of(o, gain), place - pairs.size());
  }
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

void find_gains(tune_options& o) {
  for (shot_pair& burst : o.bursts) {
    if (burst.gain > 0) continue;
    if (o.ask_tell)  // whoever answers has to come to the same gain without the pictures
      throw error("--burst", "needs a gain before the shots with --ask-tell");
    const auto profile = o.sensor_file.empty() ? std::optional<sensor_profile>()
                                               : std::optional(read_sensor_profile(o.sensor_file));
    const int iso = exif_iso(open_reader(burst.first, o.picture)->info.metadata.exif);
    std::string why = "from ISO " + std::to_string(iso);
    burst.gain = iso / (profile ? profile->iso_at_gain_1 : 100.0);
    if (iso <= 0) {
      const tuning_sample s = read_two(o, burst.first, burst.second);
      const noise_gains like = gains_of(measure_noise({s.noisy, s.clean}, noise_scene::burst));
      if (like.luma <= 0)
        throw error(burst.first + " and " + burst.second,
                    "no noise found in their difference: there is nothing to tune for");
      const double exact = profile ? profile->from_default(like).luma : like.luma;
      burst.gain = std::round(exact * 10) / 10;
      why = profile ? "the noise is that gain's of " + o.sensor_file
                    : "the noise is what the default set takes for that gain";
    }
    burst.gain = std::clamp(burst.gain, kLowestGain, kHighestGain);
    note(burst.first + ": gain " + short_number(burst.gain) + ", " + why);
  }
}

std::vector<double> all_gains(const tune_options& o) {
  std::vector<double> gains;
  if (!o.clean.empty()) gains = o.gains;
  for (const noisy_pair& pair : o.pairs) gains.push_back(pair.gain);
  for (const shot_pair& burst : o.bursts) gains.push_back(burst.gain);
  std::sort(gains.begin(), gains.end());
  gains.erase(std::unique(gains.begin(), gains.end()), gains.end());
  return gains;
}

void check_options(const tune_options& o) {
  if (o.clean.empty() && o.pairs.empty() && o.bursts.empty())
    throw error("tune", "needs clean pictures, --pair GAIN NOISY CLEAN or --burst A B");
  if (!o.bursts.empty() && objective_of(o.objective_name) != objective::psnr)
    throw error("--objective",
                "--burst has psnr alone: in a noisy shot structure and texture "
                "cannot be told from noise");
  if (printable(o.name) != o.name) throw error("--name", "is no printable UTF-8 text");
}

void check_inputs(const tune_options& o) {
  const size_t inputs = o.clean.size() + o.pairs.size() + o.bursts.size();
  progress bar("checking", int64_t(inputs), "inputs");
  int64_t done = 0;
  for (const std::string& path : o.clean) {
    read_picture(path, o.picture);
    bar.update(++done);
  }
  for (const noisy_pair& pair : o.pairs) {
    check_pair(o, pair, read_pair(o, pair));
    bar.update(++done);
  }
  for (const shot_pair& burst : o.bursts) {
    check_shots(o, burst, read_two(o, burst.first, burst.second));
    bar.update(++done);
  }
}

void check_sample(const tune_options& o, double gain, size_t index, const tuning_sample& s) {
  if (index < modelled(o)) return;
  const std::vector<noisy_pair> pairs = pairs_of(o, gain);
  const size_t place = index - modelled(o);
  if (place < pairs.size()) {
    check_pair(o, pairs[place], s);
  } else if ((place - pairs.size()) % 2 == 0) {
    check_shots(o, bursts_of(o, gain).at((place - pairs.size()) / 2), s);
  }
}

void add_tune_options(CLI::App& command, tune_options& o) {
  add_files(command, "clean", o.clean,
            "Clean pictures; noise of the sensor model is added for every gain");
  add_pairs(command, o.pairs);
  add_bursts(command, o.bursts);
  with_default(add_reals(command, "--gains", o.gains, kLowestGain, kHighestGain,
                         "Gains to tune for with clean pictures"),
               o.gains);
  add_file(command, "-o,--output", o.output, "The tuning set")->required();
  add_file(command, "--report", o.report, "An HTML page with the pictures and the curves");
  command
      .add_option("--objective", o.objective_name,
                  "psnr, ssim, or mix (PSNR less a price for lost texture); psnr with --burst")
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
                   "Take pairs and bursts that do not seem to fit; replace the set of --start");
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
