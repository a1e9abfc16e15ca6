#include "runtime/kernel_form.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "base/log.h"

#if defined(__aarch64__)
#include <sys/auxv.h>
#ifndef HWCAP_ASIMDDP
#define HWCAP_ASIMDDP (1 << 20)
#endif
#endif

namespace vorn {
namespace {

constexpr const char* kNames[kKernelForms] = {"scalar", "neon", "neon_dot",
                                              "sse2",   "avx2", "avx512"};

// Best first.
constexpr kernel_form kPreference[] = {kernel_form::avx512, kernel_form::avx2, kernel_form::sse2,
                                       kernel_form::neon_dot, kernel_form::neon};

kernel_form best_form() {
  for (kernel_form form : kPreference)
    if (kernel_form_available(form)) return form;
  return kernel_form::scalar;
}

kernel_form initial_form() {
#if defined(__ANDROID__)
  return best_form();
#else
  return kernel_form_for(
      secure_getenv("VORN_KERNELS"));  // not from whoever runs a set-user-id program
#endif
}

std::atomic<kernel_form>& form_in_force() {
  static std::atomic<kernel_form> form{initial_form()};
  return form;
}

}  // namespace

const char* kernel_form_name(kernel_form form) {
  return kNames[static_cast<int>(form)];
}

bool kernel_form_available(kernel_form form) {
  switch (form) {
    case kernel_form::scalar:
    case kernel_form::neon:
      return true;
#if defined(__aarch64__)
    case kernel_form::neon_dot:
      return (getauxval(AT_HWCAP) & HWCAP_ASIMDDP) != 0;
#elif defined(__x86_64__)
    case kernel_form::sse2:
      return true;
    case kernel_form::avx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    case kernel_form::avx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
             __builtin_cpu_supports("avx512vnni");
#endif
    default:
      return false;
  }
}

kernel_form kernel_form_for(const char* wanted) {
  if (!wanted || !*wanted) return best_form();
  for (int i = 0; i < kKernelForms; ++i) {
    const auto form = static_cast<kernel_form>(i);
    if (std::strcmp(wanted, kNames[i]) == 0 && kernel_form_available(form)) return form;
  }
  VORN_LOGE("VORN_KERNELS=%s is not available here, ignored\n", wanted);
  return best_form();
}

kernel_form active_kernel_form() {
  return form_in_force().load(std::memory_order_relaxed);
}

bool use_kernel_form(kernel_form form) {
  if (!kernel_form_available(form)) return false;
  form_in_force().store(form, std::memory_order_relaxed);
  return true;
}

}  // namespace vorn
