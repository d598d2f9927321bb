#include "VellumlineService/Correction/Engines.h"

#include "VellumlineService/Correction/RulesEngine.h"

#include <QThread>

namespace vellumline {

namespace {

class UnavailableEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString) override { return {CorrectionResult::Status::unavailable, {}}; }
};

class FailingEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString) override { return {CorrectionResult::Status::failed, {}}; }
};

/// Takes longer than the service lets an engine take.
class SlowEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString text) override {
        QThread::sleep(20);
        return {CorrectionResult::Status::corrected, text};
    }
};

} // namespace

QStringList correctionEngineNames() {
    return {QStringLiteral("rules"), QStringLiteral("test-unavailable"), QStringLiteral("test-failing"),
            QStringLiteral("test-slow")};
}

QStringList correctionRuleNames() {
    return RulesEngine::ruleNames();
}

std::unique_ptr<CorrectionEngine> makeCorrectionEngine(const QString& name,
                                                       const QStringList& disabledRules) {
    if (name == QStringLiteral("rules")) {
        return std::make_unique<RulesEngine>(disabledRules);
    }
    if (name == QStringLiteral("test-unavailable")) {
        return std::make_unique<UnavailableEngine>();
    }
    if (name == QStringLiteral("test-failing")) {
        return std::make_unique<FailingEngine>();
    }
    if (name == QStringLiteral("test-slow")) {
        return std::make_unique<SlowEngine>();
    }
    return nullptr;
}

} // namespace vellumline
