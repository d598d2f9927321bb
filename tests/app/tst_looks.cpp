#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QAccessible>
#include <QLayout>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

namespace {

/// The relative luminance of a colour (WCAG 2.1).
double luminance(const QColor& color) {
    const auto linear = [](double channel) {
        return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const double lighter = std::max(luminance(a), luminance(b));
    const double darker = std::min(luminance(a), luminance(b));
    return (lighter + 0.05) / (darker + 0.05);
}

} // namespace

/// Every state of every page, with large text, mirrored, and in each set of colours.
class LooksTest : public QObject {
    Q_OBJECT

  private:
    QFont usual_;

  private Q_SLOTS:
    void initTestCase() { usual_ = QApplication::font(); }
    void cleanup() {
        QApplication::setFont(usual_);
        QApplication::setLayoutDirection(Qt::LeftToRight);
    }

    void nothingIsCut_data() {
        QTest::addColumn<double>("text");
        QTest::addColumn<Qt::LayoutDirection>("direction");
        for (const double text : {1.0, 1.5, 2.0}) {
            QTest::newRow(qPrintable(QStringLiteral("text of %1 %").arg(text * 100)))
                << text << Qt::LeftToRight;
            QTest::newRow(qPrintable(QStringLiteral("text of %1 %, mirrored").arg(text * 100)))
                << text << Qt::RightToLeft;
        }
    }

    void nothingIsCut() {
        QFETCH(const double, text);
        QFETCH(const Qt::LayoutDirection, direction);
        QFont font = usual_;
        font.setPointSizeF(font.pointSizeF() * text);
        QApplication::setFont(font);
        QApplication::setLayoutDirection(direction);
        for (const Scene& scene : allScenes()) {
            const auto stage = scene.make();
            const QWidget* window = scene.open(*stage);
            const QRect inside = window->rect();
            const auto texts = visibleTexts(window);
            for (const QWidget* each : texts) {
                const QString where =
                    QStringLiteral("%1, %2: \"%3\"").arg(scene.place, scene.state, textOf(each));
                const QRect place(each->mapTo(window, QPoint()), each->size());
                QVERIFY2(inside.contains(place), qPrintable(where));
                if (const auto* label = qobject_cast<const QLabel*>(each)) {
                    QCOMPARE(label->text(), textOf(each)); // not elided
                    QVERIFY2(label->height() >= label->heightForWidth(label->width()), qPrintable(where));
                    if (!label->wordWrap())
                        QVERIFY2(label->width() >= label->sizeHint().width(), qPrintable(where));
                } else {
                    QVERIFY2(each->width() >= each->sizeHint().width(), qPrintable(where));
                    QVERIFY2(each->height() >= each->sizeHint().height(), qPrintable(where));
                }
                for (const QWidget* other : texts) {
                    const QRect otherPlace(other->mapTo(window, QPoint()), other->size());
                    QVERIFY2(other == each || !place.intersects(otherPlace), qPrintable(where));
                }
            }
        }
    }

    void everyTextIsReadableInEveryColourScheme_data() {
        QTest::addColumn<QPalette>("palette");
        QTest::addColumn<double>("least");
        using Style::ColorScheme;
        using Style::Contrast;
        // WCAG 2.1: 1.4.3 for text, 1.4.6 for strong contrast.
        QTest::newRow("light") << Style::palette(ColorScheme::light, Contrast::normal) << 4.5;
        QTest::newRow("dark") << Style::palette(ColorScheme::dark, Contrast::normal) << 4.5;
        QTest::newRow("light, high contrast") << Style::palette(ColorScheme::light, Contrast::high) << 6.0;
        QTest::newRow("dark, high contrast") << Style::palette(ColorScheme::dark, Contrast::high) << 6.0;
    }

    void everyTextIsReadableInEveryColourScheme() {
        QFETCH(const QPalette, palette);
        QFETCH(const double, least);
        const QColor window = palette.color(QPalette::Window);
        QVERIFY(contrast(palette.color(QPalette::WindowText), window) >= 7);
        QVERIFY(contrast(Style::color(palette, Style::Tone::secondary), window) >= least);
        QVERIFY(contrast(palette.color(QPalette::HighlightedText), palette.color(QPalette::Highlight)) >=
                4.5);
        QVERIFY(contrast(palette.color(QPalette::Link), window) >= 4.5);
        // Graphics that carry meaning: 1.4.11.
        for (const auto tone : {Style::Tone::good, Style::Tone::warning})
            QVERIFY(contrast(Style::color(palette, tone), window) >= 3);
        QVERIFY(contrast(palette.color(QPalette::Highlight), window) >= 3);
    }

    void aChangeOfColoursReachesWhatIsOpen() {
        const auto stage = signedOutStage();
        QWidget* window = stage->openMenu();
        const QPalette before = QApplication::palette();
        const auto* label = qobject_cast<Style::Label*>(showing(window, QStringLiteral("Not signed in.")));
        for (const auto scheme : {Style::ColorScheme::dark, Style::ColorScheme::light}) {
            const QPalette palette = Style::palette(scheme, Style::Contrast::normal);
            QApplication::setPalette(palette);
            QTest::qWait(1);
            QCOMPARE(label->palette().color(QPalette::WindowText),
                     Style::color(palette, Style::Tone::secondary));
            QCOMPARE(window->grab().toImage().pixelColor(10, 10), palette.color(QPalette::Window));
        }
        QApplication::setPalette(before);
    }

    void everyControlHasANameAndIsReachedByTheKeyboard() {
        for (const Scene& scene : allScenes()) {
            const auto stage = scene.make();
            QWidget* window = scene.open(*stage);
            QSet<const QWidget*> reached;
            for (int i = 0; i < 40; ++i) {
                QTest::keyClick(window->focusWidget() != nullptr ? window->focusWidget() : window,
                                Qt::Key_Tab);
                if (window->focusWidget() != nullptr)
                    reached.insert(window->focusWidget());
            }
            for (auto* each : window->findChildren<QAbstractButton*>()) {
                if (!each->isVisible())
                    continue;
                const QString where =
                    QStringLiteral("%1, %2: \"%3\"").arg(scene.place, scene.state, textOf(each));
                QAccessibleInterface* interface = QAccessible::queryAccessibleInterface(each);
                QVERIFY2(interface != nullptr && !interface->text(QAccessible::Name).isEmpty(),
                         qPrintable(where));
                QVERIFY2(reached.contains(each), qPrintable(where));
            }
        }
    }

    void theFocusIsSeen() {
        const auto stage = signedOutStage();
        QWidget* window = stage->openMenu();
        QVERIFY(QTest::qWaitForWindowActive(window));
        const QImage before = window->grab().toImage();
        QTest::keyClick(window, Qt::Key_Tab);
        QVERIFY(window->focusWidget() != window);
        QVERIFY(window->grab().toImage() != before);
    }
};

QTEST_MAIN(LooksTest)
#include "tst_looks.moc"
