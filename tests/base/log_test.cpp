#include "base/log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "base/exported/services.h"
#include "tests/support/host.h"

namespace {

using namespace vorn_test;

class Log : public ::testing::Test {
 protected:
  ~Log() override { nr_log_Level = 4; }
};

TEST_F(Log, LevelFollowsTheProperties) {
  struct row {
    const char* text;
    int before, after;
  };
  const row rows[] = {
      {"", 4, 4},
      {"", 2, 2},  // absent properties leave it alone
      {"ro.debuggable=0\n", 4, 3},
      {"ro.debuggable=1\n", 0, 4},
      {"ro.debuggable=\n", 2, 2},
      {"ro.debuggable=yes\n", 4, 3},  // no number reads as 0
      {"persist.vendor.cam.nr_api.log=0\n", 4, 0},
      {"ro.debuggable=1\npersist.vendor.cam.nr_api.log=1\n", 4, 1},
      {"ro.debuggable=0\npersist.vendor.cam.nr_api.log=-1\n", 4, 3},
      {"persist.vendor.cam.nr_api.log=9\n", 4, 9},
      {"persist.vendor.cam.nr_api.log=4294967298\n", 4, 2},  // 32 bits of it
      {"persist.vendor.cam.nr_api.log=4294967295\n", 1, 1},  // reads as -1
      {"persist.vendor.cam.nr_api.log=99999999999999999999\n", 4, 4},
      {"persist.vendor.cam.nr_api.log=x\n", 4, 0},
  };
  properties props;
  for (const row& r : rows) {
    props.set(r.text);
    nr_log_Level = r.before;
    initLogLevel();
    EXPECT_EQ(nr_log_Level, r.after) << r.text;
  }
}

TEST_F(Log, EachPriorityHasItsThreshold) {
  for (int level = 0; level <= 5; ++level) {
    nr_log_Level = level;
    log_capture log;
    VORN_LOGE("e\n");
    VORN_LOGW("w\n");
    VORN_LOGI("i\n");
    VORN_LOGD("d\n");
    EXPECT_EQ(log.count('E'), level >= 1) << level;
    EXPECT_EQ(log.count('W'), level >= 2) << level;
    EXPECT_EQ(log.count('I'), level >= 3) << level;
    EXPECT_EQ(log.count('D'), level >= 4) << level;
  }
}

TEST_F(Log, OneLineFormat) {
  log_capture log;
  const int line = __LINE__ + 1;
  VORN_LOGE("three blanks   \n");
  VORN_LOG_AT(vorn::kLogInfo, __func__, 1234, "no line feed, %d", 7);
  VORN_LOGD("%s", std::string(3000, 'x').c_str());
  lib_version();
  const std::string head = ": L " + std::to_string(line) + ", TestBody:three blanks   \n";
  const std::string text = log.text();
  EXPECT_EQ(text.substr(0, text.find('\n') + 1), "E YCNR_LOG" + head);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_NE(text.find("I YCNR_LOG: L 1234, TestBody:no line feed, 7\n"), std::string::npos);
  EXPECT_GT(lines[2].size(), 1000u);  // cut, but a line of its own
  EXPECT_LT(lines[2].size(), 1100u);
  EXPECT_EQ(lines[3],
            "I YCNR_LOG: L #, lib_version:CAM_ALGO_CV_YCNR_LIBVER [1.0.1.2.2768825]"
            "[Aug 28 2024][18:43:33]");
}

std::string property(const char* name, const char* fallback) {
  char value[256];
  getProperty_NR(name, fallback, value);
  return value;
}

TEST(Property, FileSyntax) {
  properties props(
      "# a.b=comment\n"
      "a.b=first\n"
      "a.b=yes \n"
      "a.bc=other\n"
      "empty=\n"
      "eq=x=y\r\n"
      " indented=no\n"
      "last=no line feed");
  EXPECT_EQ(property("a.b", "d"), "yes ");  // the last one counts, with its trailing blank
  EXPECT_EQ(property("a.bc", "d"), "other");
  EXPECT_EQ(property("a", "d"), "d");
  EXPECT_EQ(property("empty", "d"), "d");
  EXPECT_EQ(property("eq", "d"), "x=y");
  EXPECT_EQ(property("indented", "d"), "d");
  EXPECT_EQ(property("last", "d"), "no line feed");
  EXPECT_EQ(property("# a.b", "d"), "d");
}

TEST(Property, ReadAfreshCutAndAbsent) {
  properties props("p=1\n");
  EXPECT_EQ(property("p", ""), "1");
  props.set("p=" + std::string(91, 'a') + "b\n");
  EXPECT_EQ(property("p", ""), std::string(91, 'a'));
  props.set("q=" + std::string(5000, 'x') + "\np=2\n");  // a line longer than any buffer
  EXPECT_EQ(property("p", ""), "2");
  setenv("VORN_PROPERTIES", "/nonexistent/file", 1);
  EXPECT_EQ(property("p", "default"), "default");
  setenv("VORN_PROPERTIES", "", 1);
  EXPECT_EQ(property("p", "default"), "default");
  unsetenv("VORN_PROPERTIES");
  EXPECT_EQ(property("p", std::string(300, 'z').c_str()), std::string(255, 'z'));
  char value[256];
  std::memset(value, 'u', sizeof value);
  getProperty_NR("p", "no", value);
  EXPECT_EQ(std::string(value, sizeof value), "no" + std::string(254, '\0'));
}

TEST(Clock, MillisecondsThatNeverGoBack) {
  double last = getTime();
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const double ms = static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
  EXPECT_NEAR(last, ms, 1000.0);
  for (int i = 0; i < 10000; ++i) {
    const double next = getTime();
    ASSERT_GE(next, last);
    last = next;
  }
}

TEST(Clock, TimestampIsLocalTime) {
  char text[256] = {};
  const time_t before = time(nullptr);
  getTimestamp_NR(text, sizeof text);
  tm parsed = {};
  parsed.tm_isdst = -1;
  ASSERT_EQ(std::string(text).size(), 14u);
  ASSERT_EQ(std::string(text).find_first_not_of("0123456789"), std::string::npos);
  ASSERT_NE(strptime(text, "%Y%m%d%H%M%S", &parsed), nullptr);
  EXPECT_LE(difftime(mktime(&parsed), before), 5.0);
  EXPECT_GE(difftime(mktime(&parsed), before), 0.0);
  char east[256] = {}, west[256] = {};  // the zone changes while the process runs
  setenv("TZ", "UTC-10", 1);
  getTimestamp_NR(east, sizeof east);
  setenv("TZ", "UTC+10", 1);
  getTimestamp_NR(west, sizeof west);
  unsetenv("TZ");
  EXPECT_STRNE(east, west);
  char untouched = 'u';
  getTimestamp_NR(&untouched, 0);
  EXPECT_EQ(untouched, 'u');
}

}  // namespace
