#include "Vellumline/AuthConfig.h"

#include <QTest>

using namespace vellumline;

class AuthConfigTest : public QObject {
    Q_OBJECT

  private:
    static AuthConfig example() {
        return *AuthConfig::resolve(QStringLiteral("https://www.example.org"),
                                    QStringLiteral("https://id.example.org/auth"),
                                    QStringLiteral("https://api.example.org"));
    }

  private Q_SLOTS:
    void pathsAreAppendedToAnOriginAndKeepTheirTrailingSlash_data() {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("an origin without a path") << "https://a.example"
                                                  << "v1/account"
                                                  << "https://a.example/v1/account";
        QTest::newRow("an origin that ends in a slash") << "https://a.example/"
                                                        << "v1/account"
                                                        << "https://a.example/v1/account";
        QTest::newRow("an origin with a segment") << "https://a.example/auth"
                                                  << "oauth/token"
                                                  << "https://a.example/auth/oauth/token";
        QTest::newRow("a path that is a directory") << "https://a.example:8443"
                                                    << "login/"
                                                    << "https://a.example:8443/login/";
        QTest::newRow("a path that keeps its encoding") << "https://a.example/x%2Fy"
                                                        << "v1"
                                                        << "https://a.example/x%2Fy/v1";
    }
    void pathsAreAppendedToAnOriginAndKeepTheirTrailingSlash() {
        QFETCH(QString, origin);
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QCOMPARE(AuthConfig::appending(QUrl(origin), path).toString(QUrl::FullyEncoded), expected);
    }

    void theLoginPageCarriesTheChallengeAndNothingElse() {
        QCOMPARE(example().loginURL(QStringLiteral("E9Mel_hoa2-OwvFr")).toString(QUrl::FullyEncoded),
                 QStringLiteral("https://www.example.org/login/?app_challenge=E9Mel_hoa2-OwvFr"));
        QCOMPARE(example().loginURL(QStringLiteral("a&b=c+d #")).toString(QUrl::FullyEncoded),
                 QStringLiteral("https://www.example.org/login/?app_challenge=a%26b%3Dc%2Bd%20%23"));
    }

    void theAccountPageAndTheCheckoutAreOnTheSite() {
        QCOMPARE(example().accountURL(), QUrl(QStringLiteral("https://www.example.org/account/")));
        QCOMPARE(example().checkoutURL(QStringLiteral("monthly")),
                 QUrl(QStringLiteral("https://www.example.org/account/?plan=monthly")));
    }

    void anOriginMustBeSecureOrLocal_data() {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<bool>("acceptable");
        QTest::newRow("HTTPS anywhere") << "https://api.example.org" << true;
        QTest::newRow("HTTP on 127.0.0.1") << "http://127.0.0.1:8642" << true;
        QTest::newRow("HTTP on another address of the loopback net") << "http://127.8.8.8" << true;
        QTest::newRow("HTTP on ::1") << "http://[::1]:8642" << true;
        QTest::newRow("HTTP on localhost") << "http://localhost:8642" << true;
        QTest::newRow("HTTP on a name") << "http://api.example.org" << false;
        QTest::newRow("HTTP on an address of a local network") << "http://192.168.1.2" << false;
        QTest::newRow("HTTP on a name that begins like the loopback address")
            << "http://127.0.0.1.example.org" << false;
        QTest::newRow("HTTP on a name that begins like localhost") << "http://localhost.example.org" << false;
        QTest::newRow("a loopback address that is the user name") << "http://127.0.0.1@example.org" << false;
        QTest::newRow("a user name before a secure host") << "https://user@example.org" << false;
        QTest::newRow("another scheme on a loopback address") << "ftp://127.0.0.1" << false;
        QTest::newRow("no scheme") << "api.example.org" << false;
        QTest::newRow("no host") << "https:///path" << false;
        QTest::newRow("nothing") << "" << false;
        QTest::newRow("no URL at all") << "http://a b" << false;
    }
    void anOriginMustBeSecureOrLocal() {
        QFETCH(QString, origin);
        QFETCH(bool, acceptable);
        QCOMPARE(AuthConfig::isAcceptable(QUrl(origin, QUrl::StrictMode)), acceptable);
        const QString good = QStringLiteral("https://a.example");
        QCOMPARE(AuthConfig::resolve(origin, good, good).has_value(), acceptable);
        QCOMPARE(AuthConfig::resolve(good, origin, good).has_value(), acceptable);
        QCOMPARE(AuthConfig::resolve(good, good, origin).has_value(), acceptable);
    }

    void aLocalOriginStandsInForAllThree() {
        const QString good = QStringLiteral("https://a.example");
        const std::optional<AuthConfig> config =
            AuthConfig::resolve(good, good, good, QStringLiteral("http://127.0.0.1:9999"));
        QVERIFY(config.has_value());
        QCOMPARE(config->landingURL, QUrl(QStringLiteral("http://127.0.0.1:9999")));
        QCOMPARE(config->authBaseURL, QUrl(QStringLiteral("http://127.0.0.1:9999/auth")));
        QCOMPARE(config->backendURL, QUrl(QStringLiteral("http://127.0.0.1:9999")));
    }

    void anOriginThatIsNotLocalCannotStandInForTheBuilds() {
        const QString good = QStringLiteral("https://a.example");
        QVERIFY(!AuthConfig::resolve(good, good, good, QStringLiteral("https://evil.example")).has_value());
        QVERIFY(!AuthConfig::resolve(good, good, good, QStringLiteral("nonsense")).has_value());
    }

    void theBuildsOwnOriginsAreAcceptableAndMadeOnce() {
        const AuthConfig& config = AuthConfig::shared();
        QVERIFY(AuthConfig::isAcceptable(config.landingURL));
        QVERIFY(AuthConfig::isAcceptable(config.authBaseURL));
        QVERIFY(AuthConfig::isAcceptable(config.backendURL));
        QVERIFY(config.authBaseURL.path().endsWith(QLatin1String("/auth")));
        QCOMPARE(&AuthConfig::shared(), &config);
    }
};

QTEST_GUILESS_MAIN(AuthConfigTest)
#include "tst_authconfig.moc"
