#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QFile>
#include <QMap>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

namespace {

QString escaped(QString text) {
    return text.replace(QLatin1Char('|'), QStringLiteral("\\|"));
}

/// The states of a page in which a text is there, or those in which it is not, whichever are fewer.
QString when(const QStringList& all, const QStringList& some) {
    if (some.size() == all.size())
        return QStringLiteral("always");
    if (some.size() <= all.size() / 2)
        return some.join(QStringLiteral(", "));
    QStringList others;
    for (const QString& each : all) {
        if (!some.contains(each))
            others.append(each);
    }
    return QStringLiteral("always but: ") + others.join(QStringLiteral(", "));
}

/// Which texts are on which page in which of its states.
struct Table {
    QMap<QString, QStringList> states;               ///< by page
    QMap<QString, QMap<QString, QStringList>> texts; ///< by page and text
    QStringList pages;                               ///< in the order of the scenes
    QMap<QString, QStringList> order;                ///< by page: its texts as they were first seen

    void add(const QString& page, const QString& state, const QStringList& shown) {
        if (!pages.contains(page))
            pages.append(page);
        states[page].append(state);
        for (const QString& text : shown) {
            QStringList& where = texts[page][text];
            if (!order[page].contains(text))
                order[page].append(text);
            if (!where.contains(state))
                where.append(state);
        }
    }

    QString markdown() const {
        QString result =
            QStringLiteral("# Every text on the screen\n\n"
                           "Made by `tst_texts`, which opens every page in every state and fails when this "
                           "file says anything "
                           "else;\n`VELLUMLINE_WRITE_DOCS=1 build/release/tests/app/tst_texts` writes it "
                           "anew. The account is "
                           "ada@example.org,\nthe shortcut ⌃⌥R, the web site www.example.org.\n");
        for (const QString& page : pages) {
            result += QStringLiteral("\n## %1\n\n| Text | When |\n|---|---|\n")
                          .arg(page.left(1).toUpper() + page.mid(1));
            for (const QString& text : order[page]) {
                result +=
                    QStringLiteral("| %1 | %2 |\n").arg(escaped(text), when(states[page], texts[page][text]));
            }
        }
        return result;
    }
};

} // namespace

class TextsTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theDocumentListsEveryTextOnTheScreen() {
        Table table;
        for (const Scene& scene : allScenes()) {
            const auto stage = scene.make();
            const QWidget* window = scene.open(*stage);
            table.add(scene.place, scene.state,
                      QStringList{QStringLiteral("window title: ") + window->windowTitle()} +
                          visibleTextStrings(window));
        }
        const auto stage = signedInStage(ModelOnFakes::accountBody("paid", 1, 30))();
        table.add(QStringLiteral("status item"), QStringLiteral("idle"), {stage->item.label});
        stage->fakes->rewrite();
        table.add(QStringLiteral("status item"), QStringLiteral("correcting"), {stage->item.label});

        QFile file(QStringLiteral(QT_TESTCASE_SOURCEDIR "/../../docs/texts.md"));
        if (qEnvironmentVariableIsSet("VELLUMLINE_WRITE_DOCS")) {
            QVERIFY(file.open(QIODevice::WriteOnly));
            QVERIFY(file.write(table.markdown().toUtf8()) > 0);
            return;
        }
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList expected = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        const QStringList made = table.markdown().split(QLatin1Char('\n'));
        for (qsizetype i = 0; i < std::max(expected.size(), made.size()); ++i)
            QCOMPARE(made.value(i), expected.value(i));
    }
};

QTEST_MAIN(TextsTest)
#include "tst_texts.moc"
