// Options that several subcommands share.
#include <algorithm>
#include <cstdio>
#include <limits>

#include "tools/commands/commands.h"
#include "tools/error.h"

namespace vorn::tool {
namespace {

file_kind kind_named(const std::string& name) {
  for (const file_kind kind : {file_kind::png, file_kind::jpeg, file_kind::y4m, file_kind::nv12,
                               file_kind::nv21, file_kind::i420}) {
    if (name == file_kind_name(kind)) return kind;
  }
  throw CLI::ValidationError("\"" + name + "\" is not one of png, jpeg, y4m, nv12, nv21, i420");
}

int32_t parse_number(const std::string& option, const std::string& text) {
  size_t used = 0;
  long long value = 0;
  try {
    value = std::stoll(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || value < std::numeric_limits<int32_t>::min() ||
      value > std::numeric_limits<int32_t>::max()) {
    throw CLI::ValidationError(option + ": \"" + text + "\" is not a whole number of 32 bits");
  }
  return int32_t(value);
}

// What an option of its own says about each key of the tuning records.
struct field_option {
  bool luma;
  const char* key;
  const char* option;
  const char* help;
};
constexpr field_option kFieldOptions[] = {
    {true, "layer", "--luma-layers", "pyramid levels in use, 2 to 5"},
    {true, "pIntensity", "--luma-intensity",
     "strength per level, finest first; below 1 a level passes unfiltered"},
    {true, "pRadius", "--luma-radius", "window per level, finest first: 3, 5 or 7"},
    {true, "param0", "--luma-corners", "strength of the mask towards the corners; 64 is flat"},
    {true, "param1", "--luma-param1", "passed on to the library, which ignores it"},
    {true, "param2", "--luma-param2", "passed on to the library, which ignores it"},
    {false, "range_factor", "--chroma-range",
     "colour distance at which a neighbour stops counting, halved"},
    {false, "smooth_radius", "--chroma-radius", "half-length of the window, pixels"},
    {false, "scale", "--chroma-scale", "0 full chroma size, 1 half size, 2 half then full size"},
    {false, "step", "--chroma-step", "window taps are twice this apart, pixels"},
    {false, "color_edge_u", "--chroma-edge-u", "weight of U in the colour distance; 8 is 1.0"},
    {false, "color_edge_v", "--chroma-edge-v", "weight of V in the colour distance; 8 is 1.0"},
    {false, "saturation", "--saturation", "chroma gain in sixteenths; 0 leaves colours alone"},
    {false, "param0", "--chroma-param0", "passed on to the library, which ignores it"},
    {false, "param1", "--chroma-param1", "passed on to the library, which ignores it"},
    {false, "param2", "--chroma-param2", "passed on to the library, which ignores it"},
};

}  // namespace

void parse_size(const std::string& text, picture_options& options) {
  int used = 0;
  if (std::sscanf(text.c_str(), "%7dx%7d%n", &options.width, &options.height, &used) != 2 ||
      used != int(text.size()) || options.width < 1 || options.height < 1) {
    throw CLI::ValidationError("--size: \"" + text + "\" is not of the form 1920x1080");
  }
}

void add_picture_options(CLI::App& command, picture_options& options, bool writes) {
  command
      .add_option_function<std::string>(
          "--size", [&options](const std::string& text) { parse_size(text, options); },
          "Size of raw pictures; else taken from names like a_1920x1080.nv12")
      ->type_name("WxH")
      ->group("Files");
  command
      .add_option("--stride", options.stride, "Bytes from one luma row of raw input to the next")
      ->type_name("BYTES")
      ->check(CLI::Validator(CLI::PositiveNumber).description(""))
      ->group("Files");
  command
      .add_option_function<std::string>(
          "--in-format",
          [&options](const std::string& name) { options.read_as = kind_named(name); },
          "Kind of the input where its name does not say: png, jpeg, y4m, nv12, nv21, i420")
      ->type_name("KIND")
      ->group("Files");
  if (!writes) return;
  command.add_option("--out-stride", options.out_stride, "The same for raw output")
      ->type_name("BYTES")
      ->check(CLI::Validator(CLI::PositiveNumber).description(""))
      ->group("Files");
  command
      .add_option_function<std::string>(
          "--out-format",
          [&options](const std::string& name) { options.write_as = kind_named(name); },
          "Kind of the output where its name does not say")
      ->type_name("KIND")
      ->group("Files");
  command.add_option("--quality", options.quality, "Quality of JPEG output")
      ->type_name("1-100")
      ->check(CLI::Range(1, 100).description(""))
      ->capture_default_str()
      ->group("Files");
}

void add_tuning_options(CLI::App& command, tuning_options& options) {
  command.add_option("-t,--tuning", options.file, "Tuning set (JSON); else the one built in")
      ->type_name("FILE")
      ->group("Tuning");
  command
      .add_option("-g,--gain", options.gain,
                  "Sensor gain, 1 = base: picks the set's nearest entry in stops; a higher gain "
                  "filters more [" +
                      CLI::detail::to_string(kDefaultGain) + "]")
      ->type_name("GAIN")
      ->check(CLI::Range(1e-3, 1e6).description(""))
      ->group("Tuning");
  CLI::Option* const luma =
      command.add_flag("--luma-only", options.luma_only, "Leave chroma as it is")->group("Tuning");
  command.add_flag("--chroma-only", options.chroma_only, "Leave luma as it is")
      ->excludes(luma)
      ->group("Tuning");
  for (const field_option& entry : kFieldOptions) {
    std::vector<int> fields;
    for (int i = 0; i < kTuningFields; i++) {
      const tuning_field& field = tuning_field_at(i);
      if (field.luma == entry.luma && std::string(field.key) == entry.key) fields.push_back(i);
    }
    const std::string name = entry.option;
    command
        .add_option_function<std::string>(
            name,
            [&options, fields, name](const std::string& text) {
              size_t at = 0;
              for (size_t i = 0; at <= text.size(); i++) {
                const size_t comma = std::min(text.find(',', at), text.size());
                if (i == fields.size()) {
                  throw CLI::ValidationError(name + ": takes at most " +
                                             std::to_string(fields.size()) + " values");
                }
                const std::string item = text.substr(at, comma - at);
                if (!item.empty() || fields.size() == 1) {
                  options.overrides.emplace_back(fields[i], parse_number(name, item));
                }
                at = comma + 1;
              }
            },
            entry.help + std::string(fields.size() > 1
                                         ? " (up to five, by commas; none between two "
                                           "commas keeps the set's)"
                                         : ""))
        ->type_name(fields.size() > 1 ? "N,N,..." : "N")
        ->group("Tuning fields (each overrides the set's)");
  }
}

tuning_set tuning_options::load_set() const {
  return file.empty() ? default_tuning_set() : read_tuning_set(file);
}

tuning tuning_options::resolve() const {
  tuning t = load_set().nearest(gain > 0 ? gain : kDefaultGain).values;
  for (const auto& [field, value] : overrides) set_field(t, field, value);
  if (luma_only || chroma_only) {
    t.luma.enable = luma_only;
    t.chroma.enable = chroma_only;
  }
  check_tuning(t, "");
  return t;
}

}  // namespace vorn::tool
