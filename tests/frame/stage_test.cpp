// The exported stages against the slow model, those included that no frame reaches: odd sizes,
// given masks, the masked and guided filters, the blurs and the seeded tables. Buffers carry random
// bytes around and inside before the call, and all of them are compared, so that a row left
// untouched, a sample read past a row and a write outside show alike.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "base/exported/noise.h"
#include "base/noise.h"
#include "cnr/cnr_driver.h"
#include "cnr/exported/hor_ver.h"
#include "cnr/exported/hor_ver_mask.h"
#include "cnr/exported/masked_driver.h"
#include "cnr/exported/pyramid_stages.h"
#include "cnr/hor_ver.h"
#include "cnr/uv_split.h"
#include "pyramid/detail.h"
#include "pyramid/down2.h"
#include "pyramid/down_yuv.h"
#include "pyramid/exported/blur3x3.h"
#include "pyramid/exported/down.h"
#include "pyramid/exported/up.h"
#include "pyramid/up2.h"
#include "pyramid/up_chroma.h"
#include "runtime/image.h"
#include "runtime/kernel_form.h"
#include "runtime/reciprocal.h"
#include "tests/frame/frame_util.h"
#include "tests/model/model.h"
#include "ynr/block_processors.h"
#include "ynr/block_sums.h"
#include "ynr/exported/block_processors.h"
#include "ynr/exported/pre_mask.h"
#include "ynr/exported/pyramid_stages.h"
#include "ynr/exported/window.h"
#include "ynr/pre_mask.h"
#include "ynr/window.h"
#include "ynr/ynr_driver.h"

using frame_util::any_content;
using frame_util::canvas;
using frame_util::denoiser;
using frame_util::painted;
using frame_util::random_source;

namespace {

std::string sizes(std::initializer_list<int> values) {
  std::string text;
  for (int v : values) text += std::to_string(v) + " ";
  return text + vorn::kernel_form_name(vorn::active_kernel_form());
}

// Runs trial(random, handle) many times, each in the next of this machine's kernel forms.
template <typename Trial>
void trials(uint64_t seed, int count, Trial trial) {
  const vorn::kernel_form restore = vorn::active_kernel_form();
  const denoiser d(64, 64);
  for (int i = 0; i < count * frame_util::effort() && !testing::Test::HasFailure(); ++i) {
    random_source random(seed * 1000000 + i);
    while (!vorn::use_kernel_form(
        static_cast<vorn::kernel_form>(random.between(0, vorn::kKernelForms - 1)))) {
    }
    trial(random, d.handle);
  }
  vorn::use_kernel_form(restore);
}

TEST(stages, down_sampling) {
  trials(100, 150, [](random_source& random, denoise_handle_t* handle) {
    const int dw = random.between(8, 70), dh = random.between(1, 30);
    const int w = 2 * dw + random.between(0, 1), h = 2 * dh - random.between(0, 1);
    const int stride = w + random.between(0, 20), dst_stride = dw + random.between(0, 20);
    canvas src = painted(w, h, stride, random), dst(dw, dh, dst_stride, random), want(dst);
    model::down2(src.plane(), want.plane());
    canvas by_image(dst), by_thread(dst), rows(dst), want_rows(dst);
    const int begin = random.between(0, dh), end = random.between(begin, dh);
    for (int y = begin; y < end; ++y)
      std::copy_n(&want.plane().at(y, 0), dw, &want_rows.plane().at(y, 0));
    gaussin3x3_down2_ynr_pro(src.data(), w, h, stride, rows.data(), dw, dh, dst_stride, begin, end);
    EXPECT_TRUE(rows.same(want_rows)) << "rows " << sizes({w, h, begin, end});
    gaussin3x3_down2(src.data(), w, h, stride, dst.data(), dw, dh, dst_stride);
    gaussin3x3_down2_ynr(handle->ynr, src.image(), by_image.image());
    gaussin3x3_down2_ynr_thread(handle->ynr, src.data(), w, h, stride, by_thread.data(), dw, dh,
                                dst_stride);
    EXPECT_TRUE(dst.same(want)) << sizes({w, h, dw, dh});
    EXPECT_TRUE(by_image.same(want)) << sizes({w, h, dw, dh});
    EXPECT_TRUE(by_thread.same(want)) << sizes({w, h, dw, dh});
  });
}

TEST(stages, down_sampling_of_three_planes) {
  trials(200, 100, [](random_source& random, denoise_handle_t* handle) {
    const int dw = random.between(8, 70), dh = random.between(1, 30);
    const int w = 2 * dw + random.between(0, 1), h = 2 * dh - random.between(0, 1);
    canvas y = painted(w, h, w, random), u = painted(w, h, w, random), v = painted(w, h, w, random);
    canvas dst(dw, dh, dw, random), want_y(dst), want_u(dst), want_v(dst);
    model::down2(y.plane(), want_y.plane());
    model::down2(u.plane(), want_u.plane());
    model::down2(v.plane(), want_v.plane());
    for (int way = 0; way < 3; ++way) {
      canvas a(dst), b(dst), c(dst);
      if (way == 0)
        pyramid_down_yuv(handle->cnr, y.image(), a.image(), u.image(), b.image(), v.image(),
                         c.image());
      else if (way == 1)
        gaussin3x3_down2_yuv_thread(handle->cnr, y.data(), w, h, a.data(), dw, dh, u.data(),
                                    v.data(), b.data(), c.data());
      else
        gaussin3x3_down_yuv(y.data(), w, h, a.data(), dw, dh, u.data(), v.data(), b.data(),
                            c.data());
      EXPECT_TRUE(a.same(want_y) && b.same(want_u) && c.same(want_v)) << sizes({way, w, h});
    }
    canvas single(dst);
    pyramid_down2(handle->cnr, y.image(), single.image());
    EXPECT_TRUE(single.same(want_y)) << sizes({w, h});
  });
}

TEST(stages, split_with_down_sampling) {
  trials(300, 60, [](random_source& random, denoise_handle_t* handle) {
    const int dw = random.between(1, 60), dh = random.between(1, 30);
    const int w = 2 * dw - random.between(0, 1), h = 2 * dh - random.between(0, 1);
    const int stride = w + random.between(0, 9);
    canvas luma = painted(w, h, stride, random), uv = painted(w, dh, w, random);
    canvas u(dw, dh, dw, random), v(u), y(dw, dh, dw + random.between(0, 9), random);
    canvas want_u(u), want_v(v), want_y(y), u4(u), v4(v), y4(y);
    model::plane luma_plane = luma.plane();
    model::split_and_down(uv.data(), want_u.plane(), want_v.plane(), luma_plane, want_y.plane());
    splituv_gaussin3x3_down(uv.data(), u.data(), v.data(), luma.data(), w, h, stride, y.data(), dw,
                            dh, y.image()->stride[0]);
    splituv_gaussin3x3_down_thread(handle->cnr, uv.data(), u4.data(), v4.data(), luma.data(), w, h,
                                   stride, y4.data(), dw, dh, y4.image()->stride[0]);
    EXPECT_TRUE(u.same(want_u) && v.same(want_v) && y.same(want_y)) << sizes({w, h});
    EXPECT_TRUE(u4.same(want_u) && v4.same(want_v) && y4.same(want_y)) << sizes({w, h});
  });
}

TEST(stages, blurs) {
  trials(400, 80, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.between(2, 70), h = random.between(2, 30);
    canvas src = painted(w, h, w + random.between(0, 20), random);
    canvas dst(w, h, w + random.between(0, 20), random), want(dst);
    model::blur(src.plane(), want.plane());
    EXPECT_EQ(GaussianBlur3x3(src.image(), dst.image()), 0);
    EXPECT_TRUE(dst.same(want)) << sizes({w, h});

    canvas u = painted(w, h, w, random), v = painted(w, h, w, random);
    canvas out(w, h, w, random), want_u(out), want_v(out);
    model::blur(u.plane(), want_u.plane());
    model::blur(v.plane(), want_v.plane());
    canvas a(out), b(out), c(out), d(out);
    pyramid_uv(handle->cnr, u.image(), v.image(), a.image(), b.image());
    gaussin3x3_uv_thread(handle->cnr, w, h, w, h, u.data(), v.data(), c.data(), d.data());
    EXPECT_TRUE(a.same(want_u) && b.same(want_v)) << sizes({w, h});
    EXPECT_TRUE(c.same(want_u) && d.same(want_v)) << sizes({w, h});
  });
}

TEST(stages, up_sampling_and_merge) {
  trials(500, 250, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.one_in(4) ? 16 * random.between(1, 4) + 1 : random.between(2, 80);
    const int h = random.between(2, 30);
    const int sw = (w + random.between(0, 1)) / 2, sh = std::max(2, h / 2 + random.between(0, 1));
    canvas small = painted(sw, sh, sw + random.between(0, 9), random);
    canvas out(w, h, w + random.between(0, 20), random), want(out);
    if (h <= 2 * sh + 1) {
      model::up2(small.plane(), want.plane());
      gaussin3x3_up2(small.image(), out.image());
      EXPECT_TRUE(out.same(want)) << "up2 " << sizes({w, h, sw, sh});
    }
    canvas detail = painted(w, h, out.image()->stride[0], random), merged(out), want_merged(out);
    model::up2_merge(small.plane(), detail.plane(), want_merged.plane());
    gaussin3x3_up2_merge(small.image(), detail.image(), merged.image());
    EXPECT_TRUE(merged.same(want_merged)) << "merge " << sizes({w, h, sw, sh});

    // In place, U and V on two workers.
    canvas small_v = painted(sw, sh, sw, random), detail_v = painted(w, h, w, random);
    canvas up(out), up_v(w, h, w, random);
    canvas want_up(up), want_up_v(up_v), want_detail(detail), want_detail_v(detail_v);
    model::up2_merge1(small.plane(), want_up.plane(), want_detail.plane());
    model::up2_merge1(small_v.plane(), want_up_v.plane(), want_detail_v.plane());
    canvas alone_up(up), alone(detail);
    gaussin3x3_up2_merge1_thread(handle->cnr, small.image(), up.image(), detail.image(),
                                 small_v.image(), up_v.image(), detail_v.image());
    gaussin3x3_up2_merge1(small.image(), alone_up.image(), alone.image());
    EXPECT_TRUE(detail.same(want_detail) && detail_v.same(want_detail_v))
        << "merge1 " << sizes({w, h, sw, sh});
    EXPECT_TRUE(alone.same(want_detail)) << "merge1 " << sizes({w, h, sw, sh});
    EXPECT_TRUE(alone_up.same(want_up)) << "merge1 scratch " << sizes({w, h, sw, sh});
  });
}

TEST(stages, chroma_up_sampling) {
  trials(600, 250, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.one_in(9) ? random.between(240, 600) : random.between(2, 80);
    const int h = random.between(2, 50), sw = w / 2, sh = (h + random.between(0, 1)) / 2;
    canvas u = painted(sw, sh, sw, random), v = painted(sw, sh, sw, random);
    canvas out(w, h, w, random), want_u(out), want_v(out), a(out), b(out), c(out), d(out);
    model::up_sliced(u.plane(), want_u.plane());
    model::up_sliced(v.plane(), want_v.plane());
    pyramid_up2(handle->cnr, u.image(), a.image(), v.image(), b.image());
    EXPECT_TRUE(a.same(want_u) && b.same(want_v)) << "slices " << sizes({w, h});

    const int begin = random.between(0, h / 2 - 1) * 2, end = random.between(begin, h - 1);
    canvas want_rows(out), rows(out), rows_v(out);
    model::up_rows(u.plane(), want_rows.plane(), begin, end);
    gaussin3x3_up_pro(u.image(), rows.image(), v.image(), rows_v.image(), begin, end);
    EXPECT_TRUE(rows.same(want_rows)) << "one slice " << sizes({w, h, begin, end});

    canvas want_odd(out), want_odd_v(out);
    model::up_odd(u.plane(), want_odd.plane());
    model::up_odd(v.plane(), want_odd_v.plane());
    gaussin3x3_up_odd(u.image(), c.image(), v.image(), d.image());
    EXPECT_TRUE(c.same(want_odd) && d.same(want_odd_v)) << "odd " << sizes({w, h});

    canvas uv(2 * w, h, 2 * w, random), want_uv(uv), single(uv);
    model::up_interleaved(u.plane(), v.plane(), w, h, want_uv.data());
    pyramid_up_uv(handle->cnr, u.image(), a.image(), v.image(), b.image(), uv.data());
    EXPECT_TRUE(uv.same(want_uv)) << "interleaved " << sizes({w, h});
    EXPECT_EQ(gaussin3x3_up(u.image(), a.image(), v.image(), b.image(), single.data()), 0);
    EXPECT_TRUE(single.same(want_uv)) << "interleaved, one thread " << sizes({w, h});

    // The row kernel itself closes nothing.
    canvas taller(2 * w, h + 1, 2 * w, random), slice(uv), want_slice(uv);
    model::up_interleaved(u.plane(), v.plane(), w, h + 1, taller.data());
    std::copy_n(taller.data(), 2 * w * (h & ~1), want_slice.data());
    gaussin3x3_up_uv_pro(u.image(), a.image(), v.image(), b.image(), slice.data(), 0, h & ~1);
    EXPECT_TRUE(slice.same(want_slice)) << "pairs of rows " << sizes({w, h});
  });
}

TEST(stages, detail_planes) {
  trials(700, 60, [](random_source& random, denoise_handle_t*) {
    const int w = random.between(1, 100), h = random.between(1, 9);
    canvas a = painted(w, h, w + random.between(0, 9), random);
    canvas b = painted(w, h, w + random.between(0, 9), random);
    canvas out(w, h, w + random.between(0, 9), random), want(out), in_place(a), want_in_place(a);
    model::subtract_add128(a.plane(), b.plane(), want.plane());
    ImgSubImg_add128_u8(a.image(), b.image(), out.image());
    EXPECT_TRUE(out.same(want)) << sizes({w, h});
    model::add_sub128(a.plane(), b.plane(), want_in_place.plane());
    ImgAddDiff_sub128_u8(in_place.image(), b.image(), in_place.image());
    EXPECT_TRUE(in_place.same(want_in_place)) << sizes({w, h});
  });
}

TEST(stages, pre_mask_both_chains) {
  trials(800, 150, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.between(0, 600), h = random.between(0, 300);
    const int strength = random.one_in(2)
                             ? random.between(0, 400)
                             : random.pick({INT32_MIN, -1, 63, 64, 112, 536870975, 536870976,
                                            1073741888, 1 << 20, INT32_MAX});
    canvas mask(w / 4, h / 4, w / 4 + random.between(0, 9), random), want(mask), sliced(mask);
    canvas want_sliced(mask);
    model::pre_mask(want.plane(), w, h, strength);
    pre_mask(nullptr, mask.image(), w, h, strength);
    EXPECT_TRUE(mask.same(want)) << sizes({w, h, strength});
    model::pre_mask_sliced(want_sliced.plane(), w, h);
    pre_mask_thread(handle->ynr, nullptr, sliced.image(), w, h);
    EXPECT_TRUE(sliced.same(want_sliced)) << "sliced " << sizes({w, h});
  });
}

TEST(stages, weight_map) {
  int got[800], want[800];
  for (float sigma : {0.0f, 0.5f, 1.0f, 1.5f, 45.0f, 255.0f, 46340.9f, 70000.0f, 3e9f, -20.0f}) {
    MakeWeightMap(got, sigma, 800);
    model::weight_map(want, sigma, 800);
    EXPECT_TRUE(std::equal(want, want + 800, got)) << sigma;
  }
  for (int sigma = 1; sigma <= 1200; ++sigma) {
    MakeWeightMap(got, static_cast<float>(sigma), 800);
    model::weight_map(want, static_cast<float>(sigma), 800);
    ASSERT_TRUE(std::equal(want, want + 800, got)) << sigma;
  }
}

// The index of the vector rule is the integer one for every distance and mask value, and its
// reciprocals follow from rounding the estimate on paper.
TEST(stages, reciprocals) {
  const float* table = vorn::reciprocal_table();
  for (int n = 1; n < vorn::kReciprocals; ++n)
    ASSERT_EQ(table[n], model::refined_reciprocal(static_cast<float>(n))) << n;
  for (int m = 1; m <= 255; ++m)
    for (int distance = 0; distance <= 784; ++distance) {
      const float product = static_cast<float>(distance * 64) * table[m];
      ASSERT_EQ(static_cast<int>(0.5f + product), (distance * 64 + m / 2) / m)
          << distance << " " << m;
    }
}

// A mask of the caller's, with zeros: blocks and pairs that are left as they were.
canvas random_mask(int width, int height, random_source& random) {
  canvas mask(width, height, width + random.between(0, 5), random);
  const int zeros = random.pick({2, 3, 8, 1000}), smooth = random.one_in(3);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      mask.plane().at(y, x) =
          static_cast<uint8_t>(random.one_in(zeros) ? 0
                               : smooth             ? random.between(64, 191)
                                        : random.pick({1, 3, 16, 63, 64, 65, 100, 128, 200, 255}));
  return mask;
}

TEST(stages, windows_with_any_mask) {
  trials(900, 400, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.between(1, random.one_in(4) ? 200 : 90), h = random.between(1, 40),
              radius = random.pick({3, 5, 7, random.pick({0, 1, 4, 6, 8, 9, -7, INT32_MAX})});
    const bool copied = radius != 3 && radius != 5 && radius != 7;
    // The last blocks overhang by up to three samples and their windows by three more.
    canvas src = painted(w, h, w + 12, random), dst(w, h, w + 12, random), want(dst);
    canvas mask = random_mask(random.between(1, w / 4 + 3), random.between(1, h / 4 + 3), random);
    const bool masked = !random.one_in(4);
    const int intensity = random.one_in(4) ? random.pick({0, -7, 1, 102, 103, 200, 400, 3000})
                                           : random.between(2, 90);
    const model::plane mask_plane = mask.plane();
    model::window(src.plane(), want.plane(), masked ? &mask_plane : nullptr, intensity, radius);
    canvas alone(dst);
    if (copied) {
      model::plane whole = want.plane();  // equal strides: one block, padding included
      whole.width = whole.stride;
      model::plane from = src.plane();
      from.width = from.stride;
      model::window(from, whole, nullptr, intensity, radius);
    }
    EXPECT_EQ(nlm_denoise_process(handle->ynr, src.image(), dst.image(),
                                  masked ? mask.image() : nullptr, intensity, radius),
              0);
    EXPECT_TRUE(dst.same(want)) << sizes({w, h, radius, intensity, masked});
    if (copied) return;
    int map[800];
    MakeWeightMap(map, static_cast<float>(intensity), 800);
    auto* whole_layer = radius == 3 ? Process3x3 : radius == 5 ? Process5x5 : Process7x7;
    whole_layer(src.image(), alone.image(), masked ? mask.image() : nullptr, map);
    EXPECT_TRUE(alone.same(want)) << "one thread " << sizes({w, h, radius, intensity, masked});
  });
}

// The exported processors of one block and of a pair, which the walks may or may not go through.
TEST(stages, block_processors) {
  trials(950, 300, [](random_source& random, denoise_handle_t*) {
    const int stride = random.between(24, 60), rings = random.between(1, 3);
    canvas src = painted(24, 16, stride, random), guide = painted(24, 16, stride, random);
    canvas out(24, 16, stride, random), want(out), scalar(out), want_scalar(out), guided(out),
        want_guided(out);
    const int left = random.between(1, 255), right = random.between(1, 255), y = 6, x = 8;
    int map[800], acc[17], acc2[17];
    model::weight_map(map, static_cast<float>(random.between(1, 120)), 800);

    const auto expect = [&](canvas& to, const canvas& on, int at, int m, int n, model::rule how) {
      canvas distances(on);
      uint8_t block[16];
      model::block(src.plane(), distances.plane(), y, at, n, map, m, how, block);
      for (int k = 0; k < 16; ++k) to.plane().at(y + k / 4, at + k % 4) = block[k];
    };
    expect(want, src, x, left, rings, model::rule::vector);
    expect(want, src, x + 4, right, rings, model::rule::vector);
    expect(want_scalar, src, x, left, rings, model::rule::scalar);
    expect(want_guided, guide, x, left, 2, model::rule::scalar);

    const auto row = [&](canvas& c, int d) { return &c.plane().at(y + d, x); };
    uint8_t* to = row(out, 0);
    uint8_t* one = row(scalar, 0);
    uint8_t* r[7];
    for (int d = -3; d <= 3; ++d) r[d + 3] = row(src, d);
    if (rings == 1) {
      ProcessBlock4x4_3x3_neon(r[3], r[2], r[4], stride, to, stride, map, acc, acc2, left, right);
      ProcessBlock4x4_3x3(r[3], r[2], r[4], stride, one, stride, map, acc, left);
    } else if (rings == 2) {
      ProcessBlock4x4_5x5_neon(r[3], r[2], r[4], r[1], r[5], stride, to, stride, map, acc, acc2,
                               left, right);
      auto* second = random.one_in(2) ? ProcessBlock4x4_7x7_1 : nullptr;
      if (second)
        second(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, one, stride, map, acc, left);
      else
        ProcessBlock4x4_5x5(r[3], r[2], r[4], r[1], r[5], stride, one, stride, map, acc, left);
    } else {
      ProcessBlock4x4_7x7_neon(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, to, stride, map,
                               acc, acc2, left, right);
      ProcessBlock4x4_7x7(r[3], r[2], r[4], r[1], r[5], r[0], r[6], stride, one, stride, map, acc,
                          left);
    }
    ProcessBlock4x4_5x5_Guided(r[3], r[2], r[4], r[1], r[5], stride, row(guide, 0), row(guide, -1),
                               row(guide, 1), row(guide, -2), row(guide, 2), 0, row(guided, 0),
                               stride, map, acc, left);
    EXPECT_TRUE(out.same(want)) << "pair " << sizes({rings, left, right});
    EXPECT_TRUE(scalar.same(want_scalar)) << "one " << sizes({rings, left});
    EXPECT_TRUE(guided.same(want_guided)) << "guided " << sizes({left});
  });
}

TEST(stages, guided_window) {
  trials(1000, 60, [](random_source& random, denoise_handle_t*) {
    const int w = random.between(1, 60), h = random.between(1, 40),
              intensity = random.between(0, 90);
    canvas src = painted(w, h, w + 12, random), guide = painted(w, h, w + 12, random);
    canvas dst(w, h, w + 20, random), want(dst);
    canvas mask = random_mask(random.between(1, w / 4 + 3), random.between(1, h / 4 + 3), random);
    const model::plane mask_plane = mask.plane();
    const bool masked = !random.one_in(4);
    model::window_guided(src.plane(), guide.plane(), want.plane(), masked ? &mask_plane : nullptr,
                         intensity);
    nlm_denoise_guided_process(src.image(), guide.image(), dst.image(),
                               masked ? mask.image() : nullptr, intensity, 7);
    EXPECT_TRUE(dst.same(want)) << sizes({w, h, intensity, masked});
  });
}

TEST(stages, border) {
  trials(1100, 60, [](random_source& random, denoise_handle_t*) {
    const int n = random.between(0, 12);
    const int w = 2 * n + random.between(1, 60), h = 2 * n + random.between(1, 30);
    canvas image = painted(w, h, w, random), want(image);
    model::expand_border(want.plane(), n);
    FillExpandPixels(image.image(), n);
    EXPECT_TRUE(image.same(want)) << sizes({w, h, n});
  });
}

struct chroma_planes {
  canvas guide, u, v;
  chroma_planes(int w, int h, random_source& random)
      : guide(painted(w, h, w, random)), u(painted(w, h, w, random)), v(painted(w, h, w, random)) {}
};

enum class strength { everyday, bounds, anything };

// `bounds` stays around the values up to which 16-bit differences, byte look-ups and a quotient in
// single precision can serve: edges of 24, differences of 1926, 80 taps, weights that end at 128.
_tag_cnr_param random_param(random_source& random, strength s) {
  const frame_util::tuning t = frame_util::random_tuning(random);
  int factor = t.cnr.range_factor;
  _tag_cnr_param p = {};
  p.smooth_radius = t.cnr.smooth_radius;
  p.smooth_step = t.cnr.step;
  p.color_edge_u = t.cnr.color_edge_u;
  p.color_edge_v = t.cnr.color_edge_v;
  p.level_mode = random.between(-1, 0);
  if (s == strength::everyday) {
    factor = random.between(2, 60);
    p.smooth_radius = random.between(0, 20);
    p.smooth_step = random.between(1, 5);
    p.color_edge_u = random.between(0, 30);
    p.color_edge_v = random.between(0, 30);
  } else if (s == strength::bounds) {
    factor = random.pick({7, 8, 9, 63, 64, 65, 127, 128, 255, 256, 300, 100000});
    p.smooth_step = random.pick({1, 1, 1, 2, 7});
    p.smooth_radius = p.smooth_step * random.pick({0, 1, 3, 39, 40, 41, 42, 60});
    p.color_edge_u = random.pick({0, 8, 23, 24, 25, 26, 28, 29, 30, 52, 53, 60});
    p.color_edge_v = random.pick({0, 8, 23, 24, 25, 26, 28, 29, 30, 52, 53, 60});
  }
  const float width = static_cast<float>(factor);
  const float square = width * width;
  for (float& c : p.range_coef) c = 1.0f / square;
  return p;
}

model::chroma_param of(const _tag_cnr_param& p) {
  return {p.range_coef[0], p.smooth_radius, p.smooth_step,
          p.color_edge_u,  p.color_edge_v,  p.level_mode};
}

TEST(stages, directional_filters) {
  trials(1200, 600, [](random_source& random, denoise_handle_t* handle) {
    // Now and then past the ends of the offset table (rows) and of the dither table (columns).
    const int shape = random.between(0, 50);
    // And wide windows inside of wider levels.
    const bool wide = shape > 42;
    const int w = shape == 0 ? random.between(6200, 8400)
                  : wide     ? random.between(150, 330)
                             : random.between(1, shape == 1 ? 9 : 150);
    const int h = shape == 1 ? 2060 : random.between(1, shape == 0 ? 3 : shape % 4 ? 40 : 130);
    chroma_planes in(w, h, random);
    _tag_cnr_param p = random_param(random, static_cast<strength>(random.between(0, 2)));
    if (wide) {
      p = random_param(random, strength::everyday);
      p.smooth_step = random.between(2, 4);
      p.smooth_radius = random.between(60, 110);
    }
    canvas out(w, h, w, random), want_u(out), want_v(out), u(out), v(out);
    for (auto along : {model::direction::horizontal, model::direction::vertical}) {
      model::filter(along, in.guide.plane(), in.u.plane(), in.v.plane(), want_u.plane(),
                    want_v.plane(), of(p));
      auto* stage = along == model::direction::horizontal ? reduce_color_noise_hor_thread
                                                          : reduce_color_noise_ver_thread;
      stage(handle->cnr, in.guide.image(), in.u.image(), in.v.image(), u.image(), v.image(), &p);
      EXPECT_TRUE(u.same(want_u) && v.same(want_v))
          << (along == model::direction::horizontal ? "hor " : "ver ")
          << sizes({w, h, p.smooth_radius, p.smooth_step, p.color_edge_u, p.color_edge_v,
                    p.level_mode})
          << " coefficient " << p.range_coef[0];
    }
  });
}

TEST(stages, vertical_filter_to_interleaved) {
  trials(1300, 60, [](random_source& random, denoise_handle_t* handle) {
    const int w = random.between(1, 70), h = random.between(1, 40);
    chroma_planes in(w, h, random);
    _tag_cnr_param p = random_param(random, static_cast<strength>(random.between(0, 2)));
    canvas uv(2 * w, h, 2 * w, random), want(uv), u(w, h, w, random), v(u);
    model::filter_interleaved(in.guide.plane(), in.u.plane(), in.v.plane(), want.data(), of(p));
    reduce_color_noise_vermerge_thread(handle->cnr, in.guide.image(), in.u.image(), in.v.image(),
                                       u.image(), v.image(), &p, uv.data());
    EXPECT_TRUE(uv.same(want)) << sizes({w, h, p.smooth_radius, p.smooth_step});
  });
}

TEST(stages, masked_filters) {
  trials(1400, 150, [](random_source& random, denoise_handle_t* handle) {
    const int mask_w = random.between(1, 12), mask_h = random.between(1, 12);
    const int ratio = random.between(1, 5), w = mask_w * ratio, h = mask_h * ratio;
    chroma_planes in(w, h, random);
    canvas mask(mask_w, mask_h, mask_w, random);
    for (int i = 0; i < mask_w * mask_h; ++i)
      if (random.one_in(5)) mask.data()[i] = 0;
    _tag_cnr_param p = random_param(random, static_cast<strength>(random.between(0, 2)));
    canvas out(w, h, w, random), want_u(out), want_v(out), u(out), v(out);
    const auto where =
        sizes({w, h, ratio, p.smooth_radius, p.smooth_step, p.color_edge_u, p.color_edge_v});
    model::filter_masked(model::direction::horizontal, in.guide.plane(), in.u.plane(), in.v.plane(),
                         want_u.plane(), want_v.plane(), of(p), mask.plane());
    reduce_color_noise_mask_hor_thread(handle->cnr, in.guide.image(), in.u.image(), in.v.image(),
                                       u.image(), v.image(), &p, mask.image());
    EXPECT_TRUE(u.same(want_u) && v.same(want_v)) << "hor " << where;
    model::filter_masked(model::direction::vertical, in.guide.plane(), in.u.plane(), in.v.plane(),
                         want_u.plane(), want_v.plane(), of(p), mask.plane());
    reduce_color_noise_mask_ver_thread(handle->cnr, in.guide.image(), in.u.image(), in.v.image(),
                                       u.image(), v.image(), &p, mask.image());
    EXPECT_TRUE(u.same(want_u) && v.same(want_v)) << "ver " << where;

    canvas uv(2 * w, h, 2 * w, random), want(uv), before(u);
    for (int i = 0; i < 2 * w * h; ++i)
      want.data()[i] = i % 2 == 0 ? want_u.data()[i / 2] : want_v.data()[i / 2];
    reduce_color_noise_mask_vermerge_thread(handle->cnr, in.guide.image(), in.u.image(),
                                            in.v.image(), u.image(), v.image(), &p, uv.data(),
                                            mask.image());
    EXPECT_TRUE(uv.same(want)) << "interleaved " << where;
    EXPECT_TRUE(u.same(before)) << "the planes stay as they were";
  });
}

// The masked chroma driver on whole frames, at full chroma size and at half of it.
TEST(stages, masked_driver) {
  trials(1500, 60, [](random_source& random, denoise_handle_t*) {
    const int ratio = random.pick({1, 2, 4}), scale = random.between(0, 1);
    const int unit = ratio * (scale ? 4 : 2);
    const int mask_w = std::max(1, random.between(8, 120) / unit);
    const int mask_h = std::max(1, random.between(8, 90) / unit);
    const int w = mask_w * unit, h = mask_h * unit + random.between(0, 1);
    const denoiser own(w, h);
    ASSERT_NE(own.handle, nullptr);
    frame_util::frame src(w, h), dst(w, h), want(w, h);
    src.paint(any_content(random), random);
    canvas mask(mask_w, mask_h, mask_w, random);
    _tag_cnr_param p = random_param(random, strength::everyday);
    p.scale = scale;
    p.saturation = random.pick({0, 0, 5, -9, 300});
    const model::chroma_param expected = of(p);
    ASSERT_EQ(model::chroma_masked(w, h, src.data(), want.data(), mask.plane(), expected, scale,
                                   p.saturation),
              0);
    _tag_uni_image from = src.image(), to = dst.image();
    EXPECT_EQ(color_noise_reduce_mask_process(own.handle, &from, &to, mask.image(), &p), 0);
    EXPECT_EQ(frame_util::first_difference(dst, want), "") << sizes({w, h, ratio, scale});
    EXPECT_TRUE(dst.guards_intact());
  });
}

TEST(stages, split_and_merge) {
  trials(1600, 100, [](random_source& random, denoise_handle_t* handle) {
    const int w = 2 * random.between(1, 70), rows = random.between(1, 30);
    const int s = random.pick({1, 4, 16, -8, -16, -40, 127, -128, 128, 256, 300, -1000, INT32_MAX});
    canvas uv = painted(w, rows, w, random), u(w / 2, rows, w / 2, random), v(u);
    canvas want_u(u), want_v(v), merged(uv);
    for (int saturation : {0, s}) {
      model::split_sliced(uv.data(), want_u.data(), want_v.data(), w, rows, saturation);
      if (saturation == 0)
        split_UV_thread(handle->cnr, uv.data(), u.data(), v.data(), w, rows);
      else
        split_UV_saturation_thread(handle->cnr, uv.data(), u.data(), v.data(), s, w, rows);
      EXPECT_TRUE(u.same(want_u) && v.same(want_v)) << sizes({w, rows, saturation});
      if (saturation == 0) {
        std::memset(merged.data(), 0, static_cast<size_t>(w) * rows);
        mergeUV_thread(handle->cnr, merged.data(), u.data(), v.data(), w, rows);
        EXPECT_TRUE(merged.same(uv)) << sizes({w, rows});
      }
    }
  });
}

TEST(stages, random_tables_and_noise) {
  trials(1700, 40, [](random_source& random, denoise_handle_t*) {
    const auto seed = static_cast<unsigned>(random.next());
    const int low = random.between(-300, 300),
              high = low + random.pick({0, 1, 3, 100, 2048, 30000});
    short got[500], want[500];
    GetRandomTable(got, 500, seed, static_cast<short>(low), static_cast<short>(high));
    model::random_table(want, 500, seed, static_cast<short>(low), static_cast<short>(high));
    EXPECT_TRUE(std::equal(want, want + 500, got)) << sizes({low, high});

    const int w = random.between(1, 90), h = random.between(1, 20);
    canvas image = painted(w, h, w + random.between(0, 9), random), expected(image);
    EXPECT_EQ(addNoiseToImage(image.image(), seed, low, high), 0);
    model::add_noise(expected.plane(), seed, low, high);
    EXPECT_TRUE(image.same(expected)) << sizes({w, h, low, high});
  });
}

// The luma driver with a mask that the caller brings, zeros in it.
TEST(stages, luma_driver_with_given_mask) {
  trials(1800, 60, [](random_source& random, denoise_handle_t*) {
    const int w = random.between(16, 120), h = random.between(16, 90);
    const denoiser own(w, h);
    frame_util::frame src(w, h), dst(w, h), want(w, h);
    src.paint(any_content(random), random);
    std::copy_n(dst.data(), dst.size(), want.data());
    canvas mask = random_mask(w / 4, h / 4, random);
    const model::plane mask_plane = mask.plane();
    frame_util::tuning t = frame_util::random_tuning(random);
    t.ynr.layer = random.between(2, 4);
    _tag_ynr_param_output p = {};
    std::copy_n(t.ynr.pIntensity, 5, p.pIntensity);
    std::copy_n(t.ynr.pRadius, 5, p.pRadius);
    p.layer = t.ynr.layer;
    _tag_uni_image from = src.image(), to = dst.image();
    from.stride[0] = to.stride[0] = w;
    EXPECT_EQ(uni_luma_noise_reduce_mask_process(own.handle, &from, &to, mask.image(), &p), 0);
    ASSERT_EQ(model::luma({src.data(), w, h, w}, {want.data(), w, h, w}, t.ynr, &mask_plane), 0);
    EXPECT_EQ(frame_util::first_difference(dst, want), "") << sizes({w, h}) << frame_util::text(t);
    EXPECT_TRUE(dst.guards_intact());
  });
}

}  // namespace
