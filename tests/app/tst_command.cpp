#include "Vellumline/AppStatus.h"
#include "Vellumline/Command.h"
#include "fakes/ModelOnFakes.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace vellumline;

class CommandTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void everyCommandHasANameThatFindsIt() {
        for (const Command command : {Command::rewrite, Command::openMenu, Command::settings, Command::signIn,
                                      Command::signOut, Command::status, Command::quit, Command::doctor})
            QCOMPARE(commandNamed(nameOf(command)), std::optional(command));
        QVERIFY(!commandNamed(QStringLiteral("Rewrite")));
        QVERIFY(!commandNamed(QString()));
    }

    void noArgumentIsTheProgramItself() {
        const Request request = Request::of({});
        QVERIFY(!request.command && !request.wrong && request.links.isEmpty());
    }

    void aWordIsACommandOrASlip() {
        QCOMPARE(Request::of({QStringLiteral("sign-in")}).command, std::optional(Command::signIn));
        QVERIFY(Request::of({QStringLiteral("rewrit")}).wrong);
        QVERIFY(Request::of({QStringLiteral("quit"), QStringLiteral("now")}).wrong);
    }

    void whatABrowserHandsOverStaysAsItIs() {
        const QStringList links = {QStringLiteral("Vellumline://Auth?handoff=a%20B"), QStringLiteral("quit")};
        const Request request = Request::of(links);
        QVERIFY(!request.command && !request.wrong);
        QCOMPARE(request.links, links);
        QCOMPARE(Request::of({QString()}).links, QStringList(QString()));
    }

    void onlyWhatNeedsNoRunningProgramStartsIt() {
        QVERIFY(startsProgram(Command::rewrite) && startsProgram(Command::signIn));
        QVERIFY(!startsProgram(Command::status) && !startsProgram(Command::quit) &&
                !startsProgram(Command::signOut));
    }

    void whatHasAnAnswerIsNoAction() {
        QVERIFY(isAction(Command::quit));
        QVERIFY(!isAction(Command::status) && !isAction(Command::doctor));
    }

    void theStatusOfNobodySaysSo() {
        ModelOnFakes fakes;
        const QVariantMap status = describe(fakes.model(), fakes.hotkeyMonitor, QStringLiteral("1.2.3"));
        QCOMPARE(status.value(QStringLiteral("accountState")).toString(), QStringLiteral("signed-out"));
        QCOMPARE(status.value(QStringLiteral("version")).toString(), QStringLiteral("1.2.3"));
        QVERIFY(!status.contains(QStringLiteral("signedInAs")));
        QVERIFY(!status.contains(QStringLiteral("plan")));
        QVERIFY(!status.value(QStringLiteral("shortcutRegistered")).toBool());
        QVERIFY(textOf(status).contains(QStringLiteral("not registered")));
    }

    void theStatusOfAFreeAccountHasItsPlanAndNoToken() {
        const auto fakes = ModelOnFakes::signedIn(ModelOnFakes::accountBody("free", 3, 30));
        fakes->hotkeyMonitor.registerBinding(HotkeyBinding::defaultBinding());
        const QVariantMap status = describe(fakes->model(), fakes->hotkeyMonitor, QStringLiteral("1.2.3"));
        QCOMPARE(status.value(QStringLiteral("accountState")).toString(), QStringLiteral("signed-in"));
        QCOMPARE(status.value(QStringLiteral("plan")).toString(), QStringLiteral("free"));
        QCOMPARE(status.value(QStringLiteral("rewritesUsed")).toInt(), 3);
        QCOMPARE(status.value(QStringLiteral("freeRewrites")).toInt(), 30);
        QVERIFY(status.value(QStringLiteral("shortcutRegistered")).toBool());
        const QByteArray json = QJsonDocument(QJsonObject::fromVariantMap(status)).toJson();
        QVERIFY(!json.contains("opaque"));
        QVERIFY(textOf(status).contains(fakes->model().accountInfo()->menuLabel()));
    }
};

QTEST_MAIN(CommandTest)
#include "tst_command.moc"
