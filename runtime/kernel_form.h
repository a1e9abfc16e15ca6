// Which form of the hot leaf kernels runs on this machine. Each algorithm folder keeps its own
// small table of leaf functions per form (pyramid_kernels, luma_kernels, chroma_kernels); this
// unit decides, once, which column of those tables is in force.
//
// Every form produces the same bytes; they differ in speed alone.
#pragma once

namespace vorn {

enum class kernel_form {
  scalar,    // the plain rule, on every machine
  neon,      // Arm v8.0; on x86-64 the same source through SIMDe, for checks, not for speed
  neon_dot,  // Arm v8.2 with the dot product instructions
  sse2,      // every x86-64
  avx2,
  avx512,  // F, BW, VL, VBMI and VNNI
};

constexpr int kKernelForms = 6;

// "scalar", "neon", "neon_dot", "sse2", "avx2", "avx512".
const char* kernel_form_name(kernel_form form);

// Whether this build holds the form and this machine can run it.
bool kernel_form_available(kernel_form form);

// The form of that name; the best that is available when wanted is null or empty, or, with an ERROR
// line, when there is no such form here.
kernel_form kernel_form_for(const char* wanted);

// The form in force: the best that is available, or the one that the environment variable
// VORN_KERNELS names (host builds; an unknown or unavailable name is reported once and ignored).
kernel_form active_kernel_form();

// Makes a form the one in force, for tests and benchmarks. No frame may be in progress.
// Returns false and changes nothing when it is not available.
bool use_kernel_form(kernel_form form);

}  // namespace vorn
