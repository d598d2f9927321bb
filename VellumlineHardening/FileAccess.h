#pragma once

#include <string>

namespace vellumline {

/// From now on this thread, and those that it starts, can make, change and remove files in this folder only
/// (nowhere when it is empty); what they can read, and files that are already open, stay as they were.
/// Whether the kernel does it: Landlock is there since Linux 5.13 where it was not left out.
bool keepWritesTo(const std::string& folder);

} // namespace vellumline
