#include "cnr/cnr_handle.h"

#include <gtest/gtest.h>

#include <cstring>

#include "cnr/cnr_driver.h"
#include "cnr/exported/masked_driver.h"
#include "runtime/pool.h"
#include "tests/support/frames.h"

namespace {

using namespace vorn_test;

struct owner : denoise_handle_t {
  owner() : denoise_handle_t{} { pool = reinterpret_cast<struct pool*>(this); }
};

TEST(CnrHandle, ImagesShareOneBlock) {
  owner top;
  cnr_handle_t* handle = cnr_init(43, 31, &top);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->cnr_version, 4);
  EXPECT_EQ(handle->width, 43);
  EXPECT_EQ(handle->height, 31);
  EXPECT_EQ(handle->pool, top.pool);
  const unsigned char* block = handle->images[0].plane[0];
  const int q = 21 * 15, r = 10 * 7;
  for (int k = 0; k < 7; ++k) {
    const _tag_uni_image& fine = handle->images[2 * k];
    EXPECT_EQ(fine.plane[0] - block, k * q);
    EXPECT_EQ(fine.width, 21);
    EXPECT_EQ(fine.height, 15);
    EXPECT_EQ(fine.stride[0], 21);
    const _tag_uni_image& coarse = handle->images[2 * k + 1];
    EXPECT_EQ(coarse.plane[0] - block, 7 * q + k * r);
    EXPECT_EQ(coarse.width, 10);
    EXPECT_EQ(coarse.height, 7);
    EXPECT_EQ(coarse.stride[0], 10);
  }
  // The byte behind the block is read as a difference by the doubling of an odd width.
  const int size = 7 * (q + r);
  for (int i = 0; i < size + 128; ++i) ASSERT_EQ(block[i], i == size ? 128 : 0) << i;
  EXPECT_EQ(cnr_deinit(handle), 0);
  EXPECT_EQ(cnr_deinit(nullptr), -1);
  EXPECT_EQ(color_noise_reduce_deinit(nullptr), 0);
}

TEST(CnrHandle, RefusesSizesThatDoNotFit) {
  owner top;
  const quiet_log silence;
  for (const auto& size : {std::pair<int, int>{0, 10},
                           {10, 0},
                           {-4, -4},
                           {65536, 65536},
                           {40000, 40000},
                           {0x7fffffff, 0x7fffffff}})
    EXPECT_EQ(cnr_init(size.first, size.second, &top), nullptr);
  EXPECT_EQ(cnr_init(16, 16, nullptr), nullptr);
  cnr_handle_t* smallest = cnr_init(1, 1, &top);
  ASSERT_NE(smallest, nullptr);
  EXPECT_EQ(cnr_deinit(smallest), 0);
}

TEST(CnrHandle, Capability) {
  owner top;
  cnr_handle_t* handle = cnr_init(4000, 3000, &top);
  ASSERT_NE(handle, nullptr);
  __cnr_capability_param record;
  std::memset(&record, 0x55, sizeof(record));
  EXPECT_EQ(cnr_capability(handle, nullptr), -1);
  EXPECT_EQ(cnr_capability(nullptr, &record), -1);
  EXPECT_EQ(record.name[0], 0x55);
  EXPECT_EQ(cnr_capability(handle, &record), 0);
  EXPECT_STREQ(record.name, "CAM_ALGO_CV_YNR2");
  EXPECT_STREQ(record.build_date, "Aug 28 2024");
  EXPECT_STREQ(record.build_time, "18:43:31");
  EXPECT_STREQ(record.version, "4.0.1.2.2768825");
  EXPECT_EQ(record.memory_mb, 25);
  cnr_deinit(handle);
}

}  // namespace
