#include "runtime/kernel_form.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/host.h"

namespace {

using namespace vorn_test;

using vorn::kernel_form;

TEST(KernelForms, EveryMachineHasThePlainRuleAndItsOwnForms) {
  EXPECT_TRUE(vorn::kernel_form_available(kernel_form::scalar));
  EXPECT_TRUE(vorn::kernel_form_available(kernel_form::neon));
#if defined(__aarch64__)
  EXPECT_FALSE(vorn::kernel_form_available(kernel_form::sse2));
  EXPECT_FALSE(vorn::kernel_form_available(kernel_form::avx2));
#else
  EXPECT_TRUE(vorn::kernel_form_available(kernel_form::sse2));
  EXPECT_FALSE(vorn::kernel_form_available(kernel_form::neon_dot));
#endif
}

TEST(KernelForms, AskedForByName) {
  const kernel_form best = vorn::kernel_form_for(nullptr);
  EXPECT_NE(best, kernel_form::scalar);
  EXPECT_EQ(vorn::kernel_form_for(""), best);
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<kernel_form>(i);
    log_capture log;
    const bool available = vorn::kernel_form_available(form);
    EXPECT_EQ(vorn::kernel_form_for(vorn::kernel_form_name(form)), available ? form : best);
    EXPECT_EQ(log.count('E'), available ? 0 : 1);
  }
  log_capture log;
  EXPECT_EQ(vorn::kernel_form_for("Scalar"), best);
  EXPECT_EQ(log.count('E'), 1);
}

TEST(KernelForms, ActiveFormFollowsTheEnvironment) {
  EXPECT_EQ(vorn::active_kernel_form(), vorn::kernel_form_for(std::getenv("VORN_KERNELS")));
}

TEST(KernelForms, OneCanBePutInForce) {
  const kernel_form before = vorn::active_kernel_form();
  for (int i = 0; i < vorn::kKernelForms; ++i) {
    const auto form = static_cast<kernel_form>(i);
    const kernel_form held = vorn::active_kernel_form();
    EXPECT_EQ(vorn::use_kernel_form(form), vorn::kernel_form_available(form));
    EXPECT_EQ(vorn::active_kernel_form(), vorn::kernel_form_available(form) ? form : held);
  }
  vorn::use_kernel_form(before);
}

}  // namespace
