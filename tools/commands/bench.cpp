// vorn-ycnr bench: how long a frame takes here, stage by stage, and against an earlier run.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/commands/commands.h"
#include "tools/denoiser.h"
#include "tools/error.h"
#include "tools/lab/chart.h"
#include "tools/lab/noise_model.h"
#include "tools/machine.h"
#include "tools/picture/output_file.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

using nlohmann::ordered_json;

struct bench_args {
  std::vector<std::string> sizes = {"720p", "1080p", "4k", "12mp"};
  std::vector<std::string> compare;
  std::string output;
  int frames = 20;
  bool stages = false;
  tuning_options tuning;
};

void size_named(const std::string& name, picture_options& size) {
  static const std::map<std::string, std::pair<int, int>> kNamed = {
      {"720p", {1280, 720}}, {"1080p", {1920, 1080}}, {"4k", {3840, 2160}}, {"12mp", {4000, 3000}}};
  const auto named = kNamed.find(name);
  if (named != kNamed.end()) {
    size.width = named->second.first;
    size.height = named->second.second;
  } else if (name.find('x') == std::string::npos) {
    throw error("--sizes",
                "\"" + name + "\" is none of 720p, 1080p, 4k, 12mp and no size like 1920x1080");
  } else {
    parse_size(name, size);
  }
  if (size.width < 64 || size.height < 64 || !frame_size_ok(size.width, size.height)) {
    throw error("--sizes", name + " cannot be measured (from 64x64)");
  }
}

double median(std::vector<double> values) {
  const size_t half = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + half, values.end());
  return values[half];
}

// One size: medians over the frames after one that warms caches and memory.
ordered_json measure(const std::string& name, const bench_args& args) {
  picture_options size;
  size_named(name, size);
  frame noisy = draw_chart(size.width, size.height);
  noise_model model;
  model.gain = args.tuning.gain > 0 ? args.tuning.gain : kDefaultGain;
  add_noise(noisy, model);
  const tuning t = args.tuning.resolve();
  denoiser library(noisy.padded_width, noisy.padded_height);
  std::vector<std::string> order;
  std::map<std::string, std::vector<double>> times;
  progress bar(name, args.frames, "frames");
  for (int i = -1; i < args.frames; i++) {
    frame f = noisy;
    const std::vector<stage_time> stages = library.run_timed(f, t);
    if (i < 0) continue;
    for (const stage_time& stage : stages) {
      if (times.count(stage.name) == 0) order.push_back(stage.name);
      times[stage.name].push_back(stage.ms);
    }
    bar.update(i + 1);
  }
  const std::vector<double>& whole = times["whole frame"];
  ordered_json result = {{"name", name},
                         {"width", size.width},
                         {"height", size.height},
                         {"frame_ms", median(whole)},
                         {"fastest_ms", *std::min_element(whole.begin(), whole.end())}};
  ordered_json stages = ordered_json::object();
  for (const std::string& stage : order) {
    if (stage != "whole frame") stages[stage] = median(times[stage]);
  }
  result["stages_ms"] = stages;
  return result;
}

void print_result(const ordered_json& r, bool stages) {
  const double ms = r["frame_ms"];
  const double megapixels = double(r["width"]) * double(r["height"]) * 1e-6;
  print("%-8s %5dx%-5d %9.3f ms  %9.3f ms  %8.1f MP/s  %7.1f frames/s\n",
        printable(r["name"].get<std::string>()).c_str(), r["width"].get<int>(),
        r["height"].get<int>(), ms, r["fastest_ms"].get<double>(), megapixels / ms * 1e3, 1e3 / ms);
  if (!stages) return;
  for (const auto& [stage, value] : r["stages_ms"].items()) {
    print("    %-40s %9.3f ms\n", printable(stage).c_str(), value.get<double>());
  }
}

ordered_json read_results(const std::string& path) {
  const std::string text = read_text_file(path);
  const auto bad = [&](const char* cause) { throw error(path, cause); };
  // The library takes any depth, and the stack with it.
  const auto shallow = [&](int depth, ordered_json::parse_event_t, ordered_json&) {
    if (depth > 8) bad("not a result of vorn-ycnr bench");
    return true;
  };
  const ordered_json document = ordered_json::parse(text, shallow, false);
  if (document.is_discarded()) bad("not JSON");
  if (!document.is_object() || !document.contains("results") || !document["results"].is_array()) {
    bad("not a result of vorn-ycnr bench");
  }
  for (const ordered_json& r : document["results"]) {
    if (!r.is_object() || !r.contains("name") || !r["name"].is_string() ||
        !r.contains("frame_ms") || !r["frame_ms"].is_number() || !r.contains("stages_ms") ||
        !r["stages_ms"].is_object()) {
      bad("not a result of vorn-ycnr bench");
    }
  }
  return document;
}

int run_compare(const bench_args& args) {
  const ordered_json before = read_results(args.compare[0]), after = read_results(args.compare[1]);
  const auto machine_of = [](const ordered_json& d) {
    return d.contains("machine") ? d["machine"].dump() : std::string();
  };
  if (machine_of(before) != machine_of(after)) {
    print("note: measured on different machines or kernels\n");
  }
  print("%-44s %12s %12s %8s\n", "", "before ms", "after ms", "speed");
  for (const ordered_json& a : after["results"]) {
    for (const ordered_json& b : before["results"]) {
      if (a["name"] != b["name"]) continue;
      const auto row = [](const std::string& name, double old_ms, double new_ms) {
        print("%-44s %12.3f %12.3f %7.2fx\n", printable(name).c_str(), old_ms, new_ms,
              new_ms > 0 ? old_ms / new_ms : 0.0);
      };
      row(a["name"].get<std::string>(), b["frame_ms"], a["frame_ms"]);
      if (!args.stages) continue;
      for (const auto& [stage, value] : a["stages_ms"].items()) {
        if (b["stages_ms"].contains(stage) && value.is_number() &&
            b["stages_ms"][stage].is_number()) {
          row("    " + stage, b["stages_ms"][stage], value);
        }
      }
    }
  }
  return kExitOk;
}

int run_bench(const bench_args& args) {
  if (!args.compare.empty()) return run_compare(args);
  const machine m = this_machine();
  print("%s (%s), %d processors, kernels %s, 4 worker threads, %d frames each\n", m.cpu.c_str(),
        m.architecture.c_str(), m.processors, m.kernels.c_str(), args.frames);
  print("%-8s %-11s %9s     %9s\n", "", "", "median", "fastest");
  ordered_json document = {{"machine",
                            {{"cpu", m.cpu},
                             {"architecture", m.architecture},
                             {"processors", m.processors},
                             {"kernels", m.kernels}}},
                           {"version", VORN_TOOL_VERSION},
                           {"frames", args.frames},
                           {"results", ordered_json::array()}};
  // Opened before the first frame; written with what was measured, whatever comes in between.
  std::optional<output_file> file;
  if (!args.output.empty()) file.emplace(args.output);
  const auto write = [&] {
    if (!file || document["results"].empty()) return;
    const std::string text = document.dump(2) + "\n";
    file->write(text.data(), text.size());
    file->commit();
  };
  try {
    for (const std::string& name : args.sizes) {
      const ordered_json result = naming_memory(name, [&] { return measure(name, args); });
      document["results"].push_back(result);
      print_result(result, args.stages);
    }
  } catch (...) {
    write();
    throw;
  }
  write();
  return kExitOk;
}

}  // namespace

void add_bench(CLI::App& program, job& chosen) {
  CLI::App* const command =
      program.add_subcommand("bench", "Measure milliseconds per frame and per stage");
  const auto args = std::make_shared<bench_args>();
  command->add_option("--sizes", args->sizes, "720p, 1080p, 4k, 12mp or WxH, by commas")
      ->type_name("SIZE,...")
      ->delimiter(',')
      ->each([](const std::string& name) {
        picture_options size;
        size_named(name, size);
      })
      ->capture_default_str();
  with_default(add_whole(*command, "-n,--frames", args->frames, 1, 100000,
                         "Frames per size; medians are told"),
               args->frames);
  command->add_flag("--stages", args->stages, "Tell every stage");
  add_file(*command, "-o,--output", args->output, "Write all figures as JSON");
  command->add_option("--compare", args->compare, "Measure nothing: compare two such files")
      ->type_name("BEFORE AFTER")
      ->expected(2);
  add_tuning_options(*command, args->tuning);
  command->footer(
      "Example:\n"
      "  vorn-ycnr bench --sizes 1080p,12mp -o after.json\n"
      "  vorn-ycnr bench --compare before.json after.json --stages");
  command->callback([args, &chosen] { chosen = [args] { return run_bench(*args); }; });
}

}  // namespace vorn::tool
