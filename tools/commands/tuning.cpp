// vorn-ycnr tuning: looks at tuning sets and converts them to and from the text of the debug dumps.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <set>

#include "tools/commands/commands.h"
#include "tools/error.h"
#include "tools/lab/noise_meter.h"
#include "tools/lab/sensor_profile.h"
#include "tools/picture/output_file.h"
#include "tools/text.h"
#include "tools/tuning/from_noise.h"

namespace vorn::tool {
namespace {

struct tuning_args {
  std::vector<std::string> files;
  std::string output;
  std::string into;
  std::string name = "camera";
  double gain = 0;
  std::vector<double> gains;
};

// The one that a command shows or converts.
tuning_set only_set(const tuning_args& args) {
  return load_or_default(args.files.empty() ? "" : args.files[0]);
}

int run_show(const tuning_args& args) {
  const tuning_set set = only_set(args);
  if (!set.name.empty()) print("%s\n", printable(set.name).c_str());
  if (!set.description.empty()) print("%s\n", printable(set.description).c_str());
  std::vector<const tuning_entry*> entries;
  if (args.gain > 0) {
    entries.push_back(&set.nearest(args.gain));
  } else {
    for (const tuning_entry& entry : set.entries) entries.push_back(&entry);
  }
  print("%-22s", "gain");
  for (const tuning_entry* entry : entries) print(" %7g", entry->gain);
  print("\n");
  for (int i = 0; i < kTuningFields; i++) {
    const tuning_field& field = tuning_field_at(i);
    const std::string name = std::string(field.luma ? "luma " : "chroma ") + field.dump_name;
    print("%-22s", name.c_str());
    for (const tuning_entry* entry : entries) {
      print(" %7d", static_cast<int>(get_field(entry->values, i)));
    }
    print("\n");
  }
  return kExitOk;
}

int run_check(const tuning_args& args) {
  for (const std::string& file : args.files) {
    const tuning_set set = read_tuning_set(file);
    print("%s: valid, %zu entries, gains %g to %g\n", printable(file).c_str(), set.entries.size(),
          set.entries.front().gain, set.entries.back().gain);
  }
  return kExitOk;
}

const tuning_entry* entry_at(const tuning_set& set, double gain) {
  for (const tuning_entry& entry : set.entries)
    if (entry.gain == gain) return &entry;
  return nullptr;
}

// Fields that differ as rows, gains that both sets have as columns; gains of one alone below.
int run_diff(const tuning_args& args) {
  const tuning_set a = read_tuning_set(args.files[0]);
  const tuning_set b =
      args.files.size() > 1 ? read_tuning_set(args.files[1]) : default_tuning_set();
  std::vector<std::pair<const tuning_entry*, const tuning_entry*>> common;
  for (const tuning_entry& entry : a.entries)
    if (const tuning_entry* const other = entry_at(b, entry.gain))
      common.emplace_back(&entry, other);
  bool same = true;
  for (int i = 0; i < kTuningFields; ++i) {
    std::vector<std::string> cells;
    bool differs = false;
    for (const auto& [one, other] : common) {
      const int32_t from = get_field(one->values, i), to = get_field(other->values, i);
      differs = differs || from != to;
      cells.push_back(from == to ? "." : std::to_string(from) + ">" + std::to_string(to));
    }
    if (!differs) continue;
    if (same) {
      print("%-22s", "gain");
      for (const auto& [one, other] : common) print(" %9g", one->gain);
      print("\n");
    }
    same = false;
    const tuning_field& field = tuning_field_at(i);
    print("%-22s", (std::string(field.luma ? "luma " : "chroma ") + field.dump_name).c_str());
    for (const std::string& cell : cells) print(" %9s", cell.c_str());
    print("\n");
  }
  const auto only = [&](const tuning_set& in, const tuning_set& other, const std::string& name) {
    for (const tuning_entry& entry : in.entries) {
      if (entry_at(other, entry.gain)) continue;
      print("gain %g: only in %s\n", entry.gain, printable(name).c_str());
      same = false;
    }
  };
  only(a, b, args.files[0]);
  only(b, a, args.files.size() > 1 ? args.files[1] : "the built-in set");
  if (same) print("the same values at %zu gains\n", common.size());
  return same ? kExitOk : kExitDifferent;
}

int run_to_c(const tuning_args& args) {
  const tuning_set set = only_set(args);
  write_file(args.output, tuning_set_to_c_header(set, args.name));
  return kExitOk;
}

int run_to_dump(const tuning_args& args) {
  const tuning_set set = only_set(args);
  const tuning& t = set.nearest(args.gain > 0 ? args.gain : kDefaultGain).values;
  write_file(args.output + "_ynr2_turning_param.txt", luma_to_dump_text(t));
  write_file(args.output + "_cnr4_turning_param.txt", chroma_to_dump_text(t));
  return kExitOk;
}

noise_levels levels_of(const sensor_row& row) {
  noise_levels noise;
  std::copy_n(row.luma_levels.begin(), noise.luma.size(), noise.luma.begin());
  std::copy_n(row.chroma_levels.begin(), noise.chroma.size(), noise.chroma.begin());
  return noise;
}

// What the model of a profile makes of grey.
noise_levels modelled_noise(const sensor_profile& profile, double gain) {
  noise_model model = profile.model;
  model.gain = gain;
  const vorn_noise measured = model_curve(model).all;
  noise_levels noise;
  std::copy_n(measured.luma_levels, noise.luma.size(), noise.luma.begin());
  std::copy_n(measured.chroma_levels, noise.chroma.size(), noise.chroma.begin());
  return noise;
}

// As measured at the nearest of the gains that were, carried to another gain by the model: what was
// measured hangs on how bright the scene was, which the model's greys do not know.
noise_levels noise_at(const sensor_profile& profile, double gain) {
  const auto distance = [&](const sensor_row& row) { return std::abs(std::log(row.gain / gain)); };
  const sensor_row& row = *std::min_element(
      profile.rows.begin(), profile.rows.end(),
      [&](const sensor_row& a, const sensor_row& b) { return distance(a) < distance(b); });
  noise_levels noise = levels_of(row);
  if (row.gain == gain) return noise;
  const noise_levels there = modelled_noise(profile, gain),
                     here = modelled_noise(profile, row.gain);
  const auto carry = [](auto& levels, const auto& to, const auto& from) {
    if (from[0] <= 0) return;
    for (double& level : levels) level *= to[0] / from[0];
  };
  carry(noise.luma, there.luma, here.luma);
  carry(noise.chroma, there.chroma, here.chroma);
  return noise;
}

int run_from_profile(const tuning_args& args) {
  const sensor_profile profile = read_sensor_profile(args.files[0]);
  std::set<double> gains(args.gains.begin(), args.gains.end());
  for (const sensor_row& row : profile.rows)
    if (args.gains.empty()) gains.insert(row.gain);
  tuning_set set;
  set.name = profile.name;
  set.description = "From the noise of a sensor profile, by formula.";
  for (const double gain : gains)
    set.entries.push_back({gain, tuning_for_noise(noise_at(profile, gain))});
  write_file(args.output, tuning_set_to_json(set));
  return kExitOk;
}

int run_from_dump(const tuning_args& args) {
  tuning t = {};
  bool have[2] = {};
  for (const std::string& file : args.files) {
    const bool luma = parse_dump_text(read_text_file(file), file, t);
    if (have[luma])
      throw error(file, std::string("a second ") + (luma ? "luma" : "chroma") + " tuning");
    have[luma] = true;
  }
  if (!have[0] || !have[1]) throw error(args.files[0], "a luma and a chroma tuning are needed");
  tuning_set set;
  if (!args.into.empty()) set = read_tuning_set(args.into);
  auto at = set.entries.begin();
  while (at != set.entries.end() && at->gain < args.gain) ++at;
  if (at != set.entries.end() && at->gain == args.gain) {
    at->values = t;
  } else {
    set.entries.insert(at, {args.gain, t});
  }
  const std::string output = args.output.empty() ? args.into : args.output;
  if (output.empty()) throw error("-o", "is needed unless --into names the set to change");
  write_file(output, tuning_set_to_json(set));
  return kExitOk;
}

}  // namespace

// A list, a paragraph for each command, and no longer than the list is.
void add_tuning(CLI::App& program, job& chosen) {
  CLI::App* const command = program.add_subcommand("tuning", "Show, check and convert tuning sets");
  command->require_subcommand(1);
  command->footer("Example:\n  vorn-ycnr tuning show --gain 16");
  const auto args = std::make_shared<tuning_args>();

  CLI::App* const show =
      command->add_subcommand("show", "Print a set as a table, a column per gain");
  add_files(*show, "set", args->files, "Tuning set; else the one built in")
      ->type_name("SET")
      ->expected(0, 1);
  add_real(*show, "-g,--gain", args->gain, kLowestGain, kHighestGain,
           "Only the entry nearest to this gain")
      ->type_name("GAIN");
  show->footer("Example:\n  vorn-ycnr tuning show --gain 16");
  show->callback([args, &chosen] { chosen = [args] { return run_show(*args); }; });

  CLI::App* const check =
      command->add_subcommand("check", "Check that sets are complete and sound");
  add_files(*check, "set", args->files, "Tuning sets")->type_name("SET")->required();
  check->footer("Example:\n  vorn-ycnr tuning check my_sensor.json");
  check->callback([args, &chosen] { chosen = [args] { return run_check(*args); }; });

  CLI::App* const diff =
      command->add_subcommand("diff", "Print what differs between two sets, gain by gain");
  add_files(*diff, "sets", args->files, "Two tuning sets; the second one else the one built in")
      ->type_name("SET")
      ->required()
      ->expected(1, 2);
  diff->footer(
      "Exit code 1 when they differ.\nExample:\n  vorn-ycnr tuning diff old.json new.json");
  diff->callback([args, &chosen] { chosen = [args] { return run_diff(*args); }; });

  CLI::App* const to_c = command->add_subcommand(
      "to-c", "Write a set as a C header, for camera code that reads no files");
  add_files(*to_c, "set", args->files, "Tuning set; else the one built in")
      ->type_name("SET")
      ->expected(0, 1);
  to_c->add_option("--name", args->name, "C name before _tuning, _nearest and _entry")
      ->type_name("NAME")
      ->capture_default_str();
  add_file(*to_c, "-o,--output", args->output, "Header to write; - is standard output")->required();
  to_c->footer("Example:\n  vorn-ycnr tuning to-c my_sensor.json --name my_sensor -o my_sensor.h");
  to_c->callback([args, &chosen] { chosen = [args] { return run_to_c(*args); }; });

  CLI::App* const to = command->add_subcommand("to-dump", "Write one entry as a device dumps it");
  add_files(*to, "set", args->files, "Tuning set; else the one built in")
      ->type_name("SET")
      ->expected(0, 1);
  add_real(*to, "-g,--gain", args->gain, kLowestGain, kHighestGain,
           "Gain whose nearest entry to write")
      ->type_name("GAIN");
  add_file(*to, "-o,--output", args->output,
           "Begin of the names; _ynr2_turning_param.txt and _cnr4_turning_param.txt follow")
      ->type_name("PREFIX")
      ->required();
  to->footer("Example:\n  vorn-ycnr tuning to-dump --gain 8 -o gain8");
  to->callback([args, &chosen] { chosen = [args] { return run_to_dump(*args); }; });

  CLI::App* const profile = command->add_subcommand(
      "from-profile", "Make a set for the noise of a camera's profile, by formula");
  add_files(*profile, "profile", args->files, "Sensor profile, as noise --fit writes it")
      ->type_name("PROFILE")
      ->required()
      ->expected(1);
  add_reals(*profile, "--gains", args->gains, kLowestGain, kHighestGain,
            "Gains of the entries; else those that the profile was measured at");
  add_file(*profile, "-o,--output", args->output, "Set to write; - is standard output")->required();
  profile->footer(
      "A search finds more, and wants pictures: vorn-ycnr tune --pair or --burst.\n"
      "Example:\n"
      "  vorn-ycnr tuning from-profile camera.json --gains 1,4,16 -o camera_set.json");
  profile->callback([args, &chosen] { chosen = [args] { return run_from_profile(*args); }; });

  CLI::App* const from = command->add_subcommand("from-dump", "Make an entry of a device's dumps");
  add_files(*from, "texts", args->files, "The luma and the chroma tuning text")
      ->type_name("TXT")
      ->required()
      ->expected(2);
  add_real(*from, "-g,--gain", args->gain, kLowestGain, kHighestGain, "Gain of the entry")
      ->type_name("GAIN")
      ->required();
  add_file(*from, "--into", args->into,
           "Set that receives the entry, in the place of one of this gain")
      ->type_name("SET");
  add_file(*from, "-o,--output", args->output, "Set to write; else the one of --into")
      ->type_name("FILE");
  from->footer(
      "Example:\n"
      "  vorn-ycnr tuning from-dump gain8_ynr2_turning_param.txt gain8_cnr4_turning_param.txt "
      "--gain 8 -o set.json");
  from->callback([args, &chosen] { chosen = [args] { return run_from_dump(*args); }; });
}

}  // namespace vorn::tool
