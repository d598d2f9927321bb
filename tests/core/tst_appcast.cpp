#include "VellumlineCore/Appcast.h"
#include "VellumlineCore/Base64.h"

#include <QElapsedTimer>
#include <QTest>

using namespace vellumline;

namespace {

bool acceptsHttps(const QUrl& url) {
    return url.isValid() && url.scheme() == QLatin1String("https") && !url.host().isEmpty();
}

const QByteArray signature = QByteArray(64, 's').toBase64();

QByteArray feed(const QByteArray& items) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:vellumline=\"https://vellumline.kelthorne.com/xml/appcast\">"
           "<channel><title>Versions</title>" +
           items + "</channel></rss>";
}

QByteArray enclosure(const QByteArray& version, const QByteArray& attributes = {}) {
    return "<enclosure url=\"https://example.org/v.deb\" length=\"10\" type=\"application/x-deb\" "
           "vellumline:signature=\"" +
           signature + "\" vellumline:version=\"" + version + "\" " + attributes + "/>";
}

QByteArray item(const QByteArray& version, const QByteArray& more = {}) {
    return "<item>" + more + enclosure(version) + "</item>";
}

/// An item whose enclosure has one attribute changed.
QByteArray itemWith(const char* before, const char* after) {
    return item("2.0").replace(before, after);
}

std::optional<Appcast> parsed(const QByteArray& document) {
    return Appcast::parse(document, acceptsHttps);
}

SoftwareVersion version(const char* text) {
    return *SoftwareVersion::parse(QLatin1String(text));
}

} // namespace

class AppcastTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void aFeedIsReadWhole() {
        const auto read = parsed(
            feed("<item><title>A calmer\n  panel</title>"
                 "<link>https://example.org/2.0</link>"
                 "<pubDate>Wed, 03 Mar 2027 09:30:00 +0100</pubDate>"
                 "<description><![CDATA[\n    - Quotes & dashes <stay>\n\n    - Faster\n  ]]></description>"
                 "<author>nobody@example.org</author>" +
                 enclosure("2.0") + "</item>"));
        QVERIFY(read);
        QCOMPARE(read->items.size(), 1);
        const AppcastItem& only = read->items.first();
        QCOMPARE(only.version.text(), QStringLiteral("2.0"));
        QCOMPARE(only.title, QStringLiteral("A calmer panel"));
        QCOMPARE(only.notes, QStringLiteral("- Quotes & dashes <stay>\n\n- Faster"));
        QCOMPARE(only.link, QUrl(QStringLiteral("https://example.org/2.0")));
        QCOMPARE(only.published.toUTC(), QDateTime({2027, 3, 3}, {8, 30}, Qt::UTC));
        QCOMPARE(only.enclosure.url, QUrl(QStringLiteral("https://example.org/v.deb")));
        QCOMPARE(only.enclosure.length, 10);
        QCOMPARE(only.enclosure.type, QStringLiteral("application/x-deb"));
        QCOMPARE(only.enclosure.signature, QByteArray(64, 's'));
    }

    void aFeedMayHaveNoItemsAndAnItemNoTexts() {
        QCOMPARE(parsed(feed({}))->items.size(), 0);
        const auto read = parsed(feed(item("2.0")));
        QVERIFY(read);
        QVERIFY(read->items.first().title.isEmpty() && read->items.first().notes.isEmpty());
        QVERIFY(read->items.first().link.isEmpty() && !read->items.first().published.isValid());
    }

    void theNewestItemCountsWhereverItStands() {
        const auto read = parsed(feed(item("1.2") + item("1.10") + item("1.10-beta") + item("1.9")));
        QCOMPARE(read->newestAfter(version("1.0"))->version.text(), QStringLiteral("1.10"));
        QCOMPARE(read->newestAfter(version("1.10-rc"))->version.text(), QStringLiteral("1.10"));
        QVERIFY(read->newestAfter(version("1.10")) == nullptr);
        QVERIFY(read->newestAfter(version("1.10.0")) == nullptr);
        QVERIFY(read->newestAfter(version("2")) == nullptr);
    }

    void anItemWhoseVersionCannotBeReadIsLeftOut() {
        const auto read = parsed(feed(item("2027 spring") + item("1.1")));
        QVERIFY(read);
        QCOMPARE(read->items.size(), 1);
        QCOMPARE(read->newestAfter(version("1.0"))->version.text(), QStringLiteral("1.1"));
    }

    void longTextsAreCut() {
        const QByteArray title(1000, 't');
        // The last place that is left would get the first half of a character outside of the basic plane.
        const QByteArray notes = QByteArray(Appcast::longestNotes - 1, 'n') + "\xf0\x9f\x96\x8b more";
        const auto read =
            parsed(feed(item("2.0", "<title>" + title + "</title><description>" + notes + "</description>")));
        QVERIFY(read);
        QCOMPARE(read->items.first().title.size(), Appcast::longestTitle);
        QCOMPARE(read->items.first().notes.size(), Appcast::longestNotes - 1);
        QVERIFY(!read->items.first().notes.back().isSurrogate());
    }

    void anotherEncodingThatTheDocumentNamesIsRead() {
        const auto read =
            parsed(feed(item("2.0", "<title>d\xe9j\xe0</title>")).replace("utf-8", "iso-8859-1"));
        QVERIFY(read);
        QCOMPARE(read->items.first().title, QStringLiteral("déjà"));
    }

    void whatBreaksARuleIsRefused_data() {
        QTest::addColumn<QByteArray>("document");
        const auto row = [](const char* name, const QByteArray& document) {
            QTest::newRow(name) << document;
        };
        row("nothing", {});
        row("not XML", "version 2.0 is out");
        row("JSON", R"({"version": "2.0"})");
        row("an HTML page", "<!DOCTYPE html><html><body>Log in to the hotel's network</body></html>");
        row("another kind of feed", "<feed xmlns=\"http://www.w3.org/2005/Atom\"/>");
        row("no channel", "<rss version=\"2.0\"/>");
        row("an older RSS", feed(item("2.0")).replace("rss version=\"2.0\"", "rss version=\"0.91\""));
        row("RSS in a namespace", feed(item("2.0")).replace("<rss ", "<rss xmlns=\"urn:x\" "));
        row("two channels", feed({}).replace("</rss>", "<channel/></rss>"));
        row("cut off", feed(item("2.0")).chopped(3));
        row("something after its end", feed(item("2.0")) + "<rss/>");
        row("a document type", feed(item("2.0")).replace("<rss ", "<!DOCTYPE rss><rss "));
        row("an undeclared entity", feed(item("2.0", "<title>&vellumline;</title>")));
        row("an entity bomb", feed(item("2.0", "<title>&d;</title>"))
                                  .replace("<rss ", "<!DOCTYPE rss [<!ENTITY a \"aaaaaaaaaaaaaaaaaaaa\">"
                                                    "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
                                                    "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
                                                    "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">]><rss "));
        row("a file as an entity", feed(item("2.0", "<title>&f;</title>"))
                                       .replace("<rss ", "<!DOCTYPE rss [<!ENTITY f SYSTEM "
                                                         "\"file:///etc/hostname\">]><rss "));
        row("bytes that are not the encoding", feed(item("2.0", "<title>\xff\xfe</title>")));
        row("markup in a title", feed(item("2.0", "<title>a<b>b</b></title>")));
        row("an item without an enclosure", feed("<item><title>2.0</title></item>"));
        row("two enclosures", feed("<item>" + enclosure("2.0") + enclosure("2.1") + "</item>"));
        row("an enclosure in a namespace", feed(itemWith("<enclosure", "<vellumline:enclosure")));
        row("no version", feed(itemWith("vellumline:version", "vellumline:other")));
        row("an empty version", feed(item({})));
        row("a version without our namespace", feed(itemWith("vellumline:version", "version")));
        row("no signature", feed(itemWith("vellumline:signature", "vellumline:other")));
        row("a signature that is too short", feed(itemWith(signature, QByteArray(63, 's').toBase64())));
        row("a signature that is not Base64", feed(itemWith(signature, QByteArray(88, '*'))));
        row("no length", feed(itemWith("length=\"10\"", "")));
        row("no bytes", feed(itemWith("length=\"10\"", "length=\"0\"")));
        row("a negative length", feed(itemWith("length=\"10\"", "length=\"-1\"")));
        row("a length beyond 64 bits", feed(itemWith("length=\"10\"", "length=\"99999999999999999999\"")));
        row("a length beyond reason", feed(itemWith("length=\"10\"", "length=\"1099511627777\"")));
        row("no type", feed(itemWith("type=\"application/x-deb\"", "type=\"\"")));
        row("a file over plain HTTP",
            feed(itemWith("https://example.org/v.deb", "http://example.org/v.deb")));
        row("a file of this machine", feed(itemWith("https://example.org/v.deb", "file:///etc/passwd")));
        row("a page that is a script", feed(item("2.0", "<link>javascript:alert(1)</link>")));
        row("an empty page", feed(item("2.0", "<link></link>")));
        row("a very long link",
            feed(item("2.0", "<link>https://example.org/" + QByteArray(2048, 'x') + "</link>")));
        row("too many items", feed(item("1.0").repeated(201)));
        row("too large", feed(item("2.0", "<description>" + QByteArray(Appcast::largestDocument, 'x') +
                                              "</description>")));
    }
    void whatBreaksARuleIsRefused() {
        QFETCH(const QByteArray, document);
        QVERIFY(!parsed(document));
    }

    void theLargestFeedIsReadInNoTime() {
        const auto many = parsed(feed(item("1.0").repeated(200)));
        QVERIFY(many);
        QCOMPARE(many->items.size(), Appcast::mostItems);

        QByteArray document = feed(item("2.0", "<deep></deep>"));
        const qsizetype depth = (Appcast::largestDocument - document.size()) / 7;
        document.replace("<deep></deep>",
                         QByteArray("<d>").repeated(depth) + QByteArray("</d>").repeated(depth));
        QVERIFY(document.size() <= Appcast::largestDocument);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(parsed(document));
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    }

    void base64IsTheOneWayToWriteTheBytes() {
        QCOMPARE(decodeBase64("AAE=", 2), std::optional(QByteArray("\0\1", 2)));
        QVERIFY(!decodeBase64("AAE", 2));  // no padding
        QVERIFY(!decodeBase64("AAF=", 2)); // bits that stand for nothing
        QVERIFY(!decodeBase64("AAE=\n", 2));
        QVERIFY(!decodeBase64("AAE=", 3));
        QVERIFY(!decodeBase64({}, 1));
    }
};

QTEST_GUILESS_MAIN(AppcastTest)
#include "tst_appcast.moc"
