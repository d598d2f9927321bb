#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"

#include <QSet>
#include <functional>
#include <memory>
#include <mutex>

namespace vellumline {

/// When an engine of somebody else gets a text.
enum class AskWhen {
    first,     ///< Every text; the built-in engine only stands in.
    unchanged, ///< Texts in which the built-in engine found nothing, if they are long enough.
    after,     ///< What the built-in engine made of every text that is long enough.
};

/// What is answered when that engine has no answer.
enum class Fallback {
    builtIn,
    none,
};

struct ExternalEngineSettings {
    AskWhen when = AskWhen::unchanged;
    Fallback fallback = Fallback::builtIn;
    int fewestWords = 5; ///< Of a text that a chain passes on.
    /// Told when the engine stops answering ("engine-silent"), answers again ("engine-back"), or first gives
    /// a kind of answer that is refused ("engine-refused"), and why. No word of any text is in it. Called on
    /// any thread, one call at a time.
    std::function<void(const QString& event, const QString& reason)> report = {};
};

/// An engine of somebody else, with the built-in one before or behind it.
class ExternalEngine : public CorrectionEngine {
  public:
    /// `builtIn` may be null when the settings never need it.
    ExternalEngine(std::unique_ptr<CorrectionEngine> external, std::unique_ptr<CorrectionEngine> builtIn,
                   ExternalEngineSettings settings);

    CorrectionResult correct(QString text) override;

  private:
    void note(const CorrectionResult& result);

    const std::unique_ptr<CorrectionEngine> external_;
    const std::unique_ptr<CorrectionEngine> builtIn_;
    const ExternalEngineSettings settings_;
    std::mutex mutex_;
    QString lastProblem_;   ///< Empty while the engine works.
    QSet<QString> refused_; ///< Kinds of refused answers so far.
};

} // namespace vellumline
