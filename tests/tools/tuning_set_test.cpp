#include "tools/tuning/tuning_set.h"

#include <gtest/gtest.h>

#include <limits>

#include "tools/error.h"

namespace vorn::tool {
namespace {

std::string fault_of(const std::string& text) {
  try {
    parse_tuning_set(text, "set.json");
  } catch (const error& e) {
    return e.what();
  }
  return "no fault";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

tuning numbered_tuning() {
  tuning t = {};
  for (int i = 0; i < kTuningFields; i++) set_field(t, i, 100 + i);
  return t;
}

// Two entries; "luma" of the first stands in line 6, of the second in line 9.
std::string sound_text() {
  tuning_set set;
  set.name = "n";
  set.entries.push_back({1, numbered_tuning()});
  set.entries.push_back({2.5, numbered_tuning()});
  return tuning_set_to_json(set);
}

TEST(TuningSet, SurvivesWritingAndReading) {
  const tuning_set set = parse_tuning_set(sound_text(), "set.json");
  ASSERT_EQ(set.entries.size(), 2u);
  EXPECT_EQ(set.entries[1].gain, 2.5);
  for (int i = 0; i < kTuningFields; i++) EXPECT_EQ(get_field(set.entries[1].values, i), 100 + i);
  // By name, so that a slip in the table of fields shows.
  const tuning& t = set.entries[0].values;
  EXPECT_EQ(t.luma.layer, 101);
  EXPECT_EQ(t.luma.pIntensity[4], 106);
  EXPECT_EQ(t.luma.pRadius[0], 107);
  EXPECT_EQ(t.luma.param2, 114);
  EXPECT_EQ(t.chroma.range_factor, 116);
  EXPECT_EQ(t.chroma.step, 119);
  EXPECT_EQ(t.chroma.saturation, 122);
}

TEST(TuningSet, FaultsNameFieldAndLine) {
  const std::string good = sound_text();
  EXPECT_EQ(fault_of(good), "no fault");
  EXPECT_EQ(fault_of(replaced(good, "\"layer\": 101, ", "")),
            "set.json:7: field \"luma.layer\" is missing");
  EXPECT_EQ(fault_of(replaced(good, "\"step\"", "\"stepp\"")),
            "set.json:8: unknown field \"chroma.stepp\"");
  EXPECT_EQ(fault_of(replaced(good, "\"step\": 119", "\"step\": 1.5")),
            "set.json:8: \"chroma.step\" must be a whole number of 32 bits");
  EXPECT_EQ(fault_of(replaced(good, "\"step\": 119", "\"step\": 2147483648")),
            "set.json:8: \"chroma.step\" must be a whole number of 32 bits");
  EXPECT_EQ(fault_of(replaced(good, "\"step\": 119", "\"step\": 119, \"step\": 1")),
            "set.json:8: \"step\" is there twice");
  EXPECT_EQ(fault_of(replaced(good, "[102, 103,", "[103,")),
            "set.json:7: \"luma.pIntensity\" must be an array of five numbers, level 0 first");
  EXPECT_EQ(fault_of(replaced(good, "\"gain\": 2.5", "\"gain\": 1")),
            "set.json:9: \"gain\" must rise from entry to entry");
  EXPECT_EQ(fault_of(replaced(good, "\"gain\": 1,", "\"gain\": 0,")),
            "set.json:6: \"gain\" must be above 0, up to 1e6");
  EXPECT_EQ(fault_of(replaced(good, "\"version\": 1", "\"version\": 2")),
            "set.json:3: \"version\" must be 1");
  EXPECT_EQ(fault_of("[]"), "set.json:1: the file must be an object");
  EXPECT_EQ(fault_of("{\n\n]").substr(0, 18), "set.json:3: not JS");
  EXPECT_EQ(fault_of("").substr(0, 18), "set.json:1: not JS");
  EXPECT_EQ(fault_of(std::string(100000, '[')), "set.json:1: nested too deep for a tuning set");
}

TEST(TuningSet, GainPicksTheNearestInStops) {
  tuning_set set;
  for (const double gain : {1.0, 4.0, 16.0}) set.entries.push_back({gain, {}});
  EXPECT_EQ(set.nearest(0.1).gain, 1);
  EXPECT_EQ(set.nearest(1.9).gain, 1);
  EXPECT_EQ(set.nearest(2).gain, 1);  // half-way: the lower
  EXPECT_EQ(set.nearest(2.1).gain, 4);
  EXPECT_EQ(set.nearest(7.9).gain, 4);
  EXPECT_EQ(set.nearest(8.1).gain, 16);
  EXPECT_EQ(set.nearest(1000).gain, 16);
}

TEST(TuningSet, BuiltInSetIsSound) {
  const tuning_set& set = default_tuning_set();
  EXPECT_LE(set.entries.front().gain, 1);
  for (const tuning_entry& entry : set.entries) {
    EXPECT_EQ(entry.values.luma.enable, 1);
    EXPECT_GE(entry.values.luma.layer, 2);
    EXPECT_LE(entry.values.luma.layer, 5);
    EXPECT_GE(entry.values.chroma.step, 1);
  }
}

TEST(DumpText, SurvivesWritingAndReading) {
  tuning t = numbered_tuning(), back = {};
  t.luma.param1 = std::numeric_limits<int32_t>::min();
  const std::string luma = luma_to_dump_text(t);
  EXPECT_EQ(luma.substr(0, 38), "enable 100 \nlayer 101 \n0pIntensity 102");
  EXPECT_TRUE(parse_dump_text(luma, "l.txt", back));
  EXPECT_FALSE(parse_dump_text(chroma_to_dump_text(t), "c.txt", back));
  for (int i = 0; i < kTuningFields; i++) EXPECT_EQ(get_field(back, i), get_field(t, i)) << i;
}

TEST(DumpText, FaultsNameFieldAndLine) {
  tuning t = {};
  const std::string good = chroma_to_dump_text(t);
  const auto fault = [&](const std::string& text) -> std::string {
    try {
      parse_dump_text(text, "c.txt", t);
    } catch (const error& e) {
      return e.what();
    }
    return "no fault";
  };
  EXPECT_EQ(fault(replaced(good, "step 0 \n", "")), "c.txt:10: field \"step\" is missing");
  EXPECT_EQ(fault(replaced(good, "step 0", "stop 0")), "c.txt:5: unknown field \"stop\"");
  EXPECT_EQ(fault(replaced(good, "step 0", "step 0x1")),
            "c.txt:5: \"step\" must be a whole number of 32 bits");
  EXPECT_EQ(fault(replaced(good, "step 0", "step 3000000000")),
            "c.txt:5: \"step\" must be a whole number of 32 bits");
  EXPECT_EQ(fault(replaced(good, "step 0", "scale 0")), "c.txt:5: \"scale\" is there twice");
}

}  // namespace
}  // namespace vorn::tool
