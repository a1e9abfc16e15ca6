// Failing system calls: the test program is linked with --wrap for each of them, so that the
// library's own calls come through here. Calls count from 0 while armed; one of them fails.
#pragma once

#include <cstdint>

namespace faults {

// Lets call number `at` fail from now on (-1: none), and counts.
void arm(int at);

// Ends that. Returns how many calls were counted.
int disarm();

// The name of the call that failed, or null.
const char* failed_call();

// Blocks that were allocated while armed and have not been freed since.
int blocks_held();

// Every fresh block that the program did not ask to be zeroed is filled with this byte.
void fill_fresh_memory(uint8_t byte);

}  // namespace faults
