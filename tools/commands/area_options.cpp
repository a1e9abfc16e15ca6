#include "tools/commands/area_options.h"

#include <algorithm>

#include "tools/error.h"
#include "tools/numbers.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

constexpr int kFarthest = 1 << 20;
constexpr const char* kOption = "--patch";

rectangle parse_patch(const std::string& text) {
  const size_t comma = text.find(','), second = text.find(',', comma + 1);
  const size_t cross = text.find('x', second + 1);
  if (comma == std::string::npos || second == std::string::npos || cross == std::string::npos)
    throw error(kOption, "\"" + text + "\" is not of the form 120,80,64x64");
  const auto number = [&](size_t from, size_t to, int least) {
    return int(whole_number(kOption, text.substr(from, to - from), least, kFarthest));
  };
  return {number(0, comma, 0), number(comma + 1, second, 0), number(second + 1, cross, 1),
          number(cross + 1, text.size(), 1)};
}

void print_or_dash(int width, const char* format, double value, bool there) {
  char text[32] = "-";
  if (there) std::snprintf(text, sizeof text, format, value);
  print(" %*s", width, text);
}

// Values of a list at 1/16, 1/8, 1/4 and 1/2 cycle per sample.
void print_at_frequencies(const std::vector<double>& values) {
  for (const size_t i : {2, 4, 8, 16})
    print_or_dash(7, "%.2f", values.empty() ? 0 : values[i], !values.empty() && values[i] > -1);
}

void print_frame(const rectangle& r, const std::string& name, int width, const frame& f,
                 const frame* clean) {
  const rectangle half = {r.x / 2, r.y / 2, std::max(r.width / 2, 1), std::max(r.height / 2, 1)};
  const plane_view y = part_of(luma_view(f), r);
  const patch_figures luma = measure_patch(y);
  print("%-*s %7.2f %6.2f %6.2f %6.2f ", width, name.c_str(), luma.mean, luma.deviation,
        measure_patch(part_of(u_view(f), half)).deviation,
        measure_patch(part_of(v_view(f), half)).deviation);
  print_at_frequencies(noise_spectrum(y));
  const edge_figures edge = measure_edge(y);
  print(" ");
  print_or_dash(6, "%.3f", edge.half, edge.found);
  print_or_dash(6, "%.3f", edge.tenth, edge.found);
  if (clean) {
    print(" ");
    print_at_frequencies(texture_transfer(y, part_of(luma_view(*clean), r)));
  }
  print("\n");
}

}  // namespace

void add_patch_option(CLI::App& command, std::vector<rectangle>& patches) {
  command
      .add_option_function<std::vector<std::string>>(
          kOption,
          [&patches](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) patches.push_back(parse_patch(text));
          },
          "Part of the picture to measure as well: a flat, a slanted edge, texture; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("X,Y,WxH");
}

std::string patch_text(const rectangle& r) {
  return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "x" +
         std::to_string(r.height);
}

void check_patches(const std::vector<rectangle>& patches, const frame& f, const std::string& name) {
  for (const rectangle& r : patches) {
    if (r.x + r.width > f.width || r.y + r.height > f.height)
      throw error(kOption, patch_text(r) + " lies outside of " + name + ", which has " +
                               std::to_string(f.width) + "x" + std::to_string(f.height) +
                               " pixels");
  }
}

void print_patches(const std::vector<rectangle>& patches, const std::vector<std::string>& names,
                   const std::vector<const frame*>& frames, const frame* clean) {
  size_t widest = 20;
  for (const std::string& name : names) widest = std::max(widest, name.size());
  const int width = int(std::min<size_t>(widest, 48));
  for (const rectangle& r : patches) {
    print("\n%-*s %34s%23s\n", width, "", "noise power of Y at", "edge falls");
    print("%-*s  mean Y  dev Y      U      V     1/16     1/8     1/4     1/2  to 1/2 to 1/10%s\n",
          width, ("patch " + patch_text(r)).c_str(),
          clean ? "   texture kept at 1/16, 1/8, 1/4, 1/2" : "");
    for (size_t i = 0; i < frames.size(); ++i) print_frame(r, names[i], width, *frames[i], clean);
  }
}

}  // namespace vorn::tool
