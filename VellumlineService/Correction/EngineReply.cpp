#include "VellumlineService/Correction/EngineReply.h"

namespace vellumline {

std::optional<CorrectionResult> engineProblem(const HttpReply& reply) {
    using Status = CorrectionResult::Status;
    switch (reply.outcome) {
    case HttpReply::Outcome::answered:
        break;
    case HttpReply::Outcome::unreachable:
        return CorrectionResult{Status::unavailable, {}, reply.problem};
    case HttpReply::Outcome::timedOut:
        return CorrectionResult{Status::timedOut, {}, reply.problem};
    case HttpReply::Outcome::broken:
        return CorrectionResult{Status::failed, {}, reply.problem};
    }
    if (reply.status == 200) {
        return {};
    }
    const QString problem = QStringLiteral("HTTP status %1").arg(reply.status);
    switch (reply.status) {
    case 401: // a key that is wrong
    case 402:
    case 403:
    case 404: // a model that is not there
    case 429:
    case 503: // a model that is still loading
        return CorrectionResult{Status::unavailable, {}, problem};
    case 408:
    case 504:
        return CorrectionResult{Status::timedOut, {}, problem};
    default:
        return CorrectionResult{Status::failed, {}, problem};
    }
}

} // namespace vellumline
