// vorn-ycnr compare: how far pictures are from the first one, in figures and for the eye.
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/lab/metrics.h"
#include "tools/picture/output_file.h"
#include "tools/picture/sheet.h"

namespace vorn::tool {
namespace {

struct compare_args {
  std::vector<std::string> files;
  std::string difference;
  std::string sheet;
  std::string json;
  int amplify = 8;
  int x = -1;
  int y = -1;
  picture_options pictures;
};

std::string base_name(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Sums figures over the frames of a stream.
void add(quality& sum, const quality& q) {
  sum.psnr_y += q.psnr_y;
  sum.psnr_u += q.psnr_u;
  sum.psnr_v += q.psnr_v;
  sum.psnr_uv += q.psnr_uv;
  sum.ssim_y += q.ssim_y;
  sum.ssim_u += q.ssim_u;
  sum.ssim_v += q.ssim_v;
  sum.mean_shift_y += q.mean_shift_y;
  sum.mean_shift_u += q.mean_shift_u;
  sum.mean_shift_v += q.mean_shift_v;
}

nlohmann::json number(double value) {
  // JSON has no infinity, which is the PSNR of equal channels.
  return std::isfinite(value) ? nlohmann::json(value) : nlohmann::json("inf");
}

void check_alike(const frame& f, const std::string& name, const frame& first,
                 const std::string& first_name) {
  if (f.width != first.width || f.height != first.height) {
    throw error(name, std::to_string(f.width) + "x" + std::to_string(f.height) + " pixels, but " +
                          first_name + " has " + std::to_string(first.width) + "x" +
                          std::to_string(first.height));
  }
  if (f.full_range != first.full_range) {
    throw error(name, "not of the same sample range as " + first_name);
  }
}

int run_compare(const compare_args& args) {
  if (args.files.size() < 2) throw error("compare", "two files or more are needed");
  std::vector<std::unique_ptr<frame_reader>> readers;
  for (const std::string& file : args.files) readers.push_back(open_reader(file, args.pictures));
  std::vector<frame> first(args.files.size());  // first frames, for the pictures
  std::vector<quality> sums(args.files.size());
  int64_t count = 0;
  for (;; count++) {
    std::vector<frame> frames(args.files.size());
    const auto next = [&](size_t i) {
      if (!readers[i]->next(frames[i])) return false;
      const int orientation = readers[i]->info.orientation;
      if (orientation != 1) frames[i] = upright(frames[i], orientation);
      return true;
    };
    const bool more = next(0);
    for (size_t i = 1; i < readers.size(); i++) {
      if (next(i) != more) {
        throw error(args.files[i], "not as many frames as " + args.files[0]);
      }
      if (!more) continue;
      check_alike(frames[i], args.files[i], frames[0], args.files[0]);
      add(sums[i], compare_frames(frames[i], frames[0]));
    }
    if (!more) break;
    if (count == 0) first = std::move(frames);
  }
  if (count == 0) throw error(args.files[0], "holds no frame");

  size_t widest = 10;
  for (const std::string& file : args.files) widest = std::max(widest, base_name(file).size());
  const int w = int(std::min<size_t>(widest, 48));
  std::printf("against %s, %dx%d, %lld frame%s\n", args.files[0].c_str(), first[0].width,
              first[0].height, static_cast<long long>(count), count == 1 ? "" : "s (means)");
  std::printf(
      "%-*s  PSNR Y       U       V     U+V   SSIM Y       U       V  shift Y      U      V\n", w,
      "");
  nlohmann::json results = nlohmann::json::array();
  std::vector<labelled_picture> columns;
  columns.push_back({base_name(args.files[0]), {}});
  for (size_t i = 1; i < args.files.size(); i++) {
    const quality& s = sums[i];
    const double n = double(count);
    std::printf("%-*s %7.2f %7.2f %7.2f %7.2f  %7.4f %7.4f %7.4f  %+7.2f %+6.2f %+6.2f\n", w,
                base_name(args.files[i]).c_str(), s.psnr_y / n, s.psnr_u / n, s.psnr_v / n,
                s.psnr_uv / n, s.ssim_y / n, s.ssim_u / n, s.ssim_v / n, s.mean_shift_y / n,
                s.mean_shift_u / n, s.mean_shift_v / n);
    results.push_back(
        {{"file", args.files[i]},
         {"psnr",
          {{"y", number(s.psnr_y / n)},
           {"u", number(s.psnr_u / n)},
           {"v", number(s.psnr_v / n)},
           {"uv", number(s.psnr_uv / n)}}},
         {"ssim", {{"y", s.ssim_y / n}, {"u", s.ssim_u / n}, {"v", s.ssim_v / n}}},
         {"mean_shift",
          {{"y", s.mean_shift_y / n}, {"u", s.mean_shift_u / n}, {"v", s.mean_shift_v / n}}}});
    char label[128];
    std::snprintf(label, sizeof label, "%.28s  Y %.2f UV %.2f dB", base_name(args.files[i]).c_str(),
                  s.psnr_y / n, s.psnr_uv / n);
    columns.push_back({label, {}});
  }
  if (!args.json.empty()) {
    const nlohmann::json document = {
        {"reference", args.files[0]}, {"frames", count}, {"results", results}};
    write_file(args.json, document.dump(2) + "\n");
  }
  if (!args.difference.empty()) {
    // Every picture's difference, side by side.
    rgb_image out;
    out.width = first[0].width * int(args.files.size() - 1);
    out.height = first[0].height;
    if (!frame_size_ok(out.width, out.height)) throw error(args.difference, "would be too large");
    out.data.resize(size_t(out.width) * out.height * 3);
    for (size_t i = 1; i < args.files.size(); i++) {
      const rgb_image difference = to_rgb(amplified_difference(first[i], first[0], args.amplify));
      draw_crop(out, int(i - 1) * first[0].width, 0, difference, 0, 0,
                std::max(difference.width, difference.height), 1);
    }
    write_file(args.difference, encode_png(out));
  }
  if (!args.sheet.empty()) {
    for (size_t i = 0; i < columns.size(); i++) columns[i].image = to_rgb(first[i]);
    write_file(args.sheet, encode_png(crop_sheet(columns, args.x < 0 ? first[0].width / 2 : args.x,
                                                 args.y < 0 ? first[0].height / 2 : args.y)));
  }
  return kExitOk;
}

}  // namespace

void add_compare(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("compare", "Measure pictures or streams against the first one");
  const auto args = std::make_shared<compare_args>();
  command->add_option("files", args->files, "The reference, then what is compared with it")
      ->type_name("FILE")
      ->required();
  command
      ->add_option("--diff", args->difference, "Write the amplified difference: grey where equal")
      ->type_name("PNG");
  command->add_option("--amplify", args->amplify, "Factor of that difference")
      ->type_name("N")
      ->check(CLI::Range(1, 255).description(""))
      ->capture_default_str();
  command->add_option("--sheet", args->sheet, "Write crops side by side at 1:1 and 4:1, labelled")
      ->type_name("PNG");
  command
      ->add_option_function<std::string>(
          "--at",
          [args](const std::string& text) {
            int used = 0;
            if (std::sscanf(text.c_str(), "%7d,%7d%n", &args->x, &args->y, &used) != 2 ||
                used != int(text.size()) || args->x < 0 || args->y < 0) {
              throw CLI::ValidationError("--at: \"" + text + "\" is not of the form 640,480");
            }
          },
          "Pixel in the middle of the crops; else the picture's middle")
      ->type_name("X,Y");
  command->add_option("--json", args->json, "Write the figures as JSON")->type_name("FILE");
  add_picture_options(*command, args->pictures, false);
  command->footer(
      "PSNR is 10 log10(255^2 / MSE) per channel, chroma at its own resolution. SSIM is the mean\n"
      "over the channel with an 11x11 Gaussian window (sigma 1.5), K1 0.01, K2 0.03. The shift is\n"
      "the difference of the means in grey levels.\n"
      "Example:\n"
      "  vorn-ycnr compare clean.png noisy.png denoised.png --sheet crops.png --diff diff.png");
  command->callback([args, &chosen] { chosen = [args] { return run_compare(*args); }; });
}

}  // namespace vorn::tool
