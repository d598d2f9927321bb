#pragma once

#include <QString>

namespace vellumline {

/// What an engine made of one text.
struct CorrectionResult {
    enum class Status {
        corrected,   ///< `text` is the answer, also when nothing needed a change.
        unavailable, ///< The engine cannot work now (a dictionary is missing, a model is not loaded).
        failed,      ///< The engine tried and broke.
        timedOut,    ///< The engine took longer than it may.
        refused,     ///< The engine answered, but with something that is no correction of the text.
    };
    Status status = Status::failed;
    QString text;
    /// Why there is no answer, for whoever runs the service. It has no word of the text.
    QString problem = {};
};

/// Corrects English text. `correct` may be called from any number of threads at once.
class CorrectionEngine {
  public:
    CorrectionEngine() = default;
    CorrectionEngine(const CorrectionEngine&) = delete;
    CorrectionEngine& operator=(const CorrectionEngine&) = delete;
    virtual ~CorrectionEngine() = default;

    /// Any text, of any length and layout. Line breaks, spaces, tabs and a trailing newline come back as they
    /// were.
    virtual CorrectionResult correct(QString text) = 0;
};

} // namespace vellumline
