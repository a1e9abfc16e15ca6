// Sensor profiles: a model's pictures give the model back, what they cannot tell is refused, and
// the file and its mapping of gains hold.
#include <gtest/gtest.h>

#include <cmath>

#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/sensor_fit.h"
#include "tools/picture/metadata.h"

namespace vorn::tool {
namespace {

noise_model camera() {
  noise_model m;
  m.full_well = 6000;
  m.read_noise = 4;
  m.luma_blur = 0.5;
  m.chroma_blur = 0.85;
  m.chroma_strength = 0.7;
  m.seed = 77;
  return m;
}

frame grey(int side, int level) {
  frame f = make_frame(side, side);
  std::fill(f.luma(), f.chroma(), uint8_t(level));
  std::fill(f.chroma(), f.data.data() + f.data.size(), uint8_t{128});
  return f;
}

// Flats from dark to bright of one gain, each with noise of its own.
sensor_shots flats(noise_model m, double gain, int side = 256) {
  sensor_shots s;
  s.gain = m.gain = gain;
  for (int level = 20; level <= 230; level += 30) {
    frame f = grey(side, level);
    ++m.seed;
    add_noise(f, m);
    s.frames.push_back(std::move(f));
    s.names.push_back("flat" + std::to_string(level));
  }
  return s;
}

sensor_shots burst(noise_model m, double gain, int frames) {
  sensor_shots s;
  s.gain = m.gain = gain;
  for (int i = 0; i < frames; ++i) {
    frame f = draw_chart(960, 720);
    std::fill(f.chroma(), f.data.data() + f.data.size(), uint8_t{128});
    ++m.seed;
    add_noise(f, m);
    s.frames.push_back(std::move(f));
    s.names.push_back("shot" + std::to_string(i));
  }
  return s;
}

// What the message of the fit's refusal says; empty when it does not refuse.
std::string refusal(const std::vector<sensor_shots>& shots, bool is_burst) {
  try {
    fit_sensor(shots, is_burst);
  } catch (const error& fault) {
    return fault.what();
  }
  return "";
}

void expect_camera(const sensor_fit& fit, double share) {
  const noise_model true_model = camera(), &m = fit.profile.model;
  EXPECT_NEAR(m.full_well / true_model.full_well, 1, share);
  EXPECT_NEAR(m.read_noise / true_model.read_noise, 1, share);
  EXPECT_NEAR(m.luma_blur, true_model.luma_blur, share);
  EXPECT_NEAR(m.chroma_blur / true_model.chroma_blur, 1, share);
  EXPECT_NEAR(m.chroma_strength / true_model.chroma_strength, 1, share);
  EXPECT_LT(fit.misfit, 0.03);
  EXPECT_LT(fit.full_well_error, 0.05);
}

TEST(SensorFit, ReturnsTheModelAndForetellsNoiseItHasNotSeen) {
  const sensor_fit fit =
      fit_sensor({flats(camera(), 2), flats(camera(), 8), flats(camera(), 32)}, false);
  expect_camera(fit, 0.05);
  // Through its file, at a gain and seeds of which it knows nothing.
  const sensor_profile profile =
      parse_sensor_profile(sensor_profile_to_json(fit.profile), "sensor.json");
  noise_model fitted = profile.model, true_model = camera();
  true_model.seed = 4001;
  const noise_points made = points_of(flats(fitted, 14, 256).frames, false);
  const noise_points seen = points_of(flats(true_model, 14, 256).frames, false);
  ASSERT_EQ(made.points.size(), seen.points.size());
  for (size_t i = 0; i < made.points.size(); ++i) {
    const noise_point &a = made.points[i], &b = seen.points[i];
    EXPECT_NEAR(std::sqrt(a.y / b.y), 1, 0.05) << b.brightness;
    EXPECT_NEAR(std::sqrt((a.u + a.v) / (b.u + b.v)), 1, 0.08) << b.brightness;
  }
}

TEST(SensorFit, TakesBurstsOfAnyStillScene) {
  expect_camera(fit_sensor({burst(camera(), 4, 3), burst(camera(), 16, 3)}, true), 0.08);
}

TEST(SensorFit, RefusesWhatDoesNotTell) {
  noise_model m = camera();
  // One brightness at one gain: photon and read noise look alike.
  sensor_shots one = flats(m, 8);
  one.frames.erase(one.frames.begin(), one.frames.end() - 1);
  EXPECT_NE(refusal({one}, false).find("cannot be told apart"), std::string::npos);
  // A scene is no flat, a scene that moves no burst.
  EXPECT_NE(refusal({burst(m, 8, 2)}, false).find("no evenly lit surface"), std::string::npos);
  sensor_shots moved = burst(m, 8, 2);
  std::rotate(moved.frames[1].data.begin(), moved.frames[1].data.begin() + 3,
              moved.frames[1].data.begin() + 960 * 720);
  EXPECT_NE(refusal({moved}, true).find("beside the burst's first frame"), std::string::npos);
  // Gains the wrong way round; nothing but white; no noise at all.
  sensor_shots low = flats(m, 4), high = flats(m, 16);
  std::swap(low.frames, high.frames);
  EXPECT_NE(refusal({low, high}, false).find("are the gains right"), std::string::npos);
  EXPECT_NE(refusal({{8, {grey(128, 255)}, {"white"}}}, false).find("16 are clipped"),
            std::string::npos);
  EXPECT_NE(refusal({{8, {grey(128, 90)}, {"clean"}}}, false).find("below what 8 bits show"),
            std::string::npos);
}

TEST(SensorProfile, MapsGainsBothWaysAndRefusesUnsoundFiles) {
  sensor_profile p;
  p.name = "camera";
  p.rows = {{2, 1, 1, 1, 0, 0, {1}, {1}, {1.5, 0.5}}, {8, 3, 2, 2, 0, 0, {3}, {2}, {6, 3}}};
  EXPECT_NEAR(p.like_default(4).luma, 3, 1e-9);
  EXPECT_NEAR(p.like_default(16).chroma, 6, 1e-9);  // beyond the rows stop by stop
  for (const double gain : {0.5, 3.0, 40.0}) {
    const noise_gains back = p.from_default(p.like_default(gain));
    EXPECT_NEAR(back.luma / gain, 1, 1e-9);
    EXPECT_NEAR(back.chroma / gain, 1, 1e-9);
  }
  const std::string sound = sensor_profile_to_json(p);
  EXPECT_EQ(sensor_profile_to_json(parse_sensor_profile(sound, "a")), sound);
  const auto broken = [&](const std::string& from, const std::string& to) {
    std::string text = sound;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  for (const std::string& text :
       {std::string("{"), std::string("[]"), broken("sensor profile", "tuning set"),
        broken("\"full_well\": 4500.0", "\"full_well\": \"x\""), broken("4500.0", "1e400"),
        broken("\"gain\": 8.0", "\"gain\": 1.0"), broken("\"read_noise\"", "\"noise\"")})
    EXPECT_THROW(parse_sensor_profile(text, "a"), error) << text;
}

TEST(Exif, IsoIsFoundAndNonsenseIsNot) {
  // A directory with a pointer to the Exif directory, which has the ISO 800.
  for (const bool little : {true, false}) {
    std::vector<uint8_t> t = {uint8_t(little ? 'I' : 'M'), uint8_t(little ? 'I' : 'M')};
    const auto put = [&](uint32_t value, int bytes) {
      for (int i = 0; i < bytes; ++i)
        t.push_back(uint8_t(value >> 8 * (little ? i : bytes - 1 - i)));
    };
    put(42, 2), put(8, 4);
    put(1, 2), put(0x8769, 2), put(4, 2), put(1, 4), put(26, 4), put(0, 4);
    put(1, 2), put(0x8827, 2), put(3, 2), put(1, 4), put(800, 2), put(0, 2), put(0, 4);
    EXPECT_EQ(exif_iso(t), 800);
    for (size_t size = 0; size < 38; ++size)
      EXPECT_EQ(exif_iso({t.begin(), t.begin() + ptrdiff_t(size)}), 0) << size;
    t[little ? 18 : 21] = 0xff;  // the Exif directory lies behind the end
    EXPECT_EQ(exif_iso(t), 0);
  }
}

}  // namespace
}  // namespace vorn::tool
