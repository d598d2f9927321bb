#include "VellumlineService/Correction/RulesEngine.h"
namespace vellumline {
class Speller {};
RulesEngine::RulesEngine() = default;
RulesEngine::~RulesEngine() = default;
CorrectionResult RulesEngine::correct(QString text) {
    return {CorrectionResult::Status::corrected, text};
}
} // namespace vellumline
