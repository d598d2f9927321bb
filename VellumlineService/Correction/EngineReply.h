#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"
#include "VellumlineService/Correction/HttpClient.h"

#include <optional>

namespace vellumline {

/// What a reply without a usable body means for a correction; nothing when the body is worth reading.
std::optional<CorrectionResult> engineProblem(const HttpReply& reply);

} // namespace vellumline
