// The search of one tuning, in steps. tuner.h says how it goes about it.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "tools/tuning/random_moves.h"
#include "tools/tuning/tuner.h"

namespace vorn::tool {

class search {
 public:
  search(std::unique_ptr<scorer> where, const tuning& start, const search_options& options,
         const std::function<void(const search_progress&)>& on_progress,
         const std::atomic<bool>& stop);

  search_result run();

 private:
  // One line per parameter through the result, and what the trials said of each value.
  std::vector<parameter_sweep> curves();
  static constexpr int kLevels = 5;

  // Joint moves: generations per start and per round of lines, candidates per generation.
  static constexpr int kStartGenerations = 10, kGenerations = 12, kChromaGenerations = 8;
  static constexpr int kCandidates = 8;
  static constexpr int kStarts = 3, kChromaStarts = 2;  // windows of the finest level; modes

  int luma_round_lines() const { return 2 * kLevels + 1 + (options_.corners ? 1 : 0); }
  int luma_lines() const {
    return kStarts * (1 + kStartGenerations) + options_.rounds * kGenerations +
           (kStarts + options_.rounds) * luma_round_lines();
  }
  static constexpr int kChromaRoundLines = 6;
  int chroma_lines() const {
    return kChromaStarts * (4 + kStartGenerations) + options_.rounds * kChromaGenerations +
           (kChromaStarts + options_.rounds) * kChromaRoundLines;
  }

  // Tries the candidates and moves to the best one. Returns its place, -1 for no move.
  int try_line(const std::vector<tuning>& candidates);

  // A line over one field. Follows the best value while it lies at an end of the line.
  void line(int field, const std::function<std::vector<int32_t>(int32_t)>& values_around);

  void step_done(const std::string& label);

  // A window wants its own strength, and what one level leaves the next one has to take, so lines
  // alone get stuck: move(t, random, width) changes several values of t at a time by about `width`
  // of themselves. The best of a generation is where the next one starts; moves get smaller while
  // nothing is found.
  void evolve(int generations, const std::function<void(tuning&, random_moves&, double)>& move,
              const char* label);

  // Searches with every value of a field apart and goes on from where the best of them led. Cheaper
  // values come first, so that dearer ones have to be worth it.
  void try_starts(int field, const std::vector<int32_t>& values,
                  const std::function<void()>& search);

  static double factor_of(int round);

  // search_luma.cpp
  void search_luma();
  void intensity_line(int level, int round);
  void move_luma(tuning& t, random_moves& random, double width) const;
  // What can go without being missed goes: levels and windows that joint moves left behind.
  void tidy_luma();
  void luma_round(int round);
  void luma_grid();

  // search_chroma.cpp
  void search_chroma();
  void range_line(int round);
  void radius_line(int round);
  void step_line();
  // Both colour edges together, keeping their ratio.
  void edges_line(int round);
  void edge_v_line(int round);
  // Range and edges trade against each other and every pyramid mode wants its own window. Radius 0
  // leaves only mode 2's small window at full chroma size.
  void chroma_grid();
  void chroma_round(int round);
  static void move_chroma(tuning& t, random_moves& random, double width);

  tuning_bench bench_;
  tuning guess_;
  tuning best_;
  search_options options_;
  const std::function<void(const search_progress&)>& on_progress_;
  const std::atomic<bool>& stop_;
  int held_ = -1;  // a field that does not move for now
  bool luma_half_ = true;
  std::map<int, std::vector<std::pair<int32_t, double>>> explored_;  // by field
  double value_ = 0;
  int done_ = 0, total_ = 0;
};

}  // namespace vorn::tool
