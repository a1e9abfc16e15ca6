#include "tools/tuning/tuning_set.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tools/error.h"

namespace vorn::tool {
namespace {

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

// Sets are libvorn_tuning's; here is what the tool does with them.
TEST(TuningSet, PassesThroughTheLibraryWhole) {
  tuning_set set = default_tuning_set();
  set.name = "n";
  set.entries[1].name = "dusk";
  set.entries[1].notes = "tripod";
  set.entries[0].values.luma.layer = 2;
  const std::string text = tuning_set_to_json(set);
  const tuning_set back = parse_tuning_set(text, "set.json");
  EXPECT_EQ(back.entries.size(), set.entries.size());
  EXPECT_EQ(back.entries[1].notes, "tripod");
  EXPECT_EQ(tuning_set_to_json(back), text);
  EXPECT_EQ(set.nearest(2.1).gain, 2);
  EXPECT_THROW(set.nearest(std::nan("")), error);
  try {
    parse_tuning_set(replaced(text, "\"layer\": 2", "\"layer\": 9"), "set.json");
    ADD_FAILURE() << "taken";
  } catch (const error& e) {
    EXPECT_STREQ(e.what(), "set.json:8: \"luma.layer\" must be a whole number from 2 to 5, not 9");
  }
  set.entries[0].values.chroma.scale = 9;
  EXPECT_THROW(tuning_set_to_json(set), error);
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
