#include "VellumlineCore/RewriteReply.h"

#include <QTest>

using namespace vellumline;
using Kind = RewriteReply::Kind;

class RewriteReplyTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void everyStatusAndBodyIsAReply_data();
    void everyStatusAndBodyIsAReply();

    void theTextKeepsItsSpaces();

    void onlyWebLinksAreKept_data();
    void onlyWebLinksAreKept();

    void theFreeLimitCarriesItsUsableLinks();

    void everyProblemHasItsSentence_data();
    void everyProblemHasItsSentence();

    void theLimitIsNamed();
};

void RewriteReplyTest::everyStatusAndBodyIsAReply_data() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("expected");
    const auto row = [](const char* name, int status, const char* body, Kind expected) {
        QTest::newRow(name) << status << QByteArray(body) << static_cast<int>(expected);
    };
    row("a text", 200, R"({"text":"x","more":1})", Kind::corrected);
    row("a text of white space", 200, R"({"text":" \n"})", Kind::failed);
    row("no text", 200, R"({"error":"x"})", Kind::failed);
    row("a text that is a number", 200, R"({"text":1})", Kind::failed);
    row("another key's letters", 200, R"({"Text":"x"})", Kind::failed);
    row("not JSON", 200, "x", Kind::failed);
    row("empty", 200, "", Kind::failed);
    row("an error beside the text of another type changes nothing", 200, R"({"text":"x","error":5})",
        Kind::corrected);
    row("201", 201, R"({"text":"x"})", Kind::failed);
    row("too long", 400, R"({"error":"text is too long"})", Kind::tooLong);
    row("too long with a capital", 400, R"({"error":"Text is too long"})", Kind::failed);
    row("too long with a space", 400, R"({"error":"text is too long "})", Kind::failed);
    row("empty text", 400, R"({"error":"text is empty"})", Kind::nothingToCorrect);
    row("another bad request", 400, R"({"error":"?"})", Kind::failed);
    row("a bad request without a body", 400, "", Kind::failed);
    row("unauthorized", 401, "", Kind::unauthorized);
    row("closed", 401, R"({"error":"account closed"})", Kind::accountClosed);
    row("closed with a capital", 401, R"({"error":"Account closed"})", Kind::unauthorized);
    row("the free limit", 402, "", Kind::freeLimit);
    row("the month's limit", 429, R"({"error":"monthly limit reached"})", Kind::monthlyLimit);
    row("the rate limit", 429, R"({"error":"slow down"})", Kind::rateLimited);
    row("the rate limit without a body", 429, "", Kind::rateLimited);
    row("500", 500, "", Kind::failed);
    row("502", 502, "", Kind::modelUnavailable);
    row("503", 503, "", Kind::modelUnavailable);
    row("504", 504, "", Kind::timedOut);
    row("505", 505, "", Kind::failed);
    row("0", 0, "", Kind::failed);
    row("403", 403, R"({"error":"account closed"})", Kind::failed);
}

void RewriteReplyTest::everyStatusAndBodyIsAReply() {
    QFETCH(const int, status);
    QFETCH(const QByteArray, body);
    QFETCH(const int, expected);
    QCOMPARE(static_cast<int>(RewriteReply::from(status, body).kind), expected);
}

void RewriteReplyTest::theTextKeepsItsSpaces() {
    QCOMPARE(RewriteReply::from(200, R"({"text":" A sentence. "})").text, QStringLiteral(" A sentence. "));
    QCOMPARE(RewriteReply::from(200, "{\"text\":\"\xEF\xBB\xBFzero width\"}").text,
             QStringLiteral(u"\ufeffzero width"));
    // In front of everything it is the mark of the encoding.
    QCOMPARE(RewriteReply::from(200, "\xEF\xBB\xBF{\"text\":\"a\"}").text, QStringLiteral("a"));
}

void RewriteReplyTest::onlyWebLinksAreKept_data() {
    QTest::addColumn<QString>("link");
    QTest::addColumn<bool>("kept");
    QTest::newRow("https") << QStringLiteral("https://pay.example.org/y?a=b") << true;
    QTest::newRow("http") << QStringLiteral("http://pay.example.org") << true;
    QTest::newRow("HTTPS in capitals") << QStringLiteral("HTTPS://pay.example.org") << false;
    QTest::newRow("ftp") << QStringLiteral("ftp://pay.example.org") << false;
    QTest::newRow("mailto") << QStringLiteral("mailto:a@b.c") << false;
    QTest::newRow("javascript") << QStringLiteral("javascript:alert(1)") << false;
    QTest::newRow("no host") << QStringLiteral("https:///path") << false;
    QTest::newRow("no host at all") << QStringLiteral("https:path") << false;
    QTest::newRow("a space in front") << QStringLiteral(" https://a.b") << false;
    QTest::newRow("not a URL") << QStringLiteral("https://[") << false;
    QTest::newRow("empty") << QString() << false;
}

void RewriteReplyTest::onlyWebLinksAreKept() {
    QFETCH(const QString, link);
    QFETCH(const bool, kept);
    QCOMPARE(RewriteReply::webURL(link).has_value(), kept);
    QVERIFY(!RewriteReply::webURL(std::nullopt));
}

void RewriteReplyTest::theFreeLimitCarriesItsUsableLinks() {
    const auto reply =
        RewriteReply::from(402, R"({"monthlyCheckoutUrl":"ftp://a.b","yearlyCheckoutUrl":"https://a.b/y"})");
    QVERIFY(!reply.monthlyURL);
    QCOMPARE(reply.yearlyURL, std::optional(QUrl(QStringLiteral("https://a.b/y"))));
    QVERIFY(!RewriteReply::from(402, R"({"yearlyCheckoutUrl":5})").yearlyURL);
}

void RewriteReplyTest::everyProblemHasItsSentence_data() {
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("sentence");
    using Problem = RewriteProblem::Kind;
    const auto row = [](const char* name, Problem kind, const char* sentence) {
        QTest::newRow(name) << static_cast<int>(kind) << QString::fromUtf8(sentence);
    };
    row("noSelection", Problem::noSelection, "Select some text first, then press ⌃⌥R.");
    row("readOnly", Problem::readOnly, "That text can't be edited here, so nothing was changed.");
    row("secureField", Problem::secureField, "Vellumline does not read password fields.");
    row("accessibilityNeeded", Problem::accessibilityNeeded,
        "Allow Accessibility for Vellumline, then press ⌃⌥R again.");
    row("offline", Problem::offline, "You're offline. Connect to the internet and try again.");
    row("timedOut", Problem::timedOut, "The correction took too long. Try again.");
    row("modelUnavailable", Problem::modelUnavailable,
        "Corrections are unavailable right now. Try again in a minute.");
    row("rateLimited", Problem::rateLimited, "Too many rewrites in a minute. Wait a moment and try again.");
    row("monthlyLimit", Problem::monthlyLimit,
        "You've reached this month's fair-use limit. It resets on the 1st.");
    row("freeLimit", Problem::freeLimit, "You've used your free rewrites. Pick a plan to keep going.");
    row("accountClosed", Problem::accountClosed,
        "This account is closed. Reopen it on the account page to rewrite.");
    row("failed", Problem::failed, "The rewrite failed. Try again.");
}

void RewriteReplyTest::everyProblemHasItsSentence() {
    QFETCH(const int, kind);
    QFETCH(const QString, sentence);
    QCOMPARE(RewriteProblem::of(static_cast<RewriteProblem::Kind>(kind)).message(QStringLiteral("⌃⌥R")),
             sentence);
}

void RewriteReplyTest::theLimitIsNamed() {
    QCOMPARE(RewriteProblem::tooLong(4000).message(QStringLiteral("x")),
             QStringLiteral("That selection is too long. Select up to 4000 characters."));
    // A label that looks like a place marker stays what it is.
    QCOMPARE(RewriteProblem::of(RewriteProblem::Kind::noSelection).message(QStringLiteral("%1")),
             QStringLiteral("Select some text first, then press %1."));
}

QTEST_GUILESS_MAIN(RewriteReplyTest)
#include "tst_rewritereply.moc"
