// Which process this is: a child of fork() has the parent's memory, but none of its threads.
#pragma once

namespace vorn {

// Another number in every child of fork(); what was noted in the parent tells the two apart.
int process_generation();

}  // namespace vorn
