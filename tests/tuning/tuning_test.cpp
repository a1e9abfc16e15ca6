// libvorn_tuning through its C calls.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "vorn_tuning.h"

namespace {

namespace fs = std::filesystem;

const fs::path kSource = VORN_SOURCE_DIR;

struct deleter {
  void operator()(vorn_tuning_set* set) const { vorn_tuning_free(set); }
};
using set_pointer = std::unique_ptr<vorn_tuning_set, deleter>;

std::string file_text(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

set_pointer parse(const std::string& text, std::string* cause = nullptr) {
  vorn_tuning_fault fault = {};
  set_pointer set(vorn_tuning_parse(text.data(), text.size(), "t", &fault));
  if (cause) *cause = fault.text;
  return set;
}

std::string json_of(const vorn_tuning_set* set) {
  std::string text(vorn_tuning_json(set, nullptr, 0), 0);
  vorn_tuning_json(set, text.data(), text.size() + 1);
  return text;
}

// Every field at another value within its range.
void numbered(ycnr_ynr_tuning_param& luma, ycnr_cnr_tuning_param& chroma) {
  luma = {1, 4, {11, 12, 13, 14, 15}, {0, 3, 5, 7, 3}, 65, -66, 67};
  chroma = {0, 21, 22, 1, 3, 25, 26, -7, 28, 29, std::numeric_limits<int32_t>::min()};
}

TEST(TuningSets, GoodFilesAreTakenAndComeBackAsTheyWere) {
  int files = 0;
  for (const auto& item : fs::directory_iterator(kSource / "tests/tuning_sets/good")) {
    vorn_tuning_fault fault = {};
    const set_pointer set(vorn_tuning_load(item.path().c_str(), &fault));
    ASSERT_TRUE(set) << fault.text;
    const std::string text = json_of(set.get());
    const set_pointer again = parse(text);
    ASSERT_TRUE(again) << text;
    EXPECT_EQ(json_of(again.get()), text);
    files++;
  }
  EXPECT_GE(files, 9);
}

TEST(TuningSets, BadFilesAreRefusedWithLineAndField) {
  std::ifstream table(kSource / "tests/tuning_sets/bad.txt");
  size_t rows = 0;
  for (std::string row; std::getline(table, row); rows++) {
    const size_t colon = row.find(": ");
    const std::string path = kSource / "tests/tuning_sets/bad" / row.substr(0, colon);
    vorn_tuning_fault fault = {};
    EXPECT_FALSE(set_pointer(vorn_tuning_load(path.c_str(), &fault))) << path;
    EXPECT_EQ(fault.code, VORN_TUNING_INVALID);
    const std::string text = fault.text;
    EXPECT_EQ(text.rfind(path + ":", 0), 0u) << text;
    EXPECT_NE(text.find(row.substr(colon + 2)), std::string::npos) << text;
    EXPECT_NE(text.find(fault.field), std::string::npos) << text;
    EXPECT_NE(text.find(":" + std::to_string(fault.line) + ": "), std::string::npos) << text;
  }
  const fs::directory_iterator bad(kSource / "tests/tuning_sets/bad");
  EXPECT_EQ(rows, size_t(std::distance(begin(bad), end(bad))));
}

// Size and depth alone make no work: each of these is refused at once.
TEST(TuningSets, LargeAndDeepTextsAreRefusedQuickly) {
  const std::string head = "{\"format\": \"vorn-ycnr tuning set\", \"version\": 1, ";
  std::string keys = "{", twice = head, deep;
  for (int i = 0; i < 200000; i++) keys += "\"k" + std::to_string(i) + "\": 1, ";
  for (int i = 0; i < 200000; i++) twice += "\"name\": \"\", ";
  for (int i = 0; i < 100000; i++) deep += "{\"format\":";
  std::string cause;
  EXPECT_FALSE(parse(keys, &cause));
  EXPECT_NE(cause.find("unknown field \"k0\""), std::string::npos) << cause;
  EXPECT_FALSE(parse(twice, &cause));
  EXPECT_NE(cause.find("\"name\" is there twice"), std::string::npos) << cause;
  EXPECT_FALSE(parse(std::string(100000, '['), &cause));
  EXPECT_NE(cause.find("must be an object, not an array"), std::string::npos) << cause;
  EXPECT_FALSE(parse(deep, &cause));
  EXPECT_NE(cause.find("\"format\" must be"), std::string::npos) << cause;
  EXPECT_FALSE(parse(head + std::string(10 << 20, ' '), &cause));
  EXPECT_NE(cause.find("larger than 4 MiB"), std::string::npos) << cause;
  vorn_tuning_fault fault;
  EXPECT_FALSE(set_pointer(vorn_tuning_load("/dev/zero", &fault)));
  EXPECT_EQ(fault.code, VORN_TUNING_INVALID);
}

TEST(TuningSets, RecordsSurviveWritingAndReading) {
  ycnr_ynr_tuning_param luma, luma_back = {};
  ycnr_cnr_tuning_param chroma, chroma_back = {};
  numbered(luma, chroma);
  const set_pointer set(vorn_tuning_new(nullptr));
  EXPECT_EQ(vorn_tuning_put(set.get(), 16, &luma, &chroma, nullptr), 0);
  EXPECT_EQ(vorn_tuning_put(set.get(), 0.1, &luma, &chroma, nullptr), 0);
  EXPECT_EQ(vorn_tuning_put(set.get(), 4, &luma, &chroma, nullptr), 1);
  EXPECT_EQ(vorn_tuning_annotate(set.get(), 1, "dusk \xc3\xa9 \"x\"", "a\nb", nullptr), 0);
  luma.param1 = 7;
  EXPECT_EQ(vorn_tuning_put(set.get(), 4, &luma, &chroma, nullptr), 1) << "the same gain again";
  const set_pointer back = parse(json_of(set.get()));
  ASSERT_EQ(vorn_tuning_count(back.get()), 3);
  EXPECT_EQ(vorn_tuning_gain(back.get(), 0), 0.1);
  EXPECT_EQ(vorn_tuning_gain(back.get(), 2), 16);
  EXPECT_STREQ(vorn_tuning_entry_name(back.get(), 1), "dusk \xc3\xa9 \"x\"");
  EXPECT_STREQ(vorn_tuning_entry_notes(back.get(), 1), "a\nb");
  EXPECT_EQ(vorn_tuning_get(back.get(), 1, &luma_back, &chroma_back), VORN_TUNING_OK);
  EXPECT_EQ(std::memcmp(&luma, &luma_back, sizeof luma), 0);
  EXPECT_EQ(std::memcmp(&chroma, &chroma_back, sizeof chroma), 0);
  // By name, so that a slip in the table of fields shows.
  const auto root = nlohmann::json::parse(json_of(back.get()));
  const auto& entry = root["entries"][1];
  EXPECT_EQ(entry["luma"]["pRadius"], (nlohmann::json{0, 3, 5, 7, 3}));
  EXPECT_EQ(entry["luma"]["param0"], 65);
  EXPECT_EQ(entry["chroma"]["range_factor"], 21);
  EXPECT_EQ(entry["chroma"]["step"], 3);
  EXPECT_EQ(entry["chroma"]["saturation"], -7);
}

TEST(TuningSets, WhatCannotStandInASetIsRefused) {
  ycnr_ynr_tuning_param luma;
  ycnr_cnr_tuning_param chroma;
  numbered(luma, chroma);
  const set_pointer set(vorn_tuning_new(nullptr));
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double gain : {0.0, -1.0, 2e6, infinity, std::nan("")}) {
    EXPECT_EQ(vorn_tuning_put(set.get(), gain, &luma, &chroma, nullptr), VORN_TUNING_INVALID);
  }
  vorn_tuning_fault fault = {};
  for (const int32_t window : {-1, 1, 2, 4, 6, 8}) {
    luma.pRadius[3] = window;
    EXPECT_EQ(vorn_tuning_put(set.get(), 1, &luma, &chroma, &fault), VORN_TUNING_INVALID) << window;
    EXPECT_STREQ(fault.field, "luma.pRadius[3]");
  }
  EXPECT_EQ(vorn_tuning_count(set.get()), 0);
  EXPECT_EQ(vorn_tuning_check(nullptr, &chroma, nullptr), VORN_TUNING_OK);
  EXPECT_EQ(vorn_tuning_describe(set.get(), "caf\xe9", "", nullptr), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_save(set.get(), "/dev/null", nullptr), VORN_TUNING_ARGUMENT) << "empty";
  EXPECT_EQ(vorn_tuning_for_gain(set.get(), 1, &luma, &chroma), VORN_TUNING_ARGUMENT);
  EXPECT_EQ(vorn_tuning_get(nullptr, 0, &luma, &chroma), VORN_TUNING_ARGUMENT);
  EXPECT_FALSE(vorn_tuning_load(nullptr, &fault));
  EXPECT_FALSE(vorn_tuning_load("/nowhere/set.json", &fault));
  EXPECT_EQ(fault.system_error, ENOENT);
  EXPECT_STREQ(fault.text, "/nowhere/set.json: cannot be read: No such file or directory");
  const set_pointer sound(vorn_tuning_default(nullptr));
  for (const char* name : {"", "9a", "a-b", "a b"}) {
    EXPECT_EQ(vorn_tuning_c_header(sound.get(), name, nullptr, 0), 0u) << name;
  }
}

TEST(TuningSets, GainPicksTheNearestInStops) {
  const double gains[] = {1, 4, 16};
  const auto at = [&](double gain) { return vorn_tuning_nearest_gain(gains, 3, gain); };
  EXPECT_EQ(at(1e-300), 0);
  EXPECT_EQ(at(1.9), 0);
  EXPECT_EQ(at(2), 0) << "half-way: the lower";
  EXPECT_EQ(at(2.1), 1);
  EXPECT_EQ(at(7.9), 1);
  EXPECT_EQ(at(8.1), 2);
  EXPECT_EQ(at(1e300), 2);
  for (const double gain : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(at(gain), VORN_TUNING_ARGUMENT) << gain;
  }
}

TEST(TuningSets, FilesAreReplacedWholeWithTheirPermissions) {
  const fs::path folder = fs::path(testing::TempDir()) / ("sets" + std::to_string(getpid()));
  fs::create_directories(folder);
  const set_pointer set(vorn_tuning_default(nullptr));
  const std::string text = json_of(set.get());
  const auto save = [&](const fs::path& path) {
    return vorn_tuning_save(set.get(), path.c_str(), nullptr);
  };
  const auto mode = [](const fs::path& path) { return int(fs::status(path).permissions()); };

  const mode_t mask = umask(027);
  EXPECT_EQ(save(folder / std::string(250, 'n')), VORN_TUNING_OK) << "a long name";
  EXPECT_EQ(mode(folder / std::string(250, 'n')), 0640);
  umask(mask);
  std::ofstream(folder / "private") << "old";
  fs::permissions(folder / "private", fs::perms(0600));
  fs::create_symlink("private", folder / "link");
  EXPECT_EQ(save(folder / "link"), VORN_TUNING_OK);
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_EQ(file_text(folder / "private"), text);
  EXPECT_EQ(mode(folder / "private"), 0600);

  std::ofstream(folder / "kept") << "old";
  EXPECT_EQ(save(folder / "none/x"), VORN_TUNING_IO);
  EXPECT_EQ(save("/dev/full"), VORN_TUNING_IO);
  EXPECT_EQ(save(folder), VORN_TUNING_IO);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4) << "nothing half written";
  fs::remove_all(folder);
}

// The schema and the page state the table's ranges.
TEST(TuningSets, PagesStateTheRanges) {
  const auto schema = nlohmann::json::parse(file_text(kSource / "docs/tuning_set.schema.json"));
  const std::string page = file_text(kSource / "docs/tuning.md");
  const auto& parts = schema["properties"]["entries"]["items"]["properties"];
  int count = 0;
  for (; const vorn_tuning_field* field = vorn_tuning_field_at(count); count++) {
    const char* const group = field->record == VORN_TUNING_LUMA ? "luma" : "chroma";
    const auto& stated = parts[group]["properties"][field->key];
    const auto& number = stated.contains("items") ? stated["items"] : stated;
    std::string range = std::to_string(field->least) + ".." + std::to_string(field->most);
    if (field->windows) {
      EXPECT_EQ(number["enum"], (nlohmann::json{0, 3, 5, 7})) << field->key;
      range = "0, 3, 5, 7";
    } else {
      EXPECT_EQ(number["minimum"], field->least) << field->key;
      EXPECT_EQ(number["maximum"], field->most) << field->key;
      if (field->least == std::numeric_limits<int32_t>::min()) range = "any";
      if (field->most == 1) range = "0, 1";
      if (field->most == 2) range = "0, 1, 2";
    }
    EXPECT_EQ(stated["description"], field->meaning) << field->key;
    // The row of the page's table that belongs to this record and names the key.
    const std::string title =
        field->record == VORN_TUNING_LUMA ? "## Luma param" : "## Chroma param";
    std::istringstream rows(page.substr(page.find(title)));
    bool found = false;
    for (std::string row; !found && std::getline(rows, row);) {
      found =
          row.rfind("| `", 0) == 0 && row.find(std::string("`") + field->key) < row.find(" | ", 2);
      if (!found) continue;
      EXPECT_NE(row.find("| " + range + " |"), std::string::npos) << row << range;
    }
    EXPECT_TRUE(found) << field->key;
  }
  EXPECT_EQ(count, 26);
  EXPECT_EQ(schema["required"], (nlohmann::json{"format", "version", "entries"}));
}

TEST(TuningSets, ManyThreadsReadOneSet) {
  const set_pointer set(vorn_tuning_default(nullptr));
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; i++) {
        const set_pointer own(vorn_tuning_default(nullptr));
        wrong += json_of(own.get()) != json_of(set.get());
        wrong += vorn_tuning_gain(set.get(), vorn_tuning_nearest(set.get(), 8)) != 8;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
