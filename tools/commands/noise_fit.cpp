#include "tools/commands/noise_fit.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "tools/error.h"
#include "tools/lab/sensor_fit.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

double gain_of(const noise_fit_options& o, size_t file, const frame_reader& reader) {
  if (o.gains.size() == 1) return o.gains[0];
  if (!o.gains.empty()) return o.gains[file];
  const int iso = exif_iso(reader.info.metadata.exif);
  if (iso <= 0)
    throw error(o.inputs[file],
                "tells no ISO in EXIF data: name the gains with --gain, one per "
                "file in their order");
  return iso / o.base_iso;
}

// The inputs' frames by gain.
std::vector<sensor_shots> read_shots(const noise_fit_options& o) {
  if (o.gains.size() > 1 && o.gains.size() != o.inputs.size())
    throw error("--gain", std::to_string(o.gains.size()) + " gains for " +
                              std::to_string(o.inputs.size()) + " files");
  std::map<double, sensor_shots> shots;
  for (size_t i = 0; i < o.inputs.size(); ++i) {
    const auto reader = open_reader(o.inputs[i], o.picture);
    const double gain = gain_of(o, i, *reader);
    sensor_shots& s = shots[gain];
    s.gain = gain;
    frame f;
    while (next_upright(*reader, f)) {
      if (o.burst && !s.frames.empty() &&
          (f.width != s.frames[0].width || f.height != s.frames[0].height))
        throw error(o.inputs[i], "the frames of a burst must have one size");
      s.frames.push_back(f);
      s.names.push_back(o.inputs[i]);
    }
  }
  std::vector<sensor_shots> list;
  for (auto& [gain, s] : shots) {
    if (o.burst && s.frames.size() < 2)
      throw error("--burst", "needs two frames or more of gain " + short_number(gain));
    list.push_back(std::move(s));
  }
  return list;
}

void print_fit(const sensor_fit& fit) {
  const noise_model& m = fit.profile.model;
  print("full well %.0f electrons, within %.1f %%\n", m.full_well, 100 * fit.full_well_error);
  if (fit.read_noise_error < 0.5) {
    print("read noise %.2f electrons, within %.0f %%\n", m.read_noise, 100 * fit.read_noise_error);
  } else {
    print("read noise cannot be told from none; taken as %.2f electrons\n", m.read_noise);
  }
  print("luma blur %.2f: neighbours correlated by %.2f, by %.2f in the fit\n", m.luma_blur,
        fit.luma_correlation, fit.luma_correlation_fitted);
  print("chroma blur %.2f samples: neighbours correlated by %.2f, by %.2f in the fit\n",
        m.chroma_blur, fit.chroma_correlation, fit.chroma_correlation_fitted);
  print("chroma noise %.2f times what the model has with that blur\n\n", m.chroma_strength);
}

void print_residuals(const sensor_fit& fit) {
  print("deviation of the noise in grey levels, measured and fitted\n");
  print("    gain  brightness   luma  fitted          chroma  fitted\n");
  for (const sensor_residual& r : fit.residuals) {
    const auto off = [](double made, double seen) {
      return seen > 0 ? 100 * (made / seen - 1) : 0;
    };
    print("%8g %11.0f %6.2f %7.2f %+5.0f %% %8.2f %7.2f %+5.0f %%\n", r.gain, r.brightness, r.luma,
          r.luma_fitted, off(r.luma_fitted, r.luma), r.chroma, r.chroma_fitted,
          off(r.chroma_fitted, r.chroma));
  }
  const char* const words = fit.misfit < 0.03  ? "the model describes this sensor"
                            : fit.misfit < 0.1 ? "the model is near this sensor"
                                               : "the model is only roughly like this sensor";
  print("luma is off by %.1f %% in the mean, by %+.1f %% at worst: %s\n\n", 100 * fit.misfit,
        100 * fit.worst, words);
  for (const sensor_row& row : fit.profile.rows)
    print("gain %g has noise like gain %.3g (luma) and %.3g (chroma) of the default set\n",
          row.gain, row.like.luma, row.like.chroma);
}

}  // namespace

int run_noise_fit(const noise_fit_options& o) {
  if (o.output.empty()) throw error("--fit", "needs --output for the profile");
  refuse_replacing(o.output, o.inputs);
  output_file file(o.output);  // before any work
  sensor_fit fit = fit_sensor(read_shots(o), o.burst);
  fit.profile.name = o.name;
  fit.profile.iso_at_gain_1 = o.base_iso;
  print_fit(fit);
  print_residuals(fit);
  for (const std::string& line : fit.notes) note(line);
  const std::string text = sensor_profile_to_json(fit.profile);
  parse_sensor_profile(text, o.output);  // what cannot be read again is not written
  file.write(text.data(), text.size());
  file.commit();
  return kExitOk;
}

}  // namespace vorn::tool
