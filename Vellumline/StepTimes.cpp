#include "Vellumline/StepTimes.h"

namespace vellumline {

Q_LOGGING_CATEGORY(timingLog, "vellumline.timing", QtWarningMsg)

} // namespace vellumline
