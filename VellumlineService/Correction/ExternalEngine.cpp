#include "VellumlineService/Correction/ExternalEngine.h"

namespace vellumline {

namespace {

int wordCount(const QString& text) {
    int count = 0;
    bool inWord = false;
    for (const QChar c : text) {
        count += !inWord && !c.isSpace() ? 1 : 0;
        inWord = !c.isSpace();
    }
    return count;
}

} // namespace

ExternalEngine::ExternalEngine(std::unique_ptr<CorrectionEngine> external,
                               std::unique_ptr<CorrectionEngine> builtIn, ExternalEngineSettings settings)
    : external_(std::move(external)), builtIn_(std::move(builtIn)), settings_(std::move(settings)) {}

CorrectionResult ExternalEngine::correct(QString text) {
    CorrectionResult own;
    if (settings_.when != AskWhen::first) {
        own = builtIn_->correct(text);
        const bool works = own.status == CorrectionResult::Status::corrected;
        if (works && ((settings_.when == AskWhen::unchanged && own.text != text) ||
                      wordCount(text) < settings_.fewestWords)) {
            return own;
        }
        if (works) {
            text = own.text;
        }
    }
    CorrectionResult result = external_->correct(text);
    note(result);
    if (result.status == CorrectionResult::Status::corrected || settings_.fallback == Fallback::none) {
        return result;
    }
    if (settings_.when == AskWhen::first) {
        own = builtIn_->correct(text);
    }
    return own.status == CorrectionResult::Status::corrected ? own : result;
}

void ExternalEngine::note(const CorrectionResult& result) {
    if (!settings_.report) {
        return;
    }
    const std::scoped_lock lock(mutex_);
    const bool answered = result.status == CorrectionResult::Status::corrected ||
                          result.status == CorrectionResult::Status::refused;
    if (answered && !lastProblem_.isEmpty()) {
        lastProblem_.clear();
        settings_.report(QStringLiteral("engine-back"), {});
    }
    if (result.status == CorrectionResult::Status::refused && !refused_.contains(result.problem)) {
        refused_.insert(result.problem);
        settings_.report(QStringLiteral("engine-refused"), result.problem);
    }
    if (!answered && result.problem != lastProblem_) {
        lastProblem_ = result.problem;
        settings_.report(QStringLiteral("engine-silent"), result.problem);
    }
}

} // namespace vellumline
