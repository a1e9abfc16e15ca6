// The two things the library asks of the system it runs on. platform_android.cpp or
// platform_host.cpp answers; the build picks one.
#pragma once

namespace vorn {

constexpr int kPropertyMax = 92;  // longest property value, with its NUL

// Writes the value of a property into value and returns its length; 0 and "" when it is not set.
int platform_property(const char* name, char value[kPropertyMax]);

// Writes one log line. priority is a log_priority; message may end with a line feed.
void platform_log(int priority, const char* tag, const char* message);

}  // namespace vorn
