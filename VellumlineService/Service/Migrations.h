#pragma once

#include <vector>

namespace vellumline {

/// One list of statements for each schema version, first to last. A released list is never edited: what is
/// to change comes in the next. The text keeps to what SQLite and PostgreSQL share.
const std::vector<std::vector<const char*>>& migrations();

} // namespace vellumline
