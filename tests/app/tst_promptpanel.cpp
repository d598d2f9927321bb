#include "Vellumline/PromptPanel.h"

#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <algorithm>
#include <cstdlib>

using namespace vellumline;

namespace {

struct Shown {
    explicit Shown(int actionCount = 2) {
        QList<PromptAction> actions;
        for (int i = 0; i < actionCount; ++i)
            actions.append(
                {QStringLiteral("Action %1").arg(i), [this, i] { log.append(QString::number(i)); }});
        panel.show(QStringLiteral("Title"), QStringLiteral("Detail"), actions,
                   [this] { log.append(QStringLiteral("finish")); });
    }
    QList<QPushButton*> buttons() const {
        auto found = panel.window()->findChildren<QPushButton*>();
        std::ranges::sort(found, {}, [](const QPushButton* each) { return each->x(); });
        return found;
    }
    QStringList titles() const {
        QStringList result;
        for (const QPushButton* each : buttons())
            result.append(each->text());
        return result;
    }

    QStringList log;
    PromptPanel panel;
};

} // namespace

class PromptPanelTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theButtonsStandInOrderAfterNotNow() {
        const Shown f;
        const QStringList expected = {QStringLiteral("Not now"), QStringLiteral("Action 0"),
                                      QStringLiteral("Action 1")};
        QCOMPARE(f.titles(), expected);
        QCOMPARE(f.panel.window()->windowTitle(), QStringLiteral("Vellumline"));
        QVERIFY(f.panel.window()->testAttribute(Qt::WA_ShowWithoutActivating));
    }

    void anActionRunsAfterThePromptHasFinished() {
        Shown f;
        f.buttons().at(1)->click();
        const QStringList expected = {QStringLiteral("finish"), QStringLiteral("0")};
        QCOMPARE(f.log, expected);
        QVERIFY(f.panel.window() == nullptr);
    }

    void notNowOnlyFinishes() {
        Shown f;
        f.buttons().at(0)->click();
        QCOMPARE(f.log, QStringList{QStringLiteral("finish")});
    }

    void theCloseButtonOnlyFinishes() {
        Shown f;
        f.panel.window()->close();
        QCOMPARE(f.log, QStringList{QStringLiteral("finish")});
        f.panel.dismiss();
        QCOMPARE(f.log.size(), 1);
    }

    void returnPressesTheLastAction() {
        Shown f;
        QWidget* window = f.panel.window();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window->focusWidget() != nullptr ? window->focusWidget() : window, Qt::Key_Return);
        const QStringList expected = {QStringLiteral("finish"), QStringLiteral("1")};
        QCOMPARE(f.log, expected);
    }

    void withoutActionsReturnDoesNothing() {
        Shown f(0);
        QWidget* window = f.panel.window();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, Qt::Key_Return);
        QVERIFY(f.log.isEmpty());
        f.panel.dismiss();
    }

    void aNewerPromptFinishesTheOlderOne() {
        Shown f;
        f.panel.show(QStringLiteral("Second"), QString(), {},
                     [&f] { f.log.append(QStringLiteral("second finish")); });
        QCOMPARE(f.log, QStringList{QStringLiteral("finish")});
        f.panel.dismiss();
        const QStringList expected = {QStringLiteral("finish"), QStringLiteral("second finish")};
        QCOMPARE(f.log, expected);
    }

    void aButtonOfNoActionDoesNothing() {
        Shown f;
        f.panel.pressed(-1);
        f.panel.pressed(2);
        QVERIFY(f.log.isEmpty());
        f.panel.dismiss();
        f.panel.pressed(0);
        QCOMPARE(f.log, QStringList{QStringLiteral("finish")});
    }

    void onlyAPromptOnScreenComesToTheFront() {
        Shown f;
        QVERIFY(f.panel.bringToFront());
        f.panel.dismiss();
        QVERIFY(!f.panel.bringToFront());
    }

    void itStandsInTheMiddleOfTheScreenWithTheMouse() {
        const Shown f;
        const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
        const QPoint center = f.panel.window()->geometry().center();
        QVERIFY(std::abs(center.x() - visible.center().x()) <= 2);
        QVERIFY(std::abs(center.y() - visible.center().y()) <= 2);
    }
};

QTEST_MAIN(PromptPanelTest)
#include "tst_promptpanel.moc"
