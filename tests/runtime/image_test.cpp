#include "runtime/exported/image.h"
#include "runtime/image.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <vector>

namespace {

TEST(Image, LayoutsOfBothVariants) {
  struct row {
    int type;
    int planes;         // plane pointers set
    int stride_factor;  // stride in widths
    size_t bytes;       // allocated for 6 x 4
  };
  constexpr row kRows[] = {{0, 1, 1, 24}, {1, 1, 3, 72}, {2, 1, 3, 72},
                           {3, 2, 1, 72}, {4, 2, 1, 72}, {5, 3, 1, 72}};
  for (const row& r : kRows) {
    SCOPED_TRACE(r.type);
    unsigned char* const untouched = reinterpret_cast<unsigned char*>(0x1000);
    _tag_uni_image img;
    for (int i = 0; i < 4; ++i) {
      img.plane[i] = untouched;
      img.stride[i] = -7;
    }
    ASSERT_EQ(create_uni_image(&img, 6, 4, r.type), 0);
    EXPECT_EQ(img.type, r.type);
    EXPECT_EQ(img.width, 6);
    EXPECT_EQ(img.height, 4);
    for (size_t i = 0; i < r.bytes; ++i) ASSERT_EQ(img.plane[0][i], 0) << i;
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(img.plane[i], i < r.planes ? img.plane[0] + i * 24 : untouched) << i;
      EXPECT_EQ(img.stride[i], i < r.planes ? 6 * r.stride_factor : -7) << i;
    }

    unsigned char buffer[72];
    _tag_uni_image wrap = img;
    ASSERT_EQ(create_uni_image(&wrap, buffer, 6, 4, r.type), 0);
    for (int i = 0; i < r.planes; ++i) EXPECT_EQ(wrap.plane[i], buffer + i * 24) << i;
    EXPECT_EQ(std::memcmp(wrap.stride, img.stride, sizeof img.stride), 0);

    destroy_uni_image(&img);
    EXPECT_EQ(img.plane[0], nullptr);
    destroy_uni_image(&img);  // the second call does nothing
  }
}

TEST(Image, UnknownTypeStoresSizeAndTouchesNoPlane) {
  EXPECT_EQ(create_uni_image(nullptr, 6, 4, 0), -1);
  for (int type : {-1, 6}) {
    _tag_uni_image img = {};
    unsigned char byte;
    img.plane[0] = &byte;
    EXPECT_EQ(create_uni_image(&img, 6, 4, type), -2);
    EXPECT_EQ(img.type, type);
    EXPECT_EQ(img.width, 6);
    EXPECT_EQ(img.height, 4);
    EXPECT_EQ(img.plane[0], &byte);
    EXPECT_EQ(create_uni_image(&img, nullptr, 8, 2, type), -2);
    EXPECT_EQ(img.width, 8);
    EXPECT_EQ(img.plane[0], &byte);
  }
}

TEST(Image, SizesBeyond31BitsThrow) {
  _tag_uni_image img = {};
  EXPECT_THROW(create_uni_image(&img, 65536, 32768, 0), std::bad_alloc);
  EXPECT_THROW(create_uni_image(&img, 65536, 65536, 0), std::bad_alloc);  // wraps to 0
  EXPECT_THROW(create_uni_image(&img, 30000, 30000, 3), std::bad_alloc);  // wraps below 0
  EXPECT_THROW(create_uni_image(&img, 40000, 40000, 3), std::bad_alloc);  // wraps to 505 MB
  EXPECT_THROW(create_uni_image(&img, -4, 4, 0), std::bad_alloc);
  EXPECT_EQ(img.plane[0], nullptr);
}

TEST(Image, CopyOfEqualStridesTakesTheBytesBetweenRows) {
  std::vector<unsigned char> from(40), to(40, 0xee);
  for (size_t i = 0; i < from.size(); ++i) from[i] = static_cast<unsigned char>(i);
  _tag_uni_image src = {}, dst = {};
  create_uni_image(&src, from.data(), 6, 4, 0);
  create_uni_image(&dst, to.data(), 6, 4, 0);
  src.stride[0] = dst.stride[0] = 9;
  copy_uni_image(&dst, &src);
  for (size_t i = 0; i < to.size(); ++i) EXPECT_EQ(to[i], i < 36 ? i : 0xee) << i;
}

TEST(Image, CopyOfDifferentStridesTakesRowsOfTheFirstPlaneOnly) {
  std::vector<unsigned char> from(100), to(100, 0xee);
  for (size_t i = 0; i < from.size(); ++i) from[i] = static_cast<unsigned char>(i);
  _tag_uni_image src = {}, dst = {};
  create_uni_image(&src, from.data(), 8, 6, 3);
  create_uni_image(&dst, to.data(), 5, 3, 3);  // dst's size governs
  dst.stride[0] = 7;
  copy_uni_image(&dst, &src);
  for (size_t i = 0; i < to.size(); ++i) {
    const size_t x = i % 7, y = i / 7;
    EXPECT_EQ(to[i], x < 5 && y < 3 ? y * 8 + x : 0xee) << i;
  }
  copy_uni_image(nullptr, &src);
  copy_uni_image(&dst, nullptr);
}

}  // namespace
