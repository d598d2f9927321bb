#include "VellumlineCore/AppLink.h"
#include "VellumlineCore/Pkce.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

using namespace vellumline;

class AppLinkTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void linksAreReadAsTheyArrived_data() {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("result"); // a code, "start" or nothing
        const QString code = QStringLiteral("abcdefghijklmnop");
        const auto row = [](const char* name, const QString& link, const QString& result) {
            QTest::newRow(name) << link << result;
        };
        const QString auth = QStringLiteral("vellumline://auth?handoff=");
        row("16 characters", auth + code, code);
        row("15 characters", auth + code.chopped(1), {});
        row("128 characters", auth + QString(128, QLatin1Char('a')), QString(128, QLatin1Char('a')));
        row("129 characters", auth + QString(129, QLatin1Char('a')), {});
        row("every kind of character", auth + QStringLiteral("AZaz09-_AZaz09-_"),
            QStringLiteral("AZaz09-_AZaz09-_"));
        row("a dot", auth + QStringLiteral("abc.defghijklmnopq"), {});
        row("a letter beyond ASCII", auth + QStringLiteral("abcdefghijklmnopé"), {});
        row("an escaped letter beyond ASCII", auth + QStringLiteral("abcdefghijklmnop%C3%A9"), {});
        row("an escaped line break pair", auth + code + QStringLiteral("%0D%0A"), {});
        row("an escaped letter is that letter", auth + QStringLiteral("%61bcdefghijklmnop"), code);
        row("the scheme in capitals", QStringLiteral("VELLUMLINE://auth?handoff=") + code, {});
        row("one capital", QStringLiteral("Vellumline://auth?handoff=") + code, {});
        row("the host in capitals", QStringLiteral("vellumline://AUTH?handoff=") + code, {});
        row("another scheme", QStringLiteral("https://auth?handoff=") + code, {});
        row("another key", QStringLiteral("vellumline://auth?code=") + code, {});
        row("the key in capitals", QStringLiteral("vellumline://auth?Handoff=") + code, {});
        row("no value", QStringLiteral("vellumline://auth?handoff"), {});
        row("an empty value", auth, {});
        row("the first item counts", auth + QStringLiteral("x&handoff=") + code, {});
        row("after another item", QStringLiteral("vellumline://auth?a=b&handoff=") + code, code);
        row("with a path", QStringLiteral("vellumline://auth/done?handoff=") + code, code);
        row("with a fragment", auth + code + QStringLiteral("#x"), code);
        row("no query", QStringLiteral("vellumline://auth"), {});
        row("sign-in", QStringLiteral("vellumline://sign-in"), QStringLiteral("start"));
        row("sign-in with more", QStringLiteral("vellumline://sign-in/anything?x=1"),
            QStringLiteral("start"));
        row("another host", QStringLiteral("vellumline://sign-out"), {});
        row("no host", QStringLiteral("vellumline:"), {});
        row("no host either", QStringLiteral("vellumline:sign-in"), {});
        row("empty", QString(), {});
    }
    void linksAreReadAsTheyArrived() {
        QFETCH(const QString, link);
        QFETCH(const QString, result);
        const auto parsed = AppLink::parse(link);
        if (result.isEmpty())
            QVERIFY(!parsed);
        else if (result == QStringLiteral("start"))
            QCOMPARE(parsed, std::optional(AppLink::startSignIn()));
        else
            QCOMPARE(parsed, std::optional(AppLink::handoff(result)));
    }

    void theChallengeIsThePublishedExample() { // RFC 7636, appendix B
        QCOMPARE(Pkce(QStringLiteral("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk")).challenge(),
                 QStringLiteral("E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"));
    }

    void everyPairIsNewAndOfTheAlphabet() {
        static const QRegularExpression alphabet(QStringLiteral("^[A-Za-z0-9_-]{43}$"));
        QSet<QString> seen;
        for (int i = 0; i < 64; ++i) {
            const Pkce pair = Pkce::generate();
            QVERIFY(alphabet.match(pair.verifier()).hasMatch());
            QVERIFY(alphabet.match(pair.challenge()).hasMatch());
            seen.insert(pair.verifier());
        }
        QCOMPARE(seen.size(), 64);
        QCOMPARE(Pkce::base64URL(QByteArray("\xfb\xff\xfe", 3)), QStringLiteral("-__-"));
        QCOMPARE(Pkce::base64URL("a"), QStringLiteral("YQ"));
    }
};

QTEST_GUILESS_MAIN(AppLinkTest)
#include "tst_applink.moc"
