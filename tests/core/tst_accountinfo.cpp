#include "VellumlineCore/AccountInfo.h"

#include <QTest>

using namespace vellumline;

namespace {
AccountInfo freeAccount(qint64 used) {
    return {Plan::free, used, 30, false, false, false};
}
} // namespace

class AccountInfoTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theBodyIsReadStrictly_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("usable");
        const auto row = [](const char* name, const char* body, bool usable) {
            QTest::newRow(name) << QByteArray(body) << usable;
        };
        row("the least", R"({"plan":"free","rewritesUsed":1,"freeRewrites":30})", true);
        row("30.0 is an integer", R"({"plan":"free","rewritesUsed":1,"freeRewrites":30.0})", true);
        row("unknown keys", R"({"plan":"paid","rewritesUsed":1,"freeRewrites":30,"x":{}})", true);
        row("null flags", R"({"plan":"paid","rewritesUsed":1,"freeRewrites":30,"closed":null})", true);
        row("half a rewrite", R"({"plan":"free","rewritesUsed":1.5,"freeRewrites":30})", false);
        row("a bool is not a number", R"({"plan":"free","rewritesUsed":true,"freeRewrites":30})", false);
        row("a number is not a bool", R"({"plan":"free","rewritesUsed":1,"freeRewrites":30,"closed":1})",
            false);
        row("text is not a number", R"({"plan":"free","rewritesUsed":"1","freeRewrites":30})", false);
        row("beyond 64 bits", R"({"plan":"free","rewritesUsed":1e30,"freeRewrites":30})", false);
        row("a plan with a capital", R"({"plan":"Free","rewritesUsed":1,"freeRewrites":30})", false);
        row("an unknown plan", R"({"plan":"weekly","rewritesUsed":1,"freeRewrites":30})", false);
        row("no plan", R"({"rewritesUsed":1,"freeRewrites":30})", false);
        row("no count", R"({"plan":"free","freeRewrites":30})", false);
        row("a list", "[]", false);
        row("nothing", "", false);
    }
    void theBodyIsReadStrictly() {
        QFETCH(const QByteArray, body);
        QFETCH(const bool, usable);
        QCOMPARE(AccountInfo::fromJson(body).has_value(), usable);
    }

    void absentFlagsAreFalse() {
        QCOMPARE(AccountInfo::fromJson(R"({"plan":"yearly","rewritesUsed":1,"freeRewrites":30})"),
                 std::optional(AccountInfo{Plan::yearly, 1, 30, false, false, false}));
        QCOMPARE(AccountInfo::fromJson(R"({"plan":"monthly","rewritesUsed":1,"freeRewrites":30,)"
                                       R"("renewalCanceled":true,"pastDue":true,"closed":true})"),
                 std::optional(AccountInfo{Plan::monthly, 1, 30, true, true, true}));
    }

    void aFreeAccountIsWarnedNearItsEnd() {
        QVERIFY(!freeAccount(24).notice());
        QCOMPARE(*freeAccount(25).notice(), QStringLiteral("5 free rewrites left."));
        QCOMPARE(*freeAccount(28).notice(), QStringLiteral("2 free rewrites left."));
        QCOMPARE(*freeAccount(29).notice(), QStringLiteral("1 free rewrite left."));
        QCOMPARE(*freeAccount(30).notice(), QStringLiteral("Free rewrites used up."));
        QCOMPARE(*freeAccount(31).notice(), QStringLiteral("Free rewrites used up."));
        QVERIFY(!freeAccount(29).freeUsedUp());
        QVERIFY(freeAccount(30).freeUsedUp());
        QVERIFY(freeAccount(31).freeUsedUp());
        QCOMPARE(freeAccount(30).freeLeft(), 0);
        QCOMPARE(freeAccount(31).freeLeft(), 0);
        QCOMPARE(freeAccount(25).freeLeft(), 5);
        QCOMPARE(AccountInfo::warnWhenLeft, 5);
    }

    void aPaidPlanIsWarnedOfItsPaymentOnly() {
        AccountInfo info{Plan::monthly, 500, 30, false, true, false};
        QCOMPARE(*info.notice(), QStringLiteral("Payment failed. Update your card on the account page."));
        QVERIFY(!info.freeUsedUp());
        info.pastDue = false;
        QVERIFY(!info.notice());
    }

    void aClosedAccountSaysSoBeforeAnythingElse() {
        for (const Plan plan : {Plan::free, Plan::monthly, Plan::yearly, Plan::paid}) {
            const AccountInfo info{plan, 31, 30, true, true, true};
            QCOMPARE(*info.notice(),
                     QStringLiteral("This account is closed. Reopen it on the account page."));
        }
    }

    void everyPlanHasItsLine() {
        const auto line = [](Plan plan, bool canceled) {
            return AccountInfo{plan, 31, 30, canceled, false, false}.menuLabel();
        };
        QCOMPARE(line(Plan::monthly, false), QStringLiteral("Monthly plan"));
        QCOMPARE(line(Plan::monthly, true), QStringLiteral("Monthly plan · renewal canceled"));
        QCOMPARE(line(Plan::yearly, false), QStringLiteral("Yearly plan"));
        QCOMPARE(line(Plan::yearly, true), QStringLiteral("Yearly plan · renewal canceled"));
        QCOMPARE(line(Plan::paid, false), QStringLiteral("Paid plan"));
        QCOMPARE(line(Plan::paid, true), QStringLiteral("Paid plan · renewal canceled"));
        QCOMPARE(line(Plan::free, false), QStringLiteral("Free · 31 of 30 used"));
        QCOMPARE(line(Plan::free, true), QStringLiteral("Free · 31 of 30 used"));
    }

    void everyAccountStateHasItsText() {
        QCOMPARE(AccountState::signedIn(QStringLiteral("a@b.c")).label(),
                 QStringLiteral("Signed in as a@b.c."));
        QCOMPARE(AccountState::failed(QStringLiteral("Why.")).label(), QStringLiteral("Why."));
        QCOMPARE(AccountState::signedOut().label(), QStringLiteral("Not signed in."));
        QCOMPARE(AccountState::signingIn().label(), QStringLiteral("Finish signing in in your browser."));
        QVERIFY(AccountState::signedIn({}).isSignedIn());
        QVERIFY(!AccountState::signingIn().isSignedIn());
    }
};

QTEST_GUILESS_MAIN(AccountInfoTest)
#include "tst_accountinfo.moc"
