#include "base/dump.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/exported/services.h"
#include "base/log.h"
#include "tests/support/frames.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

constexpr char kLumaIn[] = "persist.vendor.cam.ynr2.input=";
constexpr char kLumaOut[] = "persist.vendor.cam.ynr2.output=";
constexpr char kLumaPath[] = "persist.vendor.cam.ynr2.save_path=";
constexpr char kChromaIn[] = "persist.vendor.cam.cnr4.input=";
constexpr char kChromaOut[] = "persist.vendor.cam.cnr4.output=";
constexpr char kChromaPath[] = "persist.vendor.cam.cnr4.save_path=";

const char kLumaText[] =
    "enable 1 \nlayer -2 \n0pIntensity 3 \n1pIntensity 4 \n2pIntensity 5 \n3pIntensity 6 \n"
    "4pIntensity 7 \n0pRadius 8 \n1pRadius 9 \n2pRadius 10 \n3pRadius 11 \n4pRadius 12 \n"
    "param0 13 \nparam1 14 \nparam2 -2147483648 \n";
const char kChromaText[] =
    "enable 1 \nrange_factor 2 \nsmooth_radius 3 \nscale 4 \nstep 5 \ncolor_edge_u 6 \n"
    "color_edge_v 7 \nsaturation -8 \nparam0 9 \nparam1 10 \nparam2 11 \n";

int dump_luma(ycnr_ynr_tuning_param* luma) {
  return DUMP_ynr_config_file("sw", "yes", "path", "20240828184329", luma);
}

int dump_chroma(ycnr_cnr_tuning_param* chroma) {
  return DUMP_cnr_config_file("sw", "yes", "path", "20240828184329", chroma);
}

int dump_image(const std::string& data) {
  return DUMP_IMAGE_CONDITION("sw", "yes", "path", "label", "20240828184329",
                              const_cast<char*>(data.data()), 17, 3, static_cast<int>(data.size()));
}

class Dump : public ::testing::Test {
 protected:
  std::string dir() const { return dir_.path().string(); }
  std::string text(const std::string& name) const { return read_file(dir_.path() / name); }

  ycnr_ynr_tuning_param luma = {1,  -2, {3, 4, 5, 6, 7}, {8, 9, 10, 11, 12},
                                13, 14, -2147483647 - 1};
  ycnr_cnr_tuning_param chroma = {1, 2, 3, 4, 5, 6, 7, -8, 9, 10, 11};
  temp_dir dir_;
};

TEST_F(Dump, NamesAndBytes) {
  properties props("sw=yes\npath=" + dir() + "/\n");
  const std::string data("a\0b\n\xff", 5);
  EXPECT_EQ(dump_luma(&luma), 0);
  EXPECT_EQ(dump_chroma(&chroma), 0);
  EXPECT_EQ(dump_image(data), 0);
  const std::vector<std::string> expected = {"_20240828184329_cnr4_turning_param.txt",
                                             "_20240828184329_ynr2_turning_param.txt",
                                             "label_17x3_20240828184329.yuv"};
  EXPECT_EQ(dir_.files(), expected);
  EXPECT_EQ(text(expected[0]), kChromaText);
  EXPECT_EQ(text(expected[1]), kLumaText);
  EXPECT_EQ(text(expected[2]), data);
}

TEST_F(Dump, SwitchIsComparedExactly) {
  for (const char* value : {"", "no", "YES", "yes ", " yes", "ye", "yess"}) {
    properties props("sw=" + std::string(value) + "\npath=" + dir() + "/\n");
    EXPECT_NE(dump_luma(&luma), 0) << value;
    EXPECT_NE(dump_chroma(&chroma), 0) << value;
    EXPECT_NE(dump_image("x"), 0) << value;
  }
  EXPECT_TRUE(dir_.files().empty());
}

TEST_F(Dump, PathIsAPlainPrefix) {
  properties props("sw=yes\npath=" + dir() + "/cam\n");
  EXPECT_EQ(dump_luma(&luma), 0);
  EXPECT_EQ(dump_image("x"), 0);
  const std::vector<std::string> expected = {"cam_20240828184329_ynr2_turning_param.txt",
                                             "camlabel_17x3_20240828184329.yuv"};
  EXPECT_EQ(dir_.files(), expected);
}

TEST_F(Dump, FilesThatCannotBeOpenedOrWritten) {
  properties props("sw=yes\npath=" + dir() + "/none/\n");
  {
    log_capture log;
    EXPECT_NE(dump_luma(&luma), 0);
    EXPECT_NE(dump_chroma(&chroma), 0);
    EXPECT_NE(dump_image("x"), 0);
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_TRUE(log.has("E YCNR_LOG: L #, DUMP_ynr_config_file:fopen " + dir() +
                        "/none/_20240828184329_ynr2_turning_param.txt fail! errno=2"));
    EXPECT_TRUE(log.has("E YCNR_LOG: L #, DUMP_IMAGE_CONDITION:fopen " + dir() +
                        "/none/label_17x3_20240828184329.yuv fail! errno=2"));
  }
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  props.set("sw=yes\npath=" + dir() + "/\n");
  for (const char* name :
       {"_20240828184329_ynr2_turning_param.txt", "_20240828184329_cnr4_turning_param.txt",
        "label_17x3_20240828184329.yuv"})
    std::filesystem::create_symlink("/dev/full", dir_.path() / name);
  log_capture log;
  EXPECT_NE(dump_luma(&luma), 0);
  EXPECT_NE(dump_chroma(&chroma), 0);
  dump_image(std::string(1 << 20, 'x'));
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, DUMP_IMAGE_CONDITION:fwrite " + dir() +
                      "/label_17x3_20240828184329.yuv error! errno=28"));
  EXPECT_EQ(log.count('E'), 3);
}

// Whatever stands under the name: nothing waits for a reader, and nobody's link is followed.
TEST_F(Dump, OnlyFilesAreWrittenTo) {
  properties props("sw=yes\npath=" + dir() + "/\n");
  const std::string name = dir() + "/label_17x3_20240828184329.yuv";
  ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
  for (bool reader : {false, true}) {
    const int file = reader ? open(name.c_str(), O_RDONLY | O_NONBLOCK) : -1;
    log_capture log;
    EXPECT_EQ(dump_image("data"), -1);
    EXPECT_TRUE(log.has("E YCNR_LOG: L #, DUMP_IMAGE_CONDITION:fopen " + name + " fail! errno=6"));
    if (reader) close(file);
  }
  std::filesystem::remove(name);
  std::filesystem::create_symlink(dir() + "/target", name);
  EXPECT_EQ(dump_image("data"), 0);  // one's own
  EXPECT_EQ(text("target"), "data");
  if (lchown(name.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "only root has links of others";
  log_capture log;
  EXPECT_EQ(dump_image("other"), -1);
  EXPECT_EQ(text("target"), "data");
  EXPECT_EQ(log.count('E'), 1);
}

// A longer path is cut as a device's properties are, and one line says so.
TEST_F(Dump, ALongPathIsCut) {
  const std::string path = dir() + "/" + std::string(91 - dir().size() - 1, 'p');
  log_capture log;
  for (const char* more : {"", "q"}) {
    properties props("sw=yes\npath=" + path + more + "\n");
    EXPECT_EQ(dump_image("x"), 0);
    EXPECT_EQ(log.count('E'), *more ? 1 : 0);
  }
  EXPECT_TRUE(log.has("E YCNR_LOG: L #, DUMP_IMAGE_CONDITION:path: 92 characters cut to 91"));
  EXPECT_EQ(read_file(path + "label_17x3_20240828184329.yuv"), "x");
}

// What VORN_PROPERTIES names is read if it is a file, and its beginning alone.
TEST_F(Dump, PropertiesComeFromAFile) {
  const std::string fifo = dir() + "/fifo", large = dir() + "/large";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::ofstream(large) << "before=1\n" << std::string(2 << 20, '#') << "\nbehind=1\n";
  char value[256];
  for (const std::string& name : {fifo, std::string("/dev/zero"), dir()}) {
    setenv("VORN_PROPERTIES", name.c_str(), 1);
    getProperty_NR("before", "unset", value);
    EXPECT_STREQ(value, "unset") << name;
  }
  setenv("VORN_PROPERTIES", large.c_str(), 1);
  getProperty_NR("before", "unset", value);
  EXPECT_STREQ(value, "1");
  getProperty_NR("behind", "unset", value);
  EXPECT_STREQ(value, "unset");
  unsetenv("VORN_PROPERTIES");
}

TEST_F(Dump, NoOpsDoNothing) {
  char name[] = "x";
  DUMP_DATA(name, "wb", 1, name, 1);
  DUMP_DATA_YNR(nullptr, nullptr, 0, nullptr, -1);
  EXPECT_STREQ(name, "x");
}

// Through the door: which files one frame leaves, switched while the handle lives.
TEST_F(Dump, FramesAndTuningsOfOneFrame) {
  properties props;
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  tuning both;
  both.cnr.step = 3;
  src.draw(1);
  ASSERT_EQ(one.run(src, dst, both), 0);
  EXPECT_TRUE(dir_.files().empty());

  props.set(std::string(kLumaIn) + "yes\n" + kLumaOut + "yes\n" + kLumaPath + dir() + "/\n" +
            kChromaIn + "yes\n" + kChromaOut + "yes\n" + kChromaPath + dir() + "/\n");
  src.draw(2);
  const std::vector<uint8_t> input = src.bytes();
  ASSERT_EQ(one.run(src, dst, both), 0);
  const std::vector<uint8_t> luma_result = src.bytes();  // both on: src holds it
  props.set("");
  ASSERT_EQ(one.run(src, dst, both), 0);

  std::vector<std::string> stems, stamps;
  for (const std::string& name : dir_.files()) {
    std::string stem = name, stamp;
    const size_t digits = name.find("20");
    stamp = name.substr(digits, 14);
    stem.erase(digits, 14);
    stems.push_back(stem);
    if (stem[0] == '_') stamps.push_back(stamp);
    std::vector<uint8_t> expected;
    const std::string content = text(name);
    if (stem == "ynr2_input_64x48_.yuv") {
      EXPECT_EQ(content, std::string(input.begin(), input.end()));
    } else if (stem == "cnr4_input_64x48_.yuv") {
      // The chroma filter's input is the luma filter's result.
      EXPECT_EQ(content, std::string(luma_result.begin(), luma_result.end()));
    } else if (stem == "ynr2_output_64x48_.yuv") {
      EXPECT_EQ(content, std::string(luma_result.begin(), luma_result.end()));
    } else if (stem == "__cnr4_turning_param.txt") {
      EXPECT_NE(content.find("step 3 \n"), std::string::npos);  // not doubled
    }
  }
  const std::vector<std::string> expected = {"__cnr4_turning_param.txt", "__ynr2_turning_param.txt",
                                             "cnr4_input_64x48_.yuv",    "cnr4_output_64x48_.yuv",
                                             "ynr2_input_64x48_.yuv",    "ynr2_output_64x48_.yuv"};
  EXPECT_EQ(stems, expected);
  ASSERT_EQ(stamps.size(), 2u);
  EXPECT_EQ(stamps[0], stamps[1]);  // one time stamp for both tunings of a frame
}

TEST_F(Dump, AFailedDumpNeverFailsTheFrame) {
  properties props(std::string(kLumaIn) + "yes\n" + kLumaOut + "yes\n" + kLumaPath + dir() +
                   "/none/\n" + kChromaIn + "yes\n" + kChromaOut + "yes\n" + kChromaPath + dir() +
                   "/none/\n");
  denoiser one(64, 48);
  frame src(64, 48), dst(64, 48);
  tuning both;
  src.draw(1);
  log_capture log;
  EXPECT_EQ(one.run(src, dst, both), 0);
  EXPECT_EQ(log.count('E'), 6);
}

}  // namespace
