// NEON intrinsics: the real ones on AArch64; on x86-64 the same names through SIMDe, so that
// sanitizers and debuggers see the very code that a phone runs. No speed is expected there.
#pragma once

#if defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif
