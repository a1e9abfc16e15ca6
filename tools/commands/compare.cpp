// vorn-ycnr compare: how far pictures are from the first one, in figures and for the eye.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/commands/area_options.h"
#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/lab/area_json.h"
#include "tools/lab/metrics.h"
#include "tools/numbers.h"
#include "tools/picture/output_file.h"
#include "tools/picture/sheet.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

using nlohmann::ordered_json;

struct compare_args {
  std::vector<std::string> files;
  std::string difference;
  std::string sheet;
  std::string json;
  bool per_frame = false;
  int amplify = 8;
  int x = -1;
  int y = -1;
  std::vector<rectangle> patches;
  picture_options pictures;
};

// Of one file against the first.
struct file_figures {
  std::vector<quality> frames;
  std::vector<flicker> changes;  // from frame to frame, one less
};

// What was measured over all files; [0] is the reference, without figures.
struct measured {
  std::vector<file_figures> files;
  std::vector<frame> first;  // first frames, for the pictures
  size_t frame_count = 0;
};

std::string base_name(const std::string& path) {
  return printable(path.substr(path.rfind('/') + 1));
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

measured measure(const compare_args& args) {
  const size_t count = args.files.size();
  std::vector<std::unique_ptr<frame_reader>> readers;
  for (const std::string& file : args.files) readers.push_back(open_reader(file, args.pictures));
  measured all;
  all.files.resize(count);
  std::vector<frame> before;
  for (;; ++all.frame_count) {
    std::vector<frame> frames(count);
    const bool more = next_upright(*readers[0], frames[0]);
    for (size_t i = 1; i < count; ++i) {
      if (next_upright(*readers[i], frames[i]) != more)
        throw error(args.files[i], "not as many frames as " + args.files[0]);
      if (!more) continue;
      check_alike(frames[i], args.files[i], frames[0], args.files[0]);
      all.files[i].frames.push_back(compare_frames(frames[i], frames[0]));
      if (!before.empty())
        all.files[i].changes.push_back(flicker_between(frames[i], frames[0], before[i], before[0]));
    }
    if (!more) break;
    if (all.frame_count == 0) all.first = frames;
    before = std::move(frames);
  }
  if (all.frame_count == 0) throw error(args.files[0], "holds no frame");
  return all;
}

template <typename Record>
double mean_of(const std::vector<Record>& records, double Record::*figure) {
  double sum = 0;
  for (const Record& r : records) sum += r.*figure;
  return records.empty() ? 0 : sum / double(records.size());
}

// The frame with the least luma PSNR.
size_t worst_frame(const std::vector<quality>& frames) {
  size_t worst = 0;
  for (size_t i = 1; i < frames.size(); ++i)
    if (frames[i].psnr_y < frames[worst].psnr_y) worst = i;
  return worst;
}

quality means(const std::vector<quality>& frames) {
  quality m = {};
  for (double quality::*figure :
       {&quality::psnr_y, &quality::psnr_u, &quality::psnr_v, &quality::psnr_uv, &quality::ssim_y,
        &quality::ssim_u, &quality::ssim_v, &quality::mean_shift_y, &quality::mean_shift_u,
        &quality::mean_shift_v})
    m.*figure = mean_of(frames, figure);
  return m;
}

void print_row(int width, const std::string& name, const quality& q) {
  print("%-*s %7.2f %7.2f %7.2f %7.2f  %7.4f %7.4f %7.4f  %+7.2f %+6.2f %+6.2f", width,
        name.c_str(), q.psnr_y, q.psnr_u, q.psnr_v, q.psnr_uv, q.ssim_y, q.ssim_u, q.ssim_v,
        q.mean_shift_y, q.mean_shift_u, q.mean_shift_v);
}

void print_table(const compare_args& args, const measured& all) {
  size_t widest = 10;
  for (const std::string& file : args.files) widest = std::max(widest, base_name(file).size());
  const int w = int(std::min<size_t>(widest, 48));
  const bool video = all.frame_count > 1;
  print("against %s, %dx%d, %zu frame%s\n", printable(args.files[0]).c_str(), all.first[0].width,
        all.first[0].height, all.frame_count, video ? "s (means)" : "");
  print("%-*s  PSNR Y       U       V     U+V   SSIM Y       U       V  shift Y      U      V%s\n",
        w, "", video ? "  worst Y  frame  flicker" : "");
  for (size_t i = 1; i < args.files.size(); ++i) {
    const file_figures& figures = all.files[i];
    print_row(w, base_name(args.files[i]), means(figures.frames));
    if (video) {
      const size_t worst = worst_frame(figures.frames);
      print("  %7.2f %6zu  %7.3f", figures.frames[worst].psnr_y, worst,
            mean_of(figures.changes, &flicker::y));
    }
    print("\n");
    if (!args.per_frame) continue;
    for (size_t n = 0; n < figures.frames.size(); ++n) {
      print_row(w, "  frame " + std::to_string(n), figures.frames[n]);
      if (n > 0) print("  %14s  %7.3f", "", figures.changes[n - 1].y);
      print("\n");
    }
  }
}

void print_areas(const compare_args& args, const measured& all) {
  std::vector<std::string> names;
  std::vector<const frame*> frames;
  for (size_t i = 0; i < args.files.size(); ++i) {
    names.push_back(base_name(args.files[i]));
    frames.push_back(&all.first[i]);
  }
  print_patches(args.patches, names, frames, frames[0]);
}

ordered_json number(double value) {
  // JSON has no infinity, which is the PSNR of equal channels.
  return std::isfinite(value) ? ordered_json(value) : ordered_json("inf");
}

ordered_json quality_json(const quality& q) {
  return {{"psnr",
           {{"y", number(q.psnr_y)},
            {"u", number(q.psnr_u)},
            {"v", number(q.psnr_v)},
            {"uv", number(q.psnr_uv)}}},
          {"ssim", {{"y", q.ssim_y}, {"u", q.ssim_u}, {"v", q.ssim_v}}},
          {"mean_shift", {{"y", q.mean_shift_y}, {"u", q.mean_shift_u}, {"v", q.mean_shift_v}}}};
}

std::string to_json(const compare_args& args, const measured& all) {
  ordered_json results = ordered_json::array();
  for (size_t i = 1; i < args.files.size(); ++i) {
    const file_figures& figures = all.files[i];
    ordered_json result = {{"file", args.files[i]}};
    result.update(quality_json(means(figures.frames)));
    if (all.frame_count > 1) {
      const auto change = [&](double flicker::*plane) { return mean_of(figures.changes, plane); };
      const size_t worst = worst_frame(figures.frames);
      result["flicker"] = {
          {"y", change(&flicker::y)}, {"u", change(&flicker::u)}, {"v", change(&flicker::v)}};
      result["worst"] = {{"frame", worst}, {"psnr_y", number(figures.frames[worst].psnr_y)}};
      ordered_json list = ordered_json::array();
      for (size_t n = 0; n < figures.frames.size(); ++n) {
        list.push_back(quality_json(figures.frames[n]));
        if (n > 0) list.back()["flicker_y"] = figures.changes[n - 1].y;
      }
      result["per_frame"] = std::move(list);
    }
    results.push_back(std::move(result));
  }
  ordered_json document = {
      {"reference", args.files[0]}, {"frames", all.frame_count}, {"results", results}};
  for (const rectangle& r : args.patches) {
    ordered_json patch = {{"patch", patch_text(r)}, {"files", ordered_json::array()}};
    for (size_t i = 0; i < args.files.size(); ++i) {
      patch["files"].push_back({{"file", args.files[i]}});
      patch["files"].back().update(area_json(all.first[i], r, i > 0 ? all.first.data() : nullptr));
    }
    document["patches"].push_back(std::move(patch));
  }
  // File names may hold anything; what is no text is replaced.
  return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

// Every picture's difference, side by side.
std::vector<uint8_t> draw_differences(const compare_args& args, const std::vector<frame>& first) {
  rgb_image out;
  const int64_t width = int64_t(first[0].width) * int64_t(args.files.size() - 1);
  if (!frame_size_ok(width, first[0].height)) throw error(args.difference, "would be too large");
  out.width = int(width);
  out.height = first[0].height;
  out.data.resize(size_t(out.width) * out.height * 3);
  for (size_t i = 1; i < args.files.size(); i++) {
    const rgb_image difference = to_rgb(amplified_difference(first[i], first[0], args.amplify));
    draw_crop(out, int(i - 1) * first[0].width, 0, difference, 0, 0,
              std::max(difference.width, difference.height), 1);
  }
  return encode_png(out);
}

std::vector<uint8_t> draw_sheet(const compare_args& args, const measured& all) {
  std::vector<labelled_picture> columns;
  for (size_t i = 0; i < args.files.size(); ++i) {
    std::string label = base_name(args.files[i]);
    if (i > 0) {
      const quality q = means(all.files[i].frames);
      char text[128];
      std::snprintf(text, sizeof text, "%.28s  Y %.2f UV %.2f dB", label.c_str(), q.psnr_y,
                    q.psnr_uv);
      label = text;
    }
    columns.push_back({label, to_rgb(all.first[i])});
  }
  return encode_png(crop_sheet(columns, args.x < 0 ? all.first[0].width / 2 : args.x,
                               args.y < 0 ? all.first[0].height / 2 : args.y));
}

int run_compare(const compare_args& args) {
  if (args.files.size() < 2) throw error("compare", "two files or more are needed");
  // Before any work: what cannot be written, or would replace what is compared.
  std::optional<output_file> json, difference, sheet;
  const auto open = [&](std::optional<output_file>& file, const std::string& path) {
    if (path.empty()) return;
    refuse_replacing(path, args.files);
    file.emplace(path);
  };
  open(json, args.json);
  open(difference, args.difference);
  open(sheet, args.sheet);

  const measured all = measure(args);
  check_patches(args.patches, all.first[0], args.files[0]);
  if (args.json != "-") print_table(args, all);
  if (args.json != "-") print_areas(args, all);
  const auto finish = [](output_file& file, const auto& bytes) {
    file.write(bytes.data(), bytes.size());
    file.commit();
  };
  if (json) finish(*json, to_json(args, all));
  if (difference) finish(*difference, draw_differences(args, all.first));
  if (sheet) finish(*sheet, draw_sheet(args, all));
  return kExitOk;
}

}  // namespace

void add_compare(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("compare", "Measure pictures or streams against the first one");
  const auto args = std::make_shared<compare_args>();
  add_files(*command, "files", args->files, "The reference, then what is compared with it")
      ->required();
  add_file(*command, "--diff", args->difference, "Write the amplified difference: grey where equal")
      ->type_name("PNG");
  with_default(add_whole(*command, "--amplify", args->amplify, 1, 255, "Factor of that difference"),
               args->amplify);
  add_file(*command, "--sheet", args->sheet, "Write crops side by side at 1:1 and 4:1, labelled")
      ->type_name("PNG");
  command
      ->add_option_function<std::string>(
          "--at",
          [args](const std::string& text) {
            const size_t comma = std::min(text.find(','), text.size());
            constexpr int kFarthest = 1 << 20;
            args->x = int(whole_number("--at", text.substr(0, comma), 0, kFarthest));
            if (comma == text.size()) throw error("--at", "is of the form 640,480");
            args->y = int(whole_number("--at", text.substr(comma + 1), 0, kFarthest));
          },
          "Pixel in the middle of the crops; else the picture's middle")
      ->type_name("X,Y");
  add_patch_option(*command, args->patches);
  command->add_flag("--per-frame", args->per_frame, "Tell every frame of streams, too");
  add_file(*command, "--json", args->json, "Write all figures as JSON (- instead of the table)");
  add_picture_options(*command, args->pictures, false);
  command->footer(
      "PSNR is 10 log10(255^2 / MSE) per channel, chroma at its own resolution. SSIM is the mean\n"
      "over the channel with an 11x11 Gaussian window (sigma 1.5), K1 0.01, K2 0.03. The shift is\n"
      "the difference of the means in grey levels. Of streams, means over the frames, the frame\n"
      "with the least PSNR of luma, and flicker: how much the difference from the reference "
      "changes\n"
      "from one frame to the next, root mean square in grey levels of luma.\n"
      "Of a patch (of streams in the first frame): mean and deviation, the power of the noise "
      "over\n"
      "cycles per pixel in grey levels squared, the frequencies at which a slanted edge's "
      "contrast\n"
      "falls to a half and a tenth, and the share of the reference's texture that is kept.\n"
      "Example:\n"
      "  vorn-ycnr compare clean.png noisy.png denoised.png --sheet crops.png --diff diff.png");
  command->callback([args, &chosen] { chosen = [args] { return run_compare(*args); }; });
}

}  // namespace vorn::tool
