// Tests that run with every kernel form of this machine, and stages that are held against the model
// many times over, in one form after the other.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "base/handle.h"
#include "runtime/kernel_form.h"
#include "tests/support/frames.h"

namespace vorn_test {

inline std::vector<vorn::kernel_form> available_forms() {
  std::vector<vorn::kernel_form> list;
  for (int i = 0; i < vorn::kKernelForms; ++i)
    if (vorn::kernel_form_available(static_cast<vorn::kernel_form>(i)))
      list.push_back(static_cast<vorn::kernel_form>(i));
  return list;
}

// Puts the form in force back at the end.
class form_restorer {
 public:
  form_restorer() : form_(vorn::active_kernel_form()) {}
  ~form_restorer() { vorn::use_kernel_form(form_); }
  form_restorer(const form_restorer&) = delete;
  form_restorer& operator=(const form_restorer&) = delete;

 private:
  vorn::kernel_form form_;
};

// Runs body once per form.
template <typename Body>
void with_every_form(const Body& body) {
  const form_restorer restore;
  for (vorn::kernel_form form : available_forms()) {
    vorn::use_kernel_form(form);
    SCOPED_TRACE(vorn::kernel_form_name(form));
    body();
  }
}

// Multiplies the number of random trials: the environment variable VORN_TEST_EFFORT, or 1.
inline int effort() {
  const char* value = std::getenv("VORN_TEST_EFFORT");
  return value ? std::max(1, std::atoi(value)) : 1;
}

// A handle for stages, which use its pool and nothing else of it.
inline denoise_handle_t* stage_handle() {
  static const quiet_log silence;
  static const denoiser owner(64, 64);
  return owner.get();
}

// Runs trial(random) many times, each in the next of this machine's kernel forms, until one fails.
template <typename Trial>
void trials(uint64_t seed, int count, Trial trial) {
  const form_restorer restore;
  const std::vector<vorn::kernel_form> forms = available_forms();
  for (int i = 0; i < count * effort() && !testing::Test::HasFailure(); ++i) {
    random_source random(seed * 1000000 + static_cast<uint64_t>(i));
    vorn::use_kernel_form(forms[static_cast<size_t>(i) % forms.size()]);
    trial(random);
  }
}

// What a trial says when it fails: its numbers and the form.
inline std::string numbers(std::initializer_list<int> values) {
  std::string text;
  for (int v : values) text += std::to_string(v) + " ";
  return text + vorn::kernel_form_name(vorn::active_kernel_form());
}

}  // namespace vorn_test
