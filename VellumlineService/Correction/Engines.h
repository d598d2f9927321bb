#pragma once

#include "VellumlineService/Correction/CorrectionEngine.h"

#include <QStringList>
#include <memory>

namespace vellumline {

/// The names that `makeCorrectionEngine` knows.
QStringList correctionEngineNames();
/// An engine by its name; null for an unknown one. "rules" corrects; the "test-" engines do what their name
/// says, so that a client's handling of each answer can be tried.
/// `disabledRules` are rules of "rules" that shall do nothing.
std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const QString& name,
                                                       const QStringList& disabledRules = {});
/// The names that `disabledRules` may hold.
QStringList correctionRuleNames();

} // namespace vellumline
