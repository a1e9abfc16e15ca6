// Times a body against a copy of the same bytes and reports both, in Google Benchmark's terms.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "runtime/kernel_form.h"

namespace bench {

// Forms that this run measures: all of the machine, or those named with --form / VORN_KERNELS.
const std::vector<vorn::kernel_form>& chosen_forms();

// The fastest of them.
vorn::kernel_form best_form();

// Median seconds of processor time to copy this many bytes.
double copy_seconds(size_t bytes);

// Runs `body` until the benchmark has enough of it, `prepare` outside the clock before each.
// Counters: MP/s and ns/px of `pixels` by the clock on the wall; cpu_ms/MP, processor time over all
// threads; and `copies`, the same in units of a copy of `bytes` bytes measured just before and just
// after. On a busy machine only the last two mean something.
void measure(benchmark::State& state, double pixels, size_t bytes,
             const std::function<void()>& body, const std::function<void()>& prepare = nullptr);

// Registers a benchmark named "<name>/<form>" for every chosen form, or for those of exported
// members (scalar and NEON) alone.
void for_each_form(const std::string& name, double seconds,
                   const std::function<void(benchmark::State&, vorn::kernel_form)>& run,
                   bool exported = false);

void register_kernels();  // each row of the kernel check
void register_stages();   // each stage of the two algorithms, and single planes
void register_frames();   // whole frames through the entry points
void register_many();     // several of them at a time

}  // namespace bench
