#include "VellumlineService/Correction/ExternalEngine.h"

#include <QTest>

using namespace vellumline;
using Status = CorrectionResult::Status;

namespace {

class FakeEngine : public CorrectionEngine {
  public:
    explicit FakeEngine(QStringList& asked) : asked_(asked) {}
    CorrectionResult correct(QString text) override {
        asked_.append(text);
        return answer(text);
    }
    std::function<CorrectionResult(QString)> answer;

  private:
    QStringList& asked_;
};

} // namespace

/// Which engine gets a text, and whose answer is sent.
class ExternalEnginePolicyTest : public QObject {
    Q_OBJECT

    QStringList builtInAsked_;
    QStringList externalAsked_;
    QStringList reports_;
    CorrectionResult externalAnswer_;
    CorrectionResult builtInAnswer_;
    std::unique_ptr<ExternalEngine> engine_;

    void make(AskWhen when, Fallback fallback) {
        auto external = std::make_unique<FakeEngine>(externalAsked_);
        auto builtIn = std::make_unique<FakeEngine>(builtInAsked_);
        external->answer = [this](const QString&) { return externalAnswer_; };
        builtIn->answer = [this](const QString&) { return builtInAnswer_; };
        ExternalEngineSettings settings;
        settings.when = when;
        settings.fallback = fallback;
        settings.fewestWords = 3;
        settings.report = [this](const QString& event, const QString& reason) {
            reports_.append(event + u' ' + reason);
        };
        engine_ = std::make_unique<ExternalEngine>(std::move(external), std::move(builtIn), settings);
    }

  private Q_SLOTS:
    void init() {
        builtInAsked_.clear();
        externalAsked_.clear();
        reports_.clear();
        externalAnswer_ = {Status::corrected, QStringLiteral("from outside")};
        builtInAnswer_ = {Status::corrected, QStringLiteral("from inside")};
    }

    void anEngineThatStandsAloneGetsEveryText() {
        make(AskWhen::first, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a")).text, QStringLiteral("from outside"));
        QCOMPARE(externalAsked_, QStringList{QStringLiteral("a")});
        QCOMPARE(builtInAsked_, QStringList());
    }
    void everyKindOfFailureIsStoodInFor_data() {
        QTest::addColumn<Status>("status");
        QTest::newRow("unavailable") << Status::unavailable;
        QTest::newRow("failed") << Status::failed;
        QTest::newRow("timed out") << Status::timedOut;
        QTest::newRow("refused") << Status::refused;
    }
    void everyKindOfFailureIsStoodInFor() {
        QFETCH(Status, status);
        externalAnswer_ = {status, {}, QStringLiteral("why")};
        make(AskWhen::first, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from inside"));
        QCOMPARE(builtInAsked_, QStringList{QStringLiteral("a b c")});
        make(AskWhen::first, Fallback::none);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).status, status);
        QCOMPARE(builtInAsked_.size(), 1);
        make(AskWhen::after, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from inside"));
        make(AskWhen::after, Fallback::none);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).status, status);
    }
    void whenTheBuiltInEngineCannotWorkEitherTheFirstFailureIsAnswered() {
        externalAnswer_ = {Status::timedOut, {}, QStringLiteral("why")};
        builtInAnswer_ = {Status::unavailable, {}};
        make(AskWhen::first, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).status, Status::timedOut);
    }
    void aChainAsksOnlyForTextsInWhichNothingWasFound() {
        make(AskWhen::unchanged, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from inside"));
        QCOMPARE(externalAsked_, QStringList());
        builtInAnswer_.text = QStringLiteral("a b c");
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from outside"));
        QCOMPARE(externalAsked_, QStringList{QStringLiteral("a b c")});
    }
    void aChainKeepsShortTextsHere() {
        for (const AskWhen when : {AskWhen::unchanged, AskWhen::after}) {
            builtInAnswer_.text = QStringLiteral(" a\n b ");
            make(when, Fallback::builtIn);
            QCOMPARE(engine_->correct(QStringLiteral(" a\n b ")).text, QStringLiteral(" a\n b "));
            QCOMPARE(externalAsked_, QStringList());
        }
    }
    void aChainForAllTextsPassesOnWhatTheBuiltInEngineMade() {
        make(AskWhen::after, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from outside"));
        QCOMPARE(externalAsked_, QStringList{QStringLiteral("from inside")});
    }
    void aChainAsksAlsoWhenTheBuiltInEngineCannotWork() {
        builtInAnswer_ = {Status::unavailable, {}};
        make(AskWhen::unchanged, Fallback::builtIn);
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).text, QStringLiteral("from outside"));
        externalAnswer_ = {Status::failed, {}, QStringLiteral("why")};
        QCOMPARE(engine_->correct(QStringLiteral("a b c")).status, Status::failed);
    }
    void theLogSaysOnceWhatChanged() {
        make(AskWhen::first, Fallback::builtIn);
        const auto answers = [this](Status status, const QString& problem) {
            externalAnswer_ = {status, {}, problem};
            engine_->correct(QStringLiteral("secret words here"));
        };
        answers(Status::corrected, {});
        answers(Status::unavailable, QStringLiteral("gone"));
        answers(Status::unavailable, QStringLiteral("gone"));
        answers(Status::timedOut, QStringLiteral("late"));
        answers(Status::refused, QStringLiteral("odd"));
        answers(Status::refused, QStringLiteral("odd"));
        answers(Status::corrected, {});
        QCOMPARE(reports_,
                 (QStringList{QStringLiteral("engine-silent gone"), QStringLiteral("engine-silent late"),
                              QStringLiteral("engine-back "), QStringLiteral("engine-refused odd")}));
    }
};

QTEST_GUILESS_MAIN(ExternalEnginePolicyTest)
#include "tst_external_engine_policy.moc"
