// What the library asks of the system it runs on. platform_android.cpp or platform_host.cpp, of
// which the build picks one, answers for properties and log; platform_linux.cpp for threads on
// both.
#pragma once

namespace vorn {

constexpr int kPropertyMax = 92;  // longest property value, with its NUL

// Writes the value of a property into value and returns its length; 0 and "" when it is not set.
// Of a longer value than fits, the beginning, and the length of all of it.
int platform_property(const char* name, char value[kPropertyMax]);

// Writes one log line. priority is a log_priority; message may end with a line feed.
void platform_log(int priority, const char* tag, const char* message);

// The calling thread: bound to one core, its nice value (-20..19). Both return whether the system
// allowed it.
bool platform_bind_thread(int core);
bool platform_set_nice(int nice);

// The processor that the calling thread is on, -1 where the kernel cannot tell; how many are
// online.
int platform_processor();
int platform_processors();

// How many of them the calling thread and those that it starts may run on; at least 1.
int platform_usable_processors();

}  // namespace vorn
