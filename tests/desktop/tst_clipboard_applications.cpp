// The clipboard of real programs: what they copy is kept and given back, what we write is what they paste.

#include "Vellumline/ClipboardSnapshot.h"
#include "Vellumline/Platform/X11/X11Pasteboard.h"
#include "tests/contract/ClipboardPeers.h"
#include "tests/desktop/DesktopProgram.h"

#include <QCoroTask>
#include <QFile>
#include <QHash>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

using namespace vellumline;
using namespace vellumline::test;
using Completeness = PasteboardContents::Completeness;

namespace {

const QString original = QStringLiteral("i has went to the shop — yesterday");
const QString corrected = QStringLiteral("I went to the shop — “yesterday”, Größe");

/// A flat OpenDocument text with one paragraph, in a font that is neither the default's nor the correction's
/// by chance.
QByteArray styledDocument() {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<office:document xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0"
 xmlns:style="urn:oasis:names:tc:opendocument:xmlns:style:1.0" xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0"
 xmlns:fo="urn:oasis:names:tc:opendocument:xmlns:xsl-fo-compatible:1.0"
 xmlns:svg="urn:oasis:names:tc:opendocument:xmlns:svg-compatible:1.0"
 office:version="1.3" office:mimetype="application/vnd.oasis.opendocument.text">
<office:font-face-decls>
<style:font-face style:name="DejaVu Sans Mono" svg:font-family="'DejaVu Sans Mono'"/>
</office:font-face-decls>
<office:automatic-styles><style:style style:name="T1" style:family="text">
<style:text-properties style:font-name="DejaVu Sans Mono" fo:font-size="17pt" fo:font-weight="bold" fo:font-style="italic"/>
</style:style></office:automatic-styles>
<office:body><office:text><text:p><text:span text:style-name="T1">)" +
           original.toUtf8() + R"(</text:span></text:p></office:text></office:body></office:document>
)";
}

struct SavedStyle {
    QString family;
    QString size;
    QString weight;
    QString slant;
};

/// The paragraph's text, and the properties of the style in which its words are set; a span inherits from the
/// paragraph's style.
struct SavedDocument {
    QString text;
    SavedStyle style;
};

SavedDocument savedDocument(const QByteArray& xml) {
    QHash<QString, SavedStyle> styles;
    QHash<QString, QString> families;
    SavedDocument document;
    QString current;
    QStringList applied;
    bool inBody = false;
    QXmlStreamReader reader(xml);
    const auto overlay = [](SavedStyle& onto, const SavedStyle& style) {
        for (auto field : {&SavedStyle::family, &SavedStyle::size, &SavedStyle::weight, &SavedStyle::slant}) {
            if (!(style.*field).isEmpty())
                onto.*field = style.*field;
        }
    };
    while (!reader.atEnd()) {
        reader.readNext();
        const auto name = reader.qualifiedName().toString();
        const auto attribute = [&reader](const char* attributeName) {
            return reader.attributes().value(QLatin1String(attributeName)).toString();
        };
        if (reader.isStartElement()) {
            if (name == QStringLiteral("style:font-face"))
                families.insert(attribute("style:name"),
                                attribute("svg:font-family").remove(QLatin1Char('\'')));
            else if (name == QStringLiteral("style:style"))
                current = attribute("style:name");
            else if (name == QStringLiteral("style:text-properties") && !current.isEmpty())
                styles.insert(current,
                              {families.value(attribute("style:font-name")), attribute("fo:font-size"),
                               attribute("fo:font-weight"), attribute("fo:font-style")});
            else if (name == QStringLiteral("office:text"))
                inBody = true;
            else if (name == QStringLiteral("text:p") || name == QStringLiteral("text:span"))
                applied.append(attribute("text:style-name"));
        } else if (reader.isEndElement()) {
            if (name == QStringLiteral("style:style"))
                current.clear();
            else if (name == QStringLiteral("office:text"))
                inBody = false;
            else if (name == QStringLiteral("text:p") || name == QStringLiteral("text:span"))
                applied.removeLast();
        } else if (reader.isCharacters() && inBody && !applied.isEmpty()) {
            document.text += reader.text();
            if (!reader.isWhitespace()) {
                document.style = {};
                for (const auto& style : std::as_const(applied))
                    overlay(document.style, styles.value(style));
            }
        }
    }
    return document;
}

} // namespace

class ClipboardApplications : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void init() {
        QVERIFY(folder_.isValid());
        board_ = X11Pasteboard::open();
        QVERIFY(board_);
        QCoro::waitFor(board_->clearContents());
    }
    void cleanup() {
        program_.reset();
        board_.reset();
    }

    void whatAProgramCopiedIsGivenBackAndWhatWeWroteIsPasted_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("types");
        QTest::newRow("mousepad (GTK 3)")
            << QStringLiteral("mousepad") << QStringList{QStringLiteral("UTF8_STRING")};
        QTest::newRow("kate (Qt 5)") << QStringLiteral("kate") << QStringList{QStringLiteral("text/plain")};
        QTest::newRow("Chromium, a text area")
            << QStringLiteral("chromium") << QStringList{QStringLiteral("UTF8_STRING")};
        QTest::newRow("Firefox, a text area")
            << QStringLiteral("firefox-esr") << QStringList{QStringLiteral("UTF8_STRING")};
    }
    void whatAProgramCopiedIsGivenBackAndWhatWeWroteIsPasted() {
        QFETCH(QString, name);
        QFETCH(QStringList, types);
        if (!isInstalled(name))
            QSKIP(qPrintable(name + QStringLiteral(" is not installed")));
        start(name);
        QVERIFY2(program_, "no window came");
        QVERIFY2(copyAll(), "nothing was copied");

        QCOMPARE(QCoro::waitFor(board_->string()).value_or(QString()).trimmed(), original);
        const auto before = QCoro::waitFor(ClipboardSnapshot::capture(*board_));
        QCOMPARE(before.completeness(), Completeness::complete);
        QCOMPARE(before.items().size(), 1);
        for (const auto& type : types)
            QVERIFY2(before.items().first().hasType(type), qPrintable(type));

        QVERIFY(QCoro::waitFor(Clipboard::writePrivately(corrected, std::nullopt, *board_)));
        pressKeys({QStringLiteral("ctrl+v")});
        // Returns when the program has read the correction.
        QElapsedTimer timer;
        timer.start();
        QCoro::waitFor(ClipboardSnapshot::restore(before, *board_));
        QVERIFY2(timer.elapsed() < 2500, "its read was not noticed");

        Requestor reader;
        for (const auto& each : before.items().first().representations) {
            const auto pasted = reader.request(each.type.toUtf8());
            QVERIFY2(pasted, qPrintable(each.type));
            QVERIFY2(pasted->data == each.data, qPrintable(each.type));
            QCOMPARE(pasted->type, (each.encoding.isEmpty() ? each.type : each.encoding).toUtf8());
            QCOMPARE(pasted->format, each.format);
        }
        QVERIFY2(copyAll(), "nothing was copied");
        QCOMPARE(QCoro::waitFor(board_->string()).value_or(QString()).trimmed(), corrected);
    }

    void theFontOfAWebPagesSelectionIsFound_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("declared");
        QTest::newRow("Chromium copies the style with the text") << QStringLiteral("chromium") << true;
        // The correction then takes the style of the place where it is pasted, which is the right one.
        QTest::newRow("Firefox leaves out a style that the element inherits")
            << QStringLiteral("firefox-esr") << false;
    }
    void theFontOfAWebPagesSelectionIsFound() {
        QFETCH(QString, name);
        QFETCH(bool, declared);
        if (!isInstalled(name))
            QSKIP(qPrintable(name + QStringLiteral(" is not installed")));
        start(name, "<div id=e contenteditable style=\"font: italic bold 20px 'DejaVu Serif', serif\">" +
                        original.toUtf8() + "</div><script>document.getElementById('e').focus()</script>");
        QVERIFY2(program_, "no window came");
        QVERIFY2(copyAll(), "nothing was copied");
        QCOMPARE(QCoro::waitFor(board_->string()).value_or(QString()).trimmed(), original);
        const auto html = QCoro::waitFor(board_->data(PasteboardType::html));
        QVERIFY(html);
        const auto font = SelectionStyle::font(QCoro::waitFor(board_->data(PasteboardType::rtf)), html);
        QCOMPARE(font.has_value(), declared);
        if (!declared)
            return;
        QCOMPARE(SelectionStyle::familyName(*font), QStringLiteral("DejaVu Serif"));
        QCOMPARE(font->pointSize, 15.0);
        QVERIFY(font->bold && font->italic);
    }

    void writerKeepsFamilySizeBoldAndItalicOfACorrection() {
        if (!isInstalled(QStringLiteral("soffice")))
            QSKIP("LibreOffice is not installed");
        const auto path = folder_.filePath(QStringLiteral("styled.fodt"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(styledDocument());
        file.close();
        qputenv("SAL_USE_VCLPLUG", "gtk3");
        start(QStringLiteral("soffice"));
        QVERIFY2(program_, "no window came");
        QVERIFY2(copyAll(), "nothing was copied");

        QCOMPARE(QCoro::waitFor(board_->string()).value_or(QString()).trimmed(), original);
        const auto rtf = QCoro::waitFor(board_->data(PasteboardType::rtf));
        const auto html = QCoro::waitFor(board_->data(PasteboardType::html));
        QVERIFY(rtf && html);
        const auto font = SelectionStyle::font(rtf, html);
        QVERIFY(font);
        QCOMPARE(SelectionStyle::familyName(*font), QStringLiteral("DejaVu Sans Mono"));
        QCOMPARE(font->pointSize, 17.0);
        QVERIFY(font->bold && font->italic);
        // Each of its two forms alone says the same.
        QCOMPARE(SelectionStyle::font(std::nullopt, html), font);
        QCOMPARE(SelectionStyle::font(rtf, std::nullopt), font);

        const auto before = QCoro::waitFor(ClipboardSnapshot::capture(*board_));
        QCOMPARE(before.completeness(), Completeness::complete);
        for (const auto& each : before.items().first().representations)
            QVERIFY2(!each.type.contains(QStringLiteral("internal-id")), qPrintable(each.type));
        QVERIFY(QCoro::waitFor(Clipboard::writePrivately(corrected, font, *board_)));
        pressKeys({QStringLiteral("ctrl+v")});
        QCoro::waitFor(ClipboardSnapshot::restore(before, *board_));
        QTest::qWait(300);
        pressKeys({QStringLiteral("ctrl+s")});

        SavedDocument saved;
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                QFile written(path);
                if (!written.open(QIODevice::ReadOnly))
                    return false;
                saved = savedDocument(written.readAll());
                return saved.text.trimmed() == corrected;
            }(),
            10000);
        QCOMPARE(saved.style.family, QStringLiteral("DejaVu Sans Mono"));
        QCOMPARE(saved.style.size, QStringLiteral("17pt"));
        QCOMPARE(saved.style.weight, QStringLiteral("bold"));
        QCOMPARE(saved.style.slant, QStringLiteral("italic"));

        // What Writer had copied is pasted by Writer again after our restore, and not its own last copy.
        pressKeys({QStringLiteral("ctrl+a"), QStringLiteral("ctrl+v")});
        QTest::qWait(500);
        QVERIFY2(copyAll(), "nothing was copied");
        QCOMPARE(QCoro::waitFor(board_->string()).value_or(QString()).trimmed(), original);
    }

  private:
    void start(const QString& name, QByteArray body = {}) {
        const auto text = folder_.filePath(QStringLiteral("practice.txt"));
        const auto page = folder_.filePath(QStringLiteral("practice.html"));
        QFile textFile(text);
        QFile pageFile(page);
        if (!textFile.open(QIODevice::WriteOnly) || !pageFile.open(QIODevice::WriteOnly))
            return;
        textFile.write(original.toUtf8());
        if (body.isEmpty())
            body = "<textarea autofocus rows=9 cols=50>" + original.toUtf8() + "</textarea>";
        pageFile.write("<!doctype html><meta charset=utf-8><title>practice</title>" + body);
        textFile.close();
        pageFile.close();
        const auto profile = folder_.filePath(name + QStringLiteral("-profile"));
        QDir().mkpath(profile);
        const auto pageURL = QStringLiteral("file://") + page;
        QHash<QString, QStringList> arguments;
        arguments[QStringLiteral("mousepad")] = {QStringLiteral("--disable-server"), text};
        arguments[QStringLiteral("kate")] = {QStringLiteral("-n"), QStringLiteral("-b"), text};
        arguments[QStringLiteral("chromium")] = {QStringLiteral("--no-sandbox"),
                                                 QStringLiteral("--no-first-run"),
                                                 QStringLiteral("--no-default-browser-check"),
                                                 QStringLiteral("--disable-gpu"),
                                                 QStringLiteral("--password-store=basic"),
                                                 QStringLiteral("--disable-sync"),
                                                 QStringLiteral("--disable-background-networking"),
                                                 QStringLiteral("--user-data-dir=") + profile,
                                                 pageURL};
        arguments[QStringLiteral("firefox-esr")] = {QStringLiteral("--profile"), profile,
                                                    QStringLiteral("--no-remote"), pageURL};
        arguments[QStringLiteral("soffice")] = {QStringLiteral("-env:UserInstallation=file://") + profile,
                                                QStringLiteral("--norestore"),
                                                QStringLiteral("--nologo"),
                                                QStringLiteral("--nofirststartwizard"),
                                                QStringLiteral("--writer"),
                                                folder_.filePath(QStringLiteral("styled.fodt"))};
        const auto title =
            name == QStringLiteral("soffice") ? QStringLiteral("styled") : QStringLiteral("practice");
        program_ = std::make_unique<DesktopProgram>(name, arguments.value(name));
        if (!program_->waitForWindow(title))
            program_.reset();
    }

    /// Selects everything and copies it; a program that is still starting is asked again.
    bool copyAll() {
        for (int i = 0; i < 40; ++i) {
            const auto count = board_->changeCount();
            pressKeys({QStringLiteral("ctrl+a"), QStringLiteral("ctrl+c")});
            for (int wait = 0; wait < 15; ++wait) {
                QTest::qWait(20);
                if (board_->changeCount() == count)
                    continue;
                QTest::qWait(100); // several steps
                if (QCoro::waitFor(board_->string()))
                    return true;
            }
        }
        return false;
    }

    QTemporaryDir folder_;
    std::unique_ptr<X11Pasteboard> board_;
    std::unique_ptr<DesktopProgram> program_;
};

QTEST_GUILESS_MAIN(ClipboardApplications)
#include "tst_clipboard_applications.moc"
