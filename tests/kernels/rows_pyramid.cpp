// The pyramid's row functions.
#include "pyramid/kernels/pyramid_kernels.h"
#include "tests/kernels/kernel_check.h"

namespace kernel_check {

using vorn::kernel_form;
using vorn::pyramid_kernels_of;

namespace {

// Functions of two rows of one width.
void pointwise(trial& t, void (*vorn::pyramid_kernels::*entry)(const uint8_t*, const uint8_t*,
                                                               uint8_t*, int)) {
  const auto a = t.input<uint8_t>("a", {t.width, t.height});
  const auto b = t.input<uint8_t>("b", {t.width, t.height});
  const auto apart = t.output<uint8_t>("out", {t.width, t.height});
  const auto over_a = t.in_out<uint8_t>("out=a", {t.width, t.height});
  const auto over_b = t.in_out<uint8_t>("out=b", {t.width, t.height});
  t.run([&](kernel_form form) {
    const auto function = pyramid_kernels_of(form).*entry;
    for (int y = 0; y < t.height; ++y) {
      function(a.row(y), b.row(y), apart.row(y), t.width);
      if (t.timed()) continue;
      function(over_a.row(y), b.row(y), over_a.row(y), t.width);
      function(a.row(y), over_b.row(y), over_b.row(y), t.width);
    }
  });
}

void down(trial& t) {
  const region read{2 * t.width, t.height};
  const auto upper = t.input<uint8_t>("upper", read), centre = t.input<uint8_t>("centre", read),
             lower = t.input<uint8_t>("lower", read);
  const auto dst = t.output<uint8_t>("dst", {t.width, t.height});
  t.run([&](kernel_form form) {
    for (int y = 0; y < t.height; ++y)
      pyramid_kernels_of(form).down(upper.row(y), centre.row(y), lower.row(y), dst.row(y), t.width);
  });
}

void blur(trial& t) {
  const region all{t.width, t.height};
  const auto upper = t.input<uint8_t>("upper", all), centre = t.input<uint8_t>("centre", all),
             lower = t.input<uint8_t>("lower", all);
  const auto dst = t.output<uint8_t>("dst", all);
  t.run([&](kernel_form form) {
    for (int y = 0; y < t.height; ++y)
      pyramid_kernels_of(form).blur(upper.row(y), centre.row(y), lower.row(y), dst.row(y), t.width);
  });
}

void up(trial& t) {
  const region coarse{t.width / 2 + 1, t.height}, fine{t.width, t.height};
  const auto a = t.input<uint8_t>("a", coarse), b = t.input<uint8_t>("b", coarse);
  const auto even = t.output<uint8_t>("even", fine), odd = t.output<uint8_t>("odd", fine),
             alone = t.output<uint8_t>("even=odd", fine);
  t.run([&](kernel_form form) {
    for (int y = 0; y < t.height; ++y) {
      pyramid_kernels_of(form).up(a.row(y), b.row(y), even.row(y), odd.row(y), t.width);
      if (t.timed()) continue;
      pyramid_kernels_of(form).up(a.row(y), a.row(y), alone.row(y), alone.row(y), t.width);
    }
  });
}

void up_merge(trial& t) {
  const region coarse{t.width / 2 + 1, t.height}, fine{t.width, t.height};
  const auto a = t.input<uint8_t>("a", coarse), b = t.input<uint8_t>("b", coarse);
  const auto d0 = t.input<uint8_t>("detail_even", fine), d1 = t.input<uint8_t>("detail_odd", fine);
  const auto even = t.output<uint8_t>("even", fine), odd = t.output<uint8_t>("odd", fine);
  const auto in0 = t.in_out<uint8_t>("even=detail", fine),
             in1 = t.in_out<uint8_t>("odd=detail", fine);
  t.run([&](kernel_form form) {
    const auto& k = pyramid_kernels_of(form);
    for (int y = 0; y < t.height; ++y) {
      k.up_merge(a.row(y), b.row(y), d0.row(y), d1.row(y), even.row(y), odd.row(y), t.width);
      if (t.timed()) continue;
      k.up_merge(a.row(y), b.row(y), in0.row(y), in1.row(y), in0.row(y), in1.row(y), t.width);
    }
  });
}

void split(trial& t) {
  const auto uv = t.input<uint8_t>("uv", {2 * t.width, t.height});
  const auto u = t.output<uint8_t>("u", {t.width, t.height});
  const auto v = t.output<uint8_t>("v", {t.width, t.height});
  t.run([&](kernel_form form) {
    for (int y = 0; y < t.height; ++y)
      pyramid_kernels_of(form).split(uv.row(y), u.row(y), v.row(y), t.width);
  });
}

void interleave(trial& t) {
  const auto u = t.input<uint8_t>("u", {t.width, t.height});
  const auto v = t.input<uint8_t>("v", {t.width, t.height});
  const auto uv = t.output<uint8_t>("uv", {2 * t.width, t.height});
  t.run([&](kernel_form form) {
    for (int y = 0; y < t.height; ++y)
      pyramid_kernels_of(form).interleave(u.row(y), v.row(y), uv.row(y), t.width);
  });
}

}  // namespace

void add_pyramid_rows() {
  add_table("pyramid", sizeof(vorn::pyramid_kernels) / sizeof(void (*)()));
  add({"pyramid.down", {}, down});
  add({"pyramid.up", {}, up});
  add({"pyramid.up_merge", {}, up_merge});
  add({"pyramid.subtract", {}, [](trial& t) { pointwise(t, &vorn::pyramid_kernels::subtract); }});
  add({"pyramid.add", {}, [](trial& t) { pointwise(t, &vorn::pyramid_kernels::add); }});
  add({"pyramid.blur", {2}, blur});
  add({"pyramid.split", {}, split});
  add({"pyramid.interleave", {}, interleave});
}

}  // namespace kernel_check
