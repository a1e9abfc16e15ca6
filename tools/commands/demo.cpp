// vorn-ycnr demo: the whole job on a picture that the program draws itself.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/metrics.h"
#include "tools/lab/noise_model.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

struct demo_args {
  std::string directory = "vorn-demo";
  std::vector<double> gains = {2, 8, 32};
  uint64_t seed = 1;
  picture_options pictures;
  tuning_options tuning;
};

void print_row(const char* name, const quality& q) {
  print("  %-9s %7.2f %7.2f %7.2f   %7.4f %7.4f %7.4f   %+6.2f %+6.2f %+6.2f\n", name, q.psnr_y,
        q.psnr_u, q.psnr_v, q.ssim_y, q.ssim_u, q.ssim_v, q.mean_shift_y, q.mean_shift_u,
        q.mean_shift_v);
}

// The same part of both pictures side by side, doubled in size.
rgb_image before_after(const frame& before, const frame& after) {
  const rgb_image left = to_rgb(before), right = to_rgb(after);
  const int side = std::min({320, left.width, left.height});
  const int x0 = (left.width - side) * 2 / 3, y0 = (left.height - side) * 2 / 3;
  rgb_image out;
  out.width = 4 * side + 8;
  out.height = 2 * side;
  out.data.assign(size_t(out.width) * out.height * 3, 255);
  for (int y = 0; y < 2 * side; y++) {
    for (int x = 0; x < 2 * side; x++) {
      const size_t from = (size_t(y0 + y / 2) * left.width + x0 + x / 2) * 3;
      const size_t to = (size_t(y) * out.width + x) * 3;
      std::memcpy(&out.data[to], &left.data[from], 3);
      std::memcpy(&out.data[to + size_t(2 * side + 8) * 3], &right.data[from], 3);
    }
  }
  return out;
}

std::string gain_name(double gain) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", gain);
  return text;
}

int run_demo(const demo_args& args) {
  make_directory(args.directory);
  const auto path = [&](const std::string& name) { return args.directory + "/" + name; };
  const int width = args.pictures.width ? args.pictures.width : 1280;
  const int height = args.pictures.height ? args.pictures.height : 960;
  if (width < 64 || height < 64 || !frame_size_ok(width, height)) {
    throw error("--size", "the chart needs 64x64 pixels or more");
  }
  const frame clean = draw_chart(width, height);
  write_picture(path("clean.png"), clean);

  denoiser library(clean.padded_width, clean.padded_height);
  std::vector<stage_time> stages;
  print("test chart, %dx%d, sensor noise with seed %llu\n", width, height,
        static_cast<unsigned long long>(args.seed));
  print("              PSNR dB                   SSIM                        mean shift\n");
  print("                  Y       U       V         Y       U       V        Y      U      V\n");
  noise_model sensor;
  take_sensor(args.tuning.sensor_file, sensor);
  for (const double gain : args.gains) {
    frame noisy = clean;
    noise_model model = sensor;
    model.gain = gain;
    model.seed = args.seed;
    add_noise(noisy, model);
    tuning_options options = args.tuning;
    if (options.gain == 0) options.gain = gain;
    const tuning t = options.resolve();
    frame denoised = noisy;
    library.run_timed(denoised, t);
    denoised = noisy;
    stages = library.run_timed(denoised, t);  // the first run paid for cold memory
    print("gain %s\n", gain_name(gain).c_str());
    print_row("noisy", compare_frames(noisy, clean));
    print_row("denoised", compare_frames(denoised, clean));
    write_picture(path("noisy_gain" + gain_name(gain) + ".png"), noisy);
    write_picture(path("denoised_gain" + gain_name(gain) + ".png"), denoised);
    write_file(path("before_after_gain" + gain_name(gain) + ".png"),
               encode_png(before_after(noisy, denoised)));
  }
  print("\nmilliseconds per stage (last gain)\n");
  for (const stage_time& stage : stages) {
    print("  %-40s %8.3f\n", stage.name.c_str(), stage.ms);
  }
  print("\npictures: %s/{clean,noisy_gain*,denoised_gain*,before_after_gain*}.png\n",
        args.directory.c_str());
  return kExitOk;
}

}  // namespace

void add_demo(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("demo", "Draw a test chart, add noise, denoise it, tell the quality");
  const auto args = std::make_shared<demo_args>();
  add_file(*command, "-o,--output", args->directory, "Directory for the pictures")
      ->type_name("DIR")
      ->default_str(args->directory);
  with_default(
      add_reals(*command, "--noise", args->gains, 0, 1e4, "Sensor gains of the noise to add"),
      args->gains)
      ->type_name("GAIN,...");
  with_default(add_seed(*command, "--seed", args->seed, "Seed of the noise"), double(args->seed));
  command
      ->add_option_function<std::string>(
          "--size", [args](const std::string& text) { parse_size(text, args->pictures); },
          "Size of the chart [1280x960]")
      ->type_name("WxH");
  add_tuning_options(*command, args->tuning);
  command->footer("Example:\n  vorn-ycnr demo -o demo --noise 4,16");
  command->callback([args, &chosen] { chosen = [args] { return run_demo(*args); }; });
}

}  // namespace vorn::tool
