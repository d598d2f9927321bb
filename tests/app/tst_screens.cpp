#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QCursor>
#include <QLayout>
#include <QScreen>
#include <QTemporaryFile>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;

/// Two screens side by side, the second one lower and larger.
class ScreensTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theseAreTwoScreens() {
        QCOMPARE(QGuiApplication::screens().size(), 2);
        QCOMPARE(QGuiApplication::screens().at(1)->geometry(), QRect(800, 100, 1000, 700));
    }

    void aPromptStandsInTheMiddleOfTheScreenWithTheMouse_data() {
        QTest::addColumn<QPoint>("mouse");
        QTest::addColumn<int>("screen");
        QTest::newRow("the first screen") << QPoint(20, 20) << 0;
        QTest::newRow("the second screen") << QPoint(1790, 790) << 1;
    }

    void aPromptStandsInTheMiddleOfTheScreenWithTheMouse() {
        QFETCH(const QPoint, mouse);
        QFETCH(const int, screen);
        const auto f = signedOutStage();
        f->fakes->rewrite();
        QCursor::setPos(mouse);
        const QWidget* prompt = f->openPrompt();
        const QRect visible = QGuiApplication::screens().at(screen)->availableGeometry();
        QVERIFY((prompt->geometry().center() - visible.center()).manhattanLength() <= 4);
        // Brought to the front again it follows the mouse.
        QCursor::setPos(QPoint(20, 20));
        QVERIFY(f->prompts.bringToFront());
        const QRect first = QGuiApplication::screens().at(0)->availableGeometry();
        QVERIFY((prompt->geometry().center() - first.center()).manhattanLength() <= 4);
    }

    void thePanelStandsAtAnItemOnTheSecondScreen_data() {
        QTest::addColumn<QRect>("item");
        QTest::newRow("top right") << QRect(1770, 100, 24, 24);
        QTest::newRow("bottom left") << QRect(810, 776, 24, 24);
    }

    void thePanelStandsAtAnItemOnTheSecondScreen() {
        QFETCH(const QRect, item);
        const auto f = signedOutStage();
        f->item.place = item;
        const QWidget* panel = f->openMenu();
        QVERIFY(QGuiApplication::screens().at(1)->geometry().contains(panel->geometry()));
        QVERIFY(panel->geometry().top() == item.bottom() + 1 || panel->geometry().bottom() + 1 == item.top());
    }
};

int main(int argc, char** argv) {
    QTemporaryFile configuration;
    if (!configuration.open())
        return 1;
    configuration.write(R"({"screens":[{"name":"first","x":0,"y":0,"width":800,"height":600},)"
                        R"({"name":"second","x":800,"y":100,"width":1000,"height":700}]})");
    configuration.flush();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + configuration.fileName().toLocal8Bit());
    QApplication application(argc, argv);
    ScreensTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_screens.moc"
