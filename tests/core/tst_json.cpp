#include "VellumlineCore/Json.h"

#include <QJsonDocument>
#include <QTest>

using namespace vellumline;

class JsonTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void stringsAreReadAsJsonHasThem_data();
    void stringsAreReadAsJsonHasThem();

    void everyStringOfTheBodyIsLookedAt();

    void whatQtWritesIsRead();
};

void JsonTest::stringsAreReadAsJsonHasThem_data() {
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("expected"); // null: refused
    const auto row = [](const char* name, const QByteArray& written, const QString& expected) {
        QTest::newRow(name) << written << expected;
    };
    row("every escape", R"(\"\\\/\b\f\n\r\t\u00e9)", QStringLiteral("\"\\/\b\f\n\r\t\u00e9"));
    row("an escaped backslash at the end", R"(a\\)", QStringLiteral("a\\"));
    row("a pair of surrogates", R"(\ud83d\ude00)", QStringLiteral("\U0001F600"));
    row("the same as UTF-8", "\xf0\x9f\x98\x80", QStringLiteral("\U0001F600"));
    row("DEL", "\x7f", QStringLiteral("\x7f"));
    row("an escaped control character", R"(\u0001)", QStringLiteral("\u0001"));
    row("a high surrogate alone", R"(\ud800)", {});
    row("a high surrogate before something else", R"(\ud800x)", {});
    row("a low surrogate alone", R"(\udc00)", {});
    row("a pair the wrong way round", R"(\udc00\ud800)", {});
    row("a raw line end", "a\nb", {});
    row("a raw tab", "\t", {});
    row("a raw NUL", QByteArray(1, '\0'), {});
    row("an unknown escape", R"(\q)", {});
    row("an escape of another writer", R"(\x41)", {});
    row("a backslash before a line end", "\\\n", {});
    row("a backslash before a mark", "\\\xEF\xBB\xBF", {});
    row("not UTF-8", "\xff", {});
}

void JsonTest::stringsAreReadAsJsonHasThem() {
    QFETCH(const QByteArray, written);
    QFETCH(const QString, expected);
    JsonReader reader("{\"key\":\"" + written + "\"}");
    const QString text = reader.string(QStringLiteral("key"));
    QCOMPARE(reader.failed(), expected.isNull());
    if (!reader.failed())
        QCOMPARE(text, expected);
}

void JsonTest::everyStringOfTheBodyIsLookedAt() {
    QVERIFY(!JsonReader("{\n\t\"key\" : \"\" ,\r\n \"more\" : [ \"\" ] }\n").failed());
    QVERIFY(JsonReader("{\"k\ney\":1}").failed());
    QVERIFY(JsonReader("{\"key\":1,\"more\":[\"\t\"]}").failed());
}

void JsonTest::whatQtWritesIsRead() {
    QString everything;
    for (char16_t unit = 0; unit < 0xD800; ++unit)
        everything += QChar(unit);
    everything += QStringLiteral("\U0001F600\uFEFF\uFFFD");
    const QByteArray body =
        QJsonDocument(QJsonObject{{QStringLiteral("text"), everything}}).toJson(QJsonDocument::Compact);
    JsonReader reader(body);
    QCOMPARE(reader.string(QStringLiteral("text")), everything);
    QVERIFY(!reader.failed());
}

QTEST_GUILESS_MAIN(JsonTest)
#include "tst_json.moc"
