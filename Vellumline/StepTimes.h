#pragma once

#include "Vellumline/Platform/Clock.h"

#include <QLoggingCategory>

namespace vellumline {

/// When the steps of a correction were reached. Silent unless asked for with
/// QT_LOGGING_RULES="vellumline.timing=true"; then a line for each step, with its name and the microseconds
/// of the monotonic clock, which other programs of this machine can read as well. Never what was corrected.
Q_DECLARE_LOGGING_CATEGORY(timingLog)

inline void markStep(const Clock& clock, const char* step) {
    qCInfo(timingLog, "%s %lld", step,
           static_cast<long long>(
               std::chrono::duration_cast<std::chrono::microseconds>(clock.monotonic()).count()));
}

} // namespace vellumline
