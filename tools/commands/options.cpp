// Options that several subcommands share.
#include <algorithm>
#include <limits>

#include "tools/commands/commands.h"
#include "tools/commands/lab_options.h"
#include "tools/error.h"
#include "tools/numbers.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

file_kind kind_named(const std::string& option, const std::string& name) {
  for (const file_kind kind : {file_kind::png, file_kind::jpeg, file_kind::y4m, file_kind::nv12,
                               file_kind::nv21, file_kind::i420, file_kind::camera_raw}) {
    if (name == file_kind_name(kind)) return kind;
  }
  throw error(option, "\"" + name + "\" is not one of png, jpeg, y4m, nv12, nv21, i420, dng");
}

// What an option of its own says about each key of the tuning records.
struct field_option {
  bool luma;
  const char* key;
  const char* option;
  const char* help;
};
// No description: the library ignores it, and help leaves it out.
constexpr field_option kFieldOptions[] = {
    {true, "layer", "--luma-layers", "pyramid levels in use, 2 to 5"},
    {true, "pIntensity", "--luma-intensity",
     "strength per level, finest first; below 1 a level passes unfiltered"},
    {true, "pRadius", "--luma-radius", "window per level, finest first: 3, 5 or 7"},
    {true, "param0", "--luma-corners", "strength of the mask towards the corners; 64 is flat"},
    {true, "param1", "--luma-param1", ""},
    {true, "param2", "--luma-param2", ""},
    {false, "range_factor", "--chroma-range",
     "half the colour distance at which a neighbour stops counting"},
    {false, "smooth_radius", "--chroma-radius", "half-length of the window, pixels"},
    {false, "scale", "--chroma-scale", "0 full chroma size, 1 half size, 2 half then full size"},
    {false, "step", "--chroma-step", "window taps are twice this apart, pixels"},
    {false, "color_edge_u", "--chroma-edge-u", "weight of U in the colour distance; 8 is 1.0"},
    {false, "color_edge_v", "--chroma-edge-v", "weight of V in the colour distance; 8 is 1.0"},
    {false, "saturation", "--saturation", "chroma gain in sixteenths; 0 leaves colours alone"},
    {false, "param0", "--chroma-param0", ""},
    {false, "param1", "--chroma-param1", ""},
    {false, "param2", "--chroma-param2", ""},
};

}  // namespace

void parse_size(const std::string& text, picture_options& options) {
  const size_t cross = text.find('x');
  if (cross == std::string::npos) {
    throw error("--size", "\"" + text + "\" is not of the form 1920x1080");
  }
  constexpr int kLongestSide = 1 << 20;
  options.width = int(whole_number("--size", text.substr(0, cross), 1, kLongestSide));
  options.height = int(whole_number("--size", text.substr(cross + 1), 1, kLongestSide));
}

void add_picture_options(CLI::App& command, picture_options& options, bool writes) {
  command
      .add_option_function<std::string>(
          "--size", [&options](const std::string& text) { parse_size(text, options); },
          "Size of raw pictures; else taken from names like a_1920x1080.nv12")
      ->type_name("WxH")
      ->group("Files");
  add_whole(command, "--stride", options.stride, 1, kLongestStride,
            "Bytes from one luma row of raw input to the next")
      ->type_name("BYTES")
      ->group("Files");
  command
      .add_option_function<std::string>(
          "--in-format",
          [&options](const std::string& name) {
            options.read_as = kind_named("--in-format", name);
          },
          "Kind of the input where its name does not say: png, jpeg, y4m, nv12, nv21, i420, dng")
      ->type_name("KIND")
      ->group("Files");
  if (!writes) return;
  add_whole(command, "--out-stride", options.out_stride, 1, kLongestStride,
            "The same for raw output")
      ->type_name("BYTES")
      ->group("Files");
  command
      .add_option_function<std::string>(
          "--out-format",
          [&options](const std::string& name) {
            options.write_as = kind_named("--out-format", name);
          },
          "Kind of the output where its name does not say")
      ->type_name("KIND")
      ->group("Files");
  with_default(add_whole(command, "--quality", options.quality, 1, 100, "Quality of JPEG output"),
               options.quality)
      ->type_name("1-100")
      ->group("Files");
}

namespace {

// "24,12,,6" into overrides of a key's fields; nothing between two commas changes nothing.
void parse_fields(const std::string& option, const std::string& text,
                  const std::vector<int>& fields, tuning_options& options) {
  size_t at = 0;
  for (size_t i = 0; at <= text.size(); i++) {
    const size_t comma = std::min(text.find(',', at), text.size());
    if (i == fields.size()) {
      throw error(option, "takes at most " + std::to_string(fields.size()) + " values");
    }
    const std::string item = text.substr(at, comma - at);
    if (!item.empty() || fields.size() == 1) {
      constexpr int64_t kLowest = std::numeric_limits<int32_t>::min();
      constexpr int64_t kHighest = std::numeric_limits<int32_t>::max();
      options.overrides.emplace_back(fields[i],
                                     int32_t(whole_number(option, item, kLowest, kHighest)));
    }
    at = comma + 1;
  }
}

void add_field_option(CLI::App& command, const field_option& entry, tuning_options& options) {
  std::vector<int> fields;
  for (int i = 0; i < kTuningFields; i++) {
    const tuning_field& field = tuning_field_at(i);
    if (field.luma == entry.luma && std::string(field.key) == entry.key) fields.push_back(i);
  }
  const bool several = fields.size() > 1;
  const std::string name = entry.option;
  command
      .add_option_function<std::string>(
          name,
          [&options, fields, name](const std::string& text) {
            parse_fields(name, text, fields, options);
          },
          entry.help)
      ->type_name(several ? "N,N,..." : "N")
      ->group(*entry.help
                  ? "Tuning fields, each instead of the set's; an empty place in a list keeps it"
                  : "");
}

double gain_of(const std::string& text, bool or_auto) {
  try {
    return real_number("--gain", text, kLowestGain, kHighestGain);
  } catch (const error& fault) {
    throw error("", fault.what() + std::string(or_auto ? ", or auto" : ""));
  }
}

}  // namespace

void add_tuning_options(CLI::App& command, tuning_options& options, bool automatic) {
  add_file(command, "-t,--tuning", options.file, "Tuning set (JSON); else the one built in")
      ->group("Tuning");
  const std::string otherwise =
      automatic ? "; auto measures the frames [auto]" : " [" + short_number(kDefaultGain) + "]";
  command
      .add_option_function<std::string>(
          "-g,--gain",
          [&options, automatic](const std::string& text) {
            // Inside, 0 stands for auto; a gain of 0 is none.
            options.gain = automatic && text == "auto" ? 0 : gain_of(text, automatic);
          },
          "Sensor gain, 1 = base: picks the set's nearest entry in stops; a higher gain filters "
          "more" +
              otherwise)
      ->type_name(automatic ? "GAIN|auto" : "GAIN")
      ->group("Tuning");
  add_sensor_option(command, options.sensor_file)->group("Tuning");
  CLI::Option* const luma =
      command.add_flag("--luma-only", options.luma_only, "Leave chroma as it is")->group("Tuning");
  command.add_flag("--chroma-only", options.chroma_only, "Leave luma as it is")
      ->excludes(luma)
      ->group("Tuning");
  command
      .add_flag(
          "--fine", options.fine,
          "Fine mode: luma better by 0.1 to 0.4 dB, chroma by 0.7 to 1.1, in four times the time")
      ->group("Tuning");
  for (const field_option& entry : kFieldOptions) add_field_option(command, entry, options);
}

tuning_set tuning_options::load_set() const {
  return load_or_default(file);
}

tuning tuning_options::applied_to(tuning t) const {
  for (const auto& [field, value] : overrides) set_field(t, field, value);
  t.fine = fine;
  if (luma_only) t.chroma.enable = 0;
  if (chroma_only) t.luma.enable = 0;
  check_tuning(t, "");
  return t;
}

std::pair<tuning_entry, tuning_entry> tuning_options::entries_for(double at_gain) const {
  const tuning_set set = load_set();
  noise_gains gains{at_gain, at_gain};
  if (!sensor_file.empty()) {
    const sensor_profile profile = read_sensor_profile(sensor_file);
    if (file.empty()) gains = profile.like_default(at_gain);
  }
  return {set.nearest(gains.luma), set.nearest(gains.chroma)};
}

tuning tuning_options::resolve() const {
  const auto [luma, chroma] = entries_for(gain > 0 ? gain : kDefaultGain);
  tuning t = luma.values;
  t.chroma = chroma.values.chroma;
  if (luma_only) t.luma.enable = 1;
  if (chroma_only) t.chroma.enable = 1;
  return applied_to(t);
}

}  // namespace vorn::tool
