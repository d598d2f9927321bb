#include "VellumlineCore/SelectionStyle.h"

#include <QStringDecoder>
#include <QTest>

using namespace vellumline;

class SelectionStyleTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theDocumentIsExact();
    void halfPointsRoundAwayFromZero();
    void aFamilyIsEscapedAndLosesItsSemicolons();
    void withoutASizeThereIsNoDocument();
    void textIsEscaped_data();
    void textIsEscaped();

    void theSameSelectionMayDifferInItsForm();

    void theFontIsFoundInRtf_data();
    void theFontIsFoundInRtf();

    void fontNamesAreReadInTheirCodePage_data();
    void fontNamesAreReadInTheirCodePage();

    void ownDocumentsAreRead();

    void theFontIsFoundInHtml_data();
    void theFontIsFoundInHtml();

    void aCharacterCutShortIsNoHtml();

    void rtfComesBeforeHtml();

    void charactersAreWhatTheUserSees_data();
    void charactersAreWhatTheUserSees();
    void aLongTextIsCountedAsAShortOne();

    void trimmingKnowsEveryWhiteSpace();
};

namespace {

Font font(const char* family, double points, bool bold = false, bool italic = false) {
    return {QString::fromUtf8(family), QString::fromUtf8(family), points, bold, italic};
}

const QByteArray header = R"({\rtf1\ansi\ansicpg1252\deff0{\fonttbl{\f0\fnil\fcharset0 F;}}\f0)";

/// A readable form for comparisons: "Family 12 bold italic", or "none".
QString described(const std::optional<Font>& found) {
    if (!found)
        return QStringLiteral("none");
    return found->familyName + QLatin1Char(' ') + QString::number(found->pointSize) +
           (found->bold ? QStringLiteral(" bold") : QString()) +
           (found->italic ? QStringLiteral(" italic") : QString());
}

} // namespace

void SelectionStyleTest::theDocumentIsExact() {
    QCOMPARE(SelectionStyle::rtf(QStringLiteral("a{b}"), font("F", 12, true)), header + R"(\fs24\b a\{b\}})");
    QCOMPARE(SelectionStyle::rtf(QStringLiteral("x"), font("F", 12, true, true)), header + R"(\fs24\b\i x})");
    QCOMPARE(SelectionStyle::rtf(QStringLiteral("x"), font("F", 12, false, true)), header + R"(\fs24\i x})");
    QCOMPARE(SelectionStyle::rtf(QStringLiteral("x\r\ny"), font("F", 12)), header + R"(\fs24 x\line y})");
}

void SelectionStyleTest::halfPointsRoundAwayFromZero() {
    QVERIFY(SelectionStyle::rtf(QString(), font("F", 10.25)).contains(R"(\fs21 )"));
    QVERIFY(SelectionStyle::rtf(QString(), font("F", 10.24)).contains(R"(\fs20 )"));
    QVERIFY(SelectionStyle::rtf(QString(), font("F", 0.25)).contains(R"(\fs1 )"));
}

void SelectionStyleTest::aFamilyIsEscapedAndLosesItsSemicolons() {
    QVERIFY(SelectionStyle::rtf(QString(), font("A;{B}é", 12)).contains(R"(\fcharset0 A\{B\}\u233?;}})"));
    QCOMPARE(SelectionStyle::familyName({QString(), QStringLiteral("Name"), 1, false, false}),
             QStringLiteral("Name"));
}

void SelectionStyleTest::withoutASizeThereIsNoDocument() {
    QVERIFY(!SelectionStyle::usableRtf(QStringLiteral("x"), font("F", 0)));
    QVERIFY(!SelectionStyle::usableRtf(QStringLiteral("x"), font("F", -1)));
    QVERIFY(SelectionStyle::usableRtf(QStringLiteral("x"), font("F", 0.5)));
}

void SelectionStyleTest::textIsEscaped_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("escaped");
    const auto row = [](const char* name, const QString& text, const char* escaped) {
        QTest::newRow(name) << text << QByteArray(escaped);
    };
    row("empty", QString(), "");
    row("specials", QStringLiteral("\\{}"), R"(\\\{\})");
    row("a tab", QStringLiteral("a\tb"), R"(a\tab b)");
    row("line ends of every kind", QStringLiteral("a\nb\rc\r\nd"), R"(a\line b\line c\line d)");
    row("other controls are dropped", QStringLiteral("a\u0001\u000B\u001Fb"), "ab");
    row("DEL stays", QStringLiteral("\u007F"), "\x7f");
    row("U+0080", QStringLiteral("\u0080"), R"(\u128?)");
    row("é", QStringLiteral("é"), R"(\u233?)");
    row("U+7FFF", QString(QChar(0x7FFF)), R"(\u32767?)");
    row("U+8000 is negative", QString(QChar(0x8000)), R"(\u-32768?)");
    row("U+FFFD", QString(QChar(0xFFFD)), R"(\u-3?)");
    row("an emoji is its surrogates", QStringLiteral("\U0001F600"), R"(\u-10179?\u-8704?)");
}

void SelectionStyleTest::textIsEscaped() {
    QFETCH(const QString, text);
    QFETCH(const QByteArray, escaped);
    QCOMPARE(SelectionStyle::rtfEscaped(text), escaped);
}

void SelectionStyleTest::theSameSelectionMayDifferInItsForm() {
    const auto same = [](const char* a, const char* b) {
        return SelectionStyle::sameSelection(QString::fromUtf8(a), QString::fromUtf8(b));
    };
    QVERIFY(same("a\r\nb\n", "a\nb"));
    QVERIFY(same("a\rb", "a\nb"));
    QVERIFY(same("  a ", "a"));
    QVERIFY(same("\xc3\xa9", "e\xcc\x81"));
    QVERIFY(!same("a", "b"));
    QVERIFY(!same("a b", "a  b"));
    QVERIFY(!same("A", "a"));
}

void SelectionStyleTest::theFontIsFoundInRtf_data() {
    QTest::addColumn<QByteArray>("rtf");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QByteArray& rtf, const char* expected) {
        QTest::newRow(name) << rtf << QString::fromUtf8(expected);
    };
    const QByteArray table =
        R"({\rtf1\ansi\deff1{\fonttbl{\f0\froman Times New Roman;}{\f1\fswiss\fcharset0 Liberation Sans{\*\falt Arial};}})";
    row("the default font and size", table + "text}", "Liberation Sans 12");
    row("a chosen font", table + R"(\f0\fs28\b\i text})", "Times New Roman 14 bold italic");
    row("switched off again", table + R"(\f0\b\i\b0\i0\fs20 text})", "Times New Roman 10");
    row("a closed group does not count", table + R"({\f0\fs40\b  }text})", "Liberation Sans 12");
    row("plain resets", table + R"(\f0\fs40\b\plain text})", "Liberation Sans 12");
    row("white space is passed over", table + R"(\f0\fs20 \par \tab \~ {\f1\fs22 x}y})",
        "Liberation Sans 11");
    row("hidden text is passed over", table + R"({\v\f0 hidden}\fs30 x})", "Liberation Sans 15");
    row("style sheet, colours and info are not text",
        table +
            R"({\colortbl;\red0;}{\stylesheet{\s0\f0 Normal;}}{\info{\title T}}{\*\generator G;}\f0\fs18 x})",
        "Times New Roman 9");
    row("an attachment is passed over", table + R"(\f0\u-4?{\f1\fs20 x}})", "Liberation Sans 10");
    row("a character beyond ASCII", table + R"(\f0\fs24\u233?})", "Times New Roman 12");
    row("a surrogate", table + R"(\f0\u-10179?\u-8704?})", "Times New Roman 12");
    row("an escaped byte", table + R"(\f0\'e9})", "Times New Roman 12");
    row("white space alone", table + "  \\par  }", "none");
    row("no font table", R"({\rtf1 text})", "none");
    row("not RTF", "text", "none");
    row("empty", "", "none");
    row("cut short", R"({\rtf1{\fonttbl{\f0 A;)", "none");
    row("raw bytes are skipped", table + "\\bin5 }}}}}\\f0 x}", "Times New Roman 12");
    row("an ellipsis of Windows-1252", table + R"(\f0\'85{\f1 x}})", "Times New Roman 12");
    row("a raw ellipsis of Windows-1252", table + "\\f0 \x85{\\f1 x}}", "Times New Roman 12");
    row("a no-break space of Windows-1252", table + R"(\f0\'a0{\f1 x}})", "Liberation Sans 12");
    row("the document's code page", R"({\rtf1\ansi\ansicpg65001{\fonttbl{\f0 D\'c3\'a9;}}x})", "Dé 12");
    row("one table group for all", R"({\rtf1\deff0{\fonttbl\f0\fswiss One;\f1 Two;}\f1 x})", "Two 12");
    row("deep nesting", R"({\rtf1{\fonttbl{\f0 A;}})" + QByteArray(100000, '{') + "x", "A 12");
}

void SelectionStyleTest::theFontIsFoundInRtf() {
    QFETCH(const QByteArray, rtf);
    QFETCH(const QString, expected);
    QCOMPARE(described(SelectionStyle::fontInRtf(rtf)), expected);
}

void SelectionStyleTest::fontNamesAreReadInTheirCodePage_data() {
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QByteArray& entry, const char* expected) {
        QTest::newRow(name) << entry << QString::fromUtf8(expected);
    };
    // Where Qt was built without ICU it has no decoder for these, and the name cannot be read.
    const bool knowsAll = QStringDecoder("windows-936").isValid();
    const auto legacyRow = [&](const char* name, const QByteArray& entry, const char* expected) {
        row(name, entry, knowsAll ? expected : "none");
    };
    row("a name that is not ASCII", R"({\f0 D\'e9j\'e0;})", "Déjà 12");
    row("a raw byte", "{\\f0 D\xe9j\xe0;}", "Déjà 12");
    row("Windows-1252 is not Latin-1", R"({\f0\fcharset0 \'8cuvre \'80;})", "Œuvre € 12");
    row("a byte that is no character of Windows-1252", R"({\f0 A\'81;})", "none");
    row("a code unit and its replacement", R"({\f0\fcharset0 D\u233?j\u224\'e0;})", "Déjà 12");
    row("a negative code unit", R"({\f0 \u-24879?\u20307?;})", "黑体 12");
    row("a surrogate pair", R"({\f0 F\u-10179?\u-8704?;})", "F\xf0\x9f\x98\x80 12");
    row("half a surrogate pair", R"({\f0 F\u-10179?;})", "none");
    row("no replacement", R"({\uc0\f0 D\u233 j\u224;})", "Déjà 12");
    row("a replacement of two bytes", R"({\uc2\f0\fcharset134 \u23435\'cb\'ce\u20307\'cc\'e5;})", "宋体 12");
    row("the replacement ends with its group", R"({\f0 D\u233{\*\falt x}j;})", "Dé 12");
    row("an alternative name is not the name", R"({\f0 A{\*\falt \u233?B\'ff};})", "A 12");
    row("a panose number between the charset and the name",
        R"({\f0\fcharset0{\*\panose 020f0502020204030204}D\'e9;})", "Dé 12");
    legacyRow("Cyrillic", R"({\f0\fcharset204 \'d8\'f0\'e8\'f4\'f2;})", "Шрифт 12");
    legacyRow("two bytes a character", R"({\f0\fcharset134 \'cb\'ce\'cc\'e5;})", "宋体 12");
    legacyRow("a second byte that is ASCII", R"({\f0\fcharset128 \'83A;})", "ア 12");
    legacyRow("a code page for the font", R"({\f0\fcharset0\cpg1251 \'d8;})", "Ш 12");
    legacyRow("a charset for one font only", R"({\f1\fcharset204 \'d8;}{\f0 \'d8\'e9;})", "Øé 12");
    row("half a character", R"({\f0\fcharset134 \'cb\'ce\'cc;})", "none");
    row("a byte that is no character of its page", R"({\f0\fcharset134 A\'ff;})", "none");
    row("a code page that nobody knows", R"({\f0\cpg42 A\'e9;})", "none");
    row("ASCII in a code page that nobody knows", R"({\f0\cpg42 A;})", "A 12");
    row("a name that cannot be read stays the font's", R"({\f0 A\'81;}{\f0 B;})", "none");
}

void SelectionStyleTest::fontNamesAreReadInTheirCodePage() {
    QFETCH(const QByteArray, entry);
    QFETCH(const QString, expected);
    QCOMPARE(described(SelectionStyle::fontInRtf("{\\rtf1\\ansi{\\fonttbl" + entry + "}x}")), expected);
}

void SelectionStyleTest::ownDocumentsAreRead() {
    for (const Font& each : {font("Liberation Serif", 12), font("A B", 10.5, true), font("C", 8, true, true),
                             font("Déjà 明朝 \xf0\x9f\x98\x80", 9)})
        QCOMPARE(SelectionStyle::fontInRtf(SelectionStyle::rtf(QStringLiteral("x"), each)),
                 std::optional(each));
}

void SelectionStyleTest::theFontIsFoundInHtml_data() {
    QTest::addColumn<QByteArray>("html");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QByteArray& html, const char* expected) {
        QTest::newRow(name) << html << QString::fromUtf8(expected);
    };
    row("an inline style", R"(<p style="font-family:'Noto Sans',sans-serif;font-size:14px">x</p>)",
        "Noto Sans 10.5");
    row("points win", R"(<p style="font-family:A; font-size: 11.5pt">x</p>)", "A 11.5");
    row("a font element, as office programs write it",
        R"(<font face="Liberation Serif, serif"><font size="4" style="font-size: 14pt"><b><i>x</i></b></font></font>)",
        "Liberation Serif 14 bold italic");
    row("weight and slant by style",
        R"(<span style="font-family:A;font-weight:700;font-style:oblique">x</span>)", "A 12 bold italic");
    row("weight taken back", R"(<b style="font-family:A;font-weight:normal">x</b>)", "A 12");
    row("the shorthand", R"(<p style="font-family:B; font: italic bold 16px/1.5 'C D', serif">x</p>)",
        "C D 12 bold italic");
    row("a style sheet",
        R"(<style>p, li {font-family: A; font-size: 20px} p.x {font-weight:bold}</style><p class="x">t)",
        "A 15 bold");
    row("the first text decides",
        R"(<p style="font-family:A"> &nbsp; <br></p><p style="font-family:B">x</p>)", "B 12");
    row("a comment and a head are passed over",
        R"(<html><head><title>t</title><!-- <p>no</p> --></head><body style='font-family:"A"'>x)", "A 12");
    row("a family without quotes", R"(<span style=font-family:Arial>x</span>)", "Arial 12");
    row("an escaped quote", R"(<span style="font-family:&quot;A B&quot;">x</span>)", "A B 12");
    row("no declaration", R"(<p style="font-size:11pt">x</p>)", "none");
    row("declared elsewhere only", R"(x<p style="font-family:A">y</p>)", "none");
    row("white space alone", R"(<p style="font-family:A"> </p>)", "none");
    row("comments in a style sheet",
        R"(<style>/* Style Definitions */ p.MsoNormal {font-family:Calibri}</style><p class=MsoNormal>x)",
        "Calibri 12");
    row("a style sheet inside a comment of HTML, as office programs write it",
        "<style>\n<!--\n /* Font Definitions */\n @font-face\n\t{font-family:Cambria;}\n /* Style */\n"
        " p.MsoNormal, li.MsoNormal\n\t{margin:0cm;\n\tfont-size:11.0pt;\n\tfont-family:\"Calibri\",serif;}\n"
        "-->\n</style><p class=MsoNormal>x",
        "Calibri 11");
    row("a rule behind the end of HTML's comment",
        "<style><!-- i {font-family:A} --> p {font-family:B}</style><p>x", "B 12");
    row("a comment before a declaration", R"(<style>p {/* {c} */font-family/**/:/*;*/A}</style><p>x)",
        "A 12");
    row("a comment in a style attribute", R"(<p style="/* a:b; */font-family:A/* B */">x)", "A 12");
    row("a comment that never ends", R"(<p style="font-family:A;/* font-family:B">x)", "A 12");
    row("no comment inside a string", R"(<p style="font-family:'A/*B*/C'">x)", "A/*B*/C 12");
    row("an apostrophe inside a comment", R"(<p style="/* don't */font-family:A/* B */">x)", "A 12");
    row("an escaped quote inside a string", R"(<p style="font-family:'A\'/*B'">x)", R"(A\'/*B 12)");
    row("a string ends with its line", "<style>i {content:'}\n/* c */ p {font-family:A}</style><p>x", "A 12");
    row("a style element broken into lines", "<style\ntype=\"text/css\">p {font-family:A}</style><p>x",
        "A 12");
    row("a script and a title broken into lines",
        "<title\n>t</title><script\tsrc=\"s\">f()</script><p style=\"font-family:A\">x", "A 12");
    for (const char* space : {"&#8195;", "&#x2003;", "&#X2003;", "&#8239;", "&#160;", "&#xA0;", "&#65532;",
                              "&#1;", "&nbsp;", "&hairsp;", "&ensp;", "&emsp;", "&thinsp;", "&emsp13;",
                              "&numsp;", "&MediumSpace;", "&NonBreakingSpace;"})
        row(space, QByteArray(R"(<p style="font-family:A">)") + space + R"(<p style="font-family:B">x)",
            "B 12");
    for (const char* visible : {"&#8203;", "&#133;", "&#x85;", "&#0;", "&#x110000;", "&#99999999999;", "&#;",
                                "&#x;", "&amp;", "&eacute;", "&unknown;", "&nbsp", "&;"})
        row(visible, QByteArray(R"(<p style="font-family:A">)") + visible + R"(<p style="font-family:B">x)",
            "A 12");
    row("not UTF-8", "<p style=\"font-family:A\">\xff</p>", "none");
    row("an absurd size keeps the parsed one", R"(<p style="font-family:A;font-size:99999pt">x</p>)",
        "A 99999");
    row("a tag that never ends", R"(<p style="font-family:A)", "none");
    row("deep nesting", R"(<p style="font-family:A">)" + QByteArray("<b>").repeated(50000) + "x",
        "A 12 bold");
}

void SelectionStyleTest::theFontIsFoundInHtml() {
    QFETCH(const QByteArray, html);
    QFETCH(const QString, expected);
    QCOMPARE(described(SelectionStyle::fontInHtml(html)), expected);
}

void SelectionStyleTest::aCharacterCutShortIsNoHtml() {
    QVERIFY(!SelectionStyle::declaresFont("face=x\xC3"));
    QVERIFY(SelectionStyle::declaresFont("face=x\xC3\xA9"));
}

void SelectionStyleTest::rtfComesBeforeHtml() {
    const QByteArray rtf = R"({\rtf1{\fonttbl{\f0 R;}}x})";
    const QByteArray html = R"(<p style="font-family:H">x</p>)";
    QCOMPARE(described(SelectionStyle::font(rtf, html)), QStringLiteral("R 12"));
    QCOMPARE(described(SelectionStyle::font(QByteArray("broken"), html)), QStringLiteral("H 12"));
    QCOMPARE(described(SelectionStyle::font(QByteArray(R"({\rtf1{\fonttbl{\f0 \'81;}}x})"), html)),
             QStringLiteral("H 12"));
    QCOMPARE(described(SelectionStyle::font(std::nullopt, html)), QStringLiteral("H 12"));
    QCOMPARE(described(SelectionStyle::font(std::nullopt, std::nullopt)), QStringLiteral("none"));
}

void SelectionStyleTest::charactersAreWhatTheUserSees_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("characters");
    const QString family = QStringLiteral("\U0001F469\u200D\U0001F469\u200D\U0001F467");
    const QString namaste =
        QStringLiteral("\u0928\u092E\u0938\u094D\u0924\u0947"); // three since Unicode 15.1
    QTest::newRow("nothing") << QString() << 0;
    QTest::newRow("letters") << QStringLiteral("abc") << 3;
    QTest::newRow("a letter and its accent") << QStringLiteral("e\u0301") << 1;
    QTest::newRow("a family") << family << 1;
    QTest::newRow("CR LF") << QStringLiteral("\r\n") << 1;
    QTest::newRow("flags") << QStringLiteral("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7") << 2;
    QTest::newRow("Hindi") << namaste << 4;
    QTest::newRow("Hindi and a family") << namaste + u' ' + family << 6;
    QTest::newRow("a family and Hindi") << family + u' ' + namaste << 6;
    QTest::newRow("CR LF between Hindi letters") << QStringLiteral("\u0915\r\n\u0915") << 3;
    QTest::newRow("an emoji after Khmer") << QStringLiteral("\u1780 \U0001F600") << 3;
    QTest::newRow("Tamil") << QStringLiteral("\u0BB5\u0BA3\u0B95\u0BCD\u0B95\u0BAE\u0BCD") << 5;
    QTest::newRow("Thai with SARA AM") << QStringLiteral("\u0E01\u0E33\u0E19") << 2;
    QTest::newRow("Hangul in its parts") << QStringLiteral("\u1112\u1161\u11AB") << 1;
}

void SelectionStyleTest::charactersAreWhatTheUserSees() {
    QFETCH(const QString, text);
    QFETCH(const int, characters);
    QVERIFY(!hasMoreCharactersThan(text, characters));
    QVERIFY(characters == 0 || hasMoreCharactersThan(text, characters - 1));
}

void SelectionStyleTest::aLongTextIsCountedAsAShortOne() {
    const QString heap = u'e' + QString(1000000, QChar(u'\u0301')); // one character, a million marks
    QVERIFY(!hasMoreCharactersThan(heap, 1));
    QVERIFY(!hasMoreCharactersThan(heap + QStringLiteral("abc"), 4));
    QVERIFY(hasMoreCharactersThan(heap + QStringLiteral("abc"), 3));
    QVERIFY(hasMoreCharactersThan(QString(10000000, u'a'), 4000));
}

void SelectionStyleTest::trimmingKnowsEveryWhiteSpace() {
    QCOMPARE(trimmedWhitespace(QStringLiteral("\u00A0\u2003\u2028\u0085 x y\t\u3000")),
             QStringLiteral("x y"));
    QCOMPARE(trimmedWhitespace(QStringLiteral(" \n")), QString());
}

QTEST_GUILESS_MAIN(SelectionStyleTest)
#include "tst_selectionstyle.moc"
