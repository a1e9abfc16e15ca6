// Tests that run with every kernel form of this machine.
#pragma once

#include <gtest/gtest.h>

#include "runtime/kernel_form.h"

namespace vorn_test {

// Runs body once per form, then restores the one in force.
template <typename Body>
void with_every_form(const Body& body) {
  const vorn::kernel_form before = vorn::active_kernel_form();
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<vorn::kernel_form>(i);
    if (!vorn::use_kernel_form(form)) continue;
    SCOPED_TRACE(vorn::kernel_form_name(form));
    body();
  }
  vorn::use_kernel_form(before);
}

}  // namespace vorn_test
