#include "VellumlineCore/AuthSession.h"

#include <QJsonDocument>
#include <QTest>

using namespace vellumline;

class AuthSessionTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aHandoffUserIdIsDecimalTextOnly_data();
    void aHandoffUserIdIsDecimalTextOnly();

    void handoffTokensAreTrimmedAndNeeded();

    void theHandoffAddressComesFromTheBodyThenTheClaims();

    void anAddressFollowsOneRule_data();
    void anAddressFollowsOneRule();

    void refreshingKeepsWhatTheReplyLeavesOut();

    void theRefreshedAddressHasItsOrder();

    void theTokenFillsOnlyAMissingAddress();

    void theNameIsTheAddressOrTheNumber();

    void aTokenIsReadNotVerified();

    void aTokenNeedsRenewalSixtySecondsBeforeItsEnd();

    void theStoredFormComesBack();
};

namespace {

QString token(const QByteArray& payload) {
    return QStringLiteral("h.") +
           QString::fromLatin1(
               payload.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)) +
           QStringLiteral(".s");
}

QByteArray handoff(const QByteArray& userId, const QByteArray& rest = {}) {
    return R"({"access_token":"a","refresh_token":"r","user_id":)" + userId + rest + "}";
}

AuthSession current() {
    return {QStringLiteral("old"), QStringLiteral("old-refresh"), 7, QStringLiteral("old@example.org")};
}

} // namespace

void AuthSessionTest::aHandoffUserIdIsDecimalTextOnly_data() {
    QTest::addColumn<QByteArray>("userId");
    QTest::addColumn<qint64>("expected"); // -1: nothing
    QTest::newRow("digits") << QByteArray(R"("42")") << qint64(42);
    QTest::newRow("a plus sign and spaces around") << QByteArray(R"("  +42\n")") << qint64(42);
    QTest::newRow("a minus sign") << QByteArray(R"("-42")") << qint64(-42);
    QTest::newRow("the largest") << QByteArray(R"("9223372036854775807")") << qint64(9223372036854775807LL);
    QTest::newRow("one more overflows") << QByteArray(R"("9223372036854775808")") << qint64(-1);
    QTest::newRow("a JSON number is undecodable") << QByteArray("42") << qint64(-1);
    QTest::newRow("empty after trimming") << QByteArray(R"("  ")") << qint64(-1);
    QTest::newRow("a sign alone") << QByteArray(R"("+")") << qint64(-1);
    QTest::newRow("a space inside") << QByteArray(R"("4 2")") << qint64(-1);
    QTest::newRow("hexadecimal") << QByteArray(R"("0x2A")") << qint64(-1);
    QTest::newRow("digits of another script") << QByteArray(R"("٤٢")") << qint64(-1);
}

void AuthSessionTest::aHandoffUserIdIsDecimalTextOnly() {
    QFETCH(const QByteArray, userId);
    QFETCH(const qint64, expected);
    const auto session = AuthSession::fromHandoff(handoff(userId));
    QCOMPARE(session ? session->userId : -1, expected);
}

void AuthSessionTest::handoffTokensAreTrimmedAndNeeded() {
    const auto session = AuthSession::fromHandoff(
        R"({"access_token":" a\n","refresh_token":"\tr ","user_id":"1","more":[1]})");
    QVERIFY(session);
    QCOMPARE(*session, (AuthSession{QStringLiteral("a"), QStringLiteral("r"), 1, std::nullopt}));
    for (const char* body :
         {R"({"access_token":"   ","refresh_token":"r","user_id":"1"})",
          R"({"access_token":"a","refresh_token":" ","user_id":"1"})",
          R"({"refresh_token":"r","user_id":"1"})", R"({"access_token":"a","user_id":"1"})",
          R"({"access_token":"a","refresh_token":"r"})",
          R"({"access_token":true,"refresh_token":"r","user_id":"1"})",
          R"({"access_token":"a","refresh_token":"r","user_id":"1","email":5})", "[]", "", "not json",
          "{\"access_token\":\"\xff\",\"refresh_token\":\"r\",\"user_id\":\"1\"}"})
        QVERIFY2(!AuthSession::fromHandoff(body), body);
}

void AuthSessionTest::theHandoffAddressComesFromTheBodyThenTheClaims() {
    const auto withClaims = [](const char* claims, const char* email) {
        return AuthSession::fromHandoff("{\"access_token\":\"" + token(claims).toUtf8() +
                                        R"(","refresh_token":"r","user_id":"1")" + email + "}")
            ->email;
    };
    const QString body = QStringLiteral("b@x.y");
    QCOMPARE(withClaims(R"({"email":"c@x.y"})", R"(,"email":"b@x.y")"), std::optional(body));
    QCOMPARE(withClaims(R"({"email":"c@x.y"})", R"(,"email":"bad")"), std::optional(QStringLiteral("c@x.y")));
    QCOMPARE(withClaims(R"({"email":"bad","username":"u@x.y"})", ""), std::optional(QStringLiteral("u@x.y")));
    QCOMPARE(withClaims(R"({"username":"name"})", ""), std::optional<QString>());
    QCOMPARE(withClaims("{}", R"(,"email":null)"), std::optional<QString>());
}

void AuthSessionTest::anAddressFollowsOneRule_data() {
    QTest::addColumn<QString>("candidate");
    QTest::addColumn<QString>("expected"); // null: absent
    const QString long320 = QString(316, QLatin1Char('a')) + QStringLiteral("@b.c");
    QTest::newRow("plain") << QStringLiteral("a@b.c") << QStringLiteral("a@b.c");
    QTest::newRow("trimmed") << QStringLiteral(" a@b.c\n") << QStringLiteral("a@b.c");
    QTest::newRow("no dot in the domain") << QStringLiteral("a.b@c") << QString();
    QTest::newRow("nothing before the at") << QStringLiteral("@b.c") << QString();
    QTest::newRow("two ats") << QStringLiteral("a@b@c.d") << QString();
    QTest::newRow("no at") << QStringLiteral("b.c") << QString();
    QTest::newRow("a space inside") << QStringLiteral("a b@c.d") << QString();
    QTest::newRow("a no-break space inside") << QStringLiteral("a\u00A0b@c.d") << QString();
    QTest::newRow("320 characters") << long320 << long320;
    QTest::newRow("321 characters") << QLatin1Char('a') + long320 << QString();
    QTest::newRow("320 characters of several code points")
        << QString(QStringLiteral("e\u0301")).repeated(316) + QStringLiteral("@b.c")
        << QString(QStringLiteral("e\u0301")).repeated(316) + QStringLiteral("@b.c");
    QTest::newRow("empty") << QString() << QString();
}

void AuthSessionTest::anAddressFollowsOneRule() {
    QFETCH(const QString, candidate);
    QFETCH(const QString, expected);
    const auto result = AuthSession::displayEmail(candidate);
    QCOMPARE(result.value_or(QString()), expected);
    QCOMPARE(result.has_value(), !expected.isNull());
    QVERIFY(!AuthSession::displayEmail(std::nullopt));
}

void AuthSessionTest::refreshingKeepsWhatTheReplyLeavesOut() {
    const auto renewed = current().refreshed(R"({"access_token":" new "})");
    QVERIFY(renewed);
    QCOMPARE(*renewed, (AuthSession{QStringLiteral("new"), QStringLiteral("old-refresh"), 7,
                                    QStringLiteral("old@example.org")}));
    QCOMPARE(current().refreshed(R"({"access_token":"n","refresh_token":"  "})")->refreshToken,
             QStringLiteral("old-refresh"));
    QCOMPARE(current().refreshed(R"({"access_token":"n","refresh_token":""})")->refreshToken,
             QStringLiteral("old-refresh"));
    QCOMPARE(current().refreshed(R"({"access_token":"n","refresh_token":" r2 "})")->refreshToken,
             QStringLiteral("r2"));
    QVERIFY(!current().refreshed(R"({"access_token":" "})"));
    QVERIFY(!current().refreshed(R"({"refresh_token":"r"})"));
    QVERIFY(!current().refreshed(R"({"access_token":"n","username":1})"));
}

void AuthSessionTest::theRefreshedAddressHasItsOrder() {
    const auto email = [](const QByteArray& body) { return *current().refreshed(body)->email; };
    QCOMPARE(email(R"({"access_token":"n","email":"e@x.y","username":"u@x.y"})"), QStringLiteral("e@x.y"));
    QCOMPARE(email(R"({"access_token":"n","username":"u@x.y"})"), QStringLiteral("u@x.y"));
    // A present but unusable address does not fall back to the user name.
    QCOMPARE(email(R"({"access_token":"n","email":"bad","username":"u@x.y"})"),
             QStringLiteral("old@example.org"));
    QCOMPARE(email("{\"access_token\":\"" + token(R"({"email":"c@x.y"})").toUtf8() + R"(","email":"bad"})"),
             QStringLiteral("c@x.y"));
    QCOMPARE(email("{\"access_token\":\"" + token(R"({"username":"c@x.y"})").toUtf8() + R"("})"),
             QStringLiteral("c@x.y"));
}

void AuthSessionTest::theTokenFillsOnlyAMissingAddress() {
    AuthSession session = current();
    session.accessToken = token(R"({"email":"c@x.y"})");
    QCOMPARE(session.withEmailFromToken(), session);
    session.email.reset();
    QCOMPARE(session.withEmailFromToken().email, std::optional(QStringLiteral("c@x.y")));
    session.accessToken = token(R"({"username":"u@x.y"})");
    QCOMPARE(session.withEmailFromToken().email, std::optional(QStringLiteral("u@x.y")));
    session.accessToken = QStringLiteral("opaque");
    QCOMPARE(session.withEmailFromToken(), session);
}

void AuthSessionTest::theNameIsTheAddressOrTheNumber() {
    AuthSession session = current();
    QCOMPARE(session.displayName(), QStringLiteral("old@example.org"));
    session.email.reset();
    QCOMPARE(session.displayName(), QStringLiteral("account 7"));
}

void AuthSessionTest::aTokenIsReadNotVerified() {
    QCOMPARE(JWT::expiration(token(R"({"exp":1700000000})")), std::optional(1700000000.0));
    QCOMPARE(JWT::expiration(token(R"({"exp":1700000000.5})")), std::optional(1700000000.5));
    QVERIFY(!JWT::expiration(token(R"({"exp":"1700000000"})")));
    QVERIFY(!JWT::expiration(token(R"({"exp":true})")));
    QVERIFY(!JWT::expiration(token("{}")));
    QVERIFY(!JWT::expiration(token("[1]")));
    QVERIFY(!JWT::expiration(QStringLiteral("opaque")));
    QVERIFY(!JWT::expiration(QStringLiteral("a.***.c")));
    QVERIFY(!JWT::expiration(QStringLiteral(".")));
    // Two pieces are enough, and both alphabets of base64 are read.
    QCOMPARE(JWT::claim(QStringLiteral("k"),
                        token("{\"k\":\"\xc3\xbf\xc3\xbf?>\"}").section(QLatin1Char('.'), 0, 1)),
             std::optional(QStringLiteral("ÿÿ?>")));
    QVERIFY(!JWT::claim(QStringLiteral("k"), token(R"({"k":1})")));
    QVERIFY(!JWT::claim(QStringLiteral("k"), token(R"({"k":"\ud800"})")));
}

void AuthSessionTest::aTokenNeedsRenewalSixtySecondsBeforeItsEnd() {
    AuthSession session = current();
    session.accessToken = token(R"({"exp":1000})");
    QVERIFY(session.accessTokenNeedsRefresh(940));
    QVERIFY(session.accessTokenNeedsRefresh(2000));
    QVERIFY(!session.accessTokenNeedsRefresh(939));
    session.accessToken = QStringLiteral("opaque");
    QVERIFY(!session.accessTokenNeedsRefresh(2000));
}

void AuthSessionTest::theStoredFormComesBack() {
    AuthSession session = current();
    session.userId = 9007199254740993; // does not fit a double
    QCOMPARE(AuthSession::fromStoredJson(session.toStoredJson()), std::optional(session));
    session.email.reset();
    QCOMPARE(AuthSession::fromStoredJson(session.toStoredJson()), std::optional(session));
    QVERIFY(!QJsonDocument::fromJson(session.toStoredJson()).object().contains(QStringLiteral("email")));
    QCOMPARE(AuthSession::fromStoredJson(R"({"accessToken":"","refreshToken":"","userId":30.0})")->userId,
             30);
    QVERIFY(!AuthSession::fromStoredJson(R"({"accessToken":"a","refreshToken":"r","userId":30.5})"));
    QVERIFY(!AuthSession::fromStoredJson(R"({"accessToken":"a","refreshToken":"r","userId":true})"));
    QVERIFY(!AuthSession::fromStoredJson(R"({"accessToken":"a","refreshToken":"r","userId":"1"})"));
    QVERIFY(!AuthSession::fromStoredJson(R"({"access_token":"a","refresh_token":"r","userId":1})"));
}

QTEST_GUILESS_MAIN(AuthSessionTest)
#include "tst_authsession.moc"
