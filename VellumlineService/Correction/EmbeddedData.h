#pragma once

#include <string_view>

namespace vellumline {

/// The files of the grammar rules. They are part of the program, so that they are mapped with it, shared
/// between processes, and cannot be missing or of another version.
std::string_view inflectionData();
std::string_view taggerData();

} // namespace vellumline
