// The chroma filters' leaf kernels.
#include "cnr/chroma_kernels.h"
#include "tests/kernels/kernel_check.h"

namespace kernel_check {

using vorn::chroma_kernels_of;
using vorn::kernel_form;

void add_chroma_rows() {
  add_table("chroma", sizeof(vorn::chroma_kernels) / sizeof(void (*)()));
  add({"chroma.split", {}, [](trial& t) {
         const auto uv = t.input<uint8_t>("uv", {2 * t.width});
         const auto u = t.output<uint8_t>("u", {t.width}), v = t.output<uint8_t>("v", {t.width});
         t.run([&](kernel_form form) {
           chroma_kernels_of(form).split(uv.row(), u.row(), v.row(), static_cast<size_t>(t.width));
         });
       }});
  add({"chroma.split_gain", {vorn::kPairsPerStep, vorn::kPairsPerStep, 160}, [](trial& t) {
         const auto uv = t.input<uint8_t>("uv", {2 * t.width});
         const auto u = t.output<uint8_t>("u", {t.width}), v = t.output<uint8_t>("v", {t.width});
         const int gain = t.parameter("gain", -128, 127);
         t.run([&](kernel_form form) {
           chroma_kernels_of(form).split_gain(
               uv.row(), u.row(), v.row(), static_cast<size_t>(t.width), static_cast<int8_t>(gain));
         });
       }});
  add({"chroma.merge", {}, [](trial& t) {
         const auto u = t.input<uint8_t>("u", {t.width}), v = t.input<uint8_t>("v", {t.width});
         const auto uv = t.output<uint8_t>("uv", {2 * t.width});
         t.run([&](kernel_form form) {
           chroma_kernels_of(form).merge(u.row(), v.row(), uv.row(), static_cast<size_t>(t.width));
         });
       }});
}

}  // namespace kernel_check
