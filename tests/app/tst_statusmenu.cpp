#include "Vellumline/VellumlineMark.h"
#include "tests/app/Scenes.h"
#include "tests/app/VisibleTexts.h"

#include <QLayout>
#include <QScreen>
#include <QTest>

using namespace vellumline;
using namespace vellumline::test;
using namespace std::chrono_literals;

namespace {

QImage picture(const QIcon& icon) {
    return icon.pixmap(64, 64).toImage();
}
QImage symbol(const char* name) {
    return picture(Style::icon(QString::fromLatin1(name), Qt::black));
}

} // namespace

class StatusMenuTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void startingTwiceShowsOneItem() {
        const auto f = signedOutStage();
        f->menu.start();
        QCOMPARE(f->item.shows, 1);
        QCOMPARE(f->item.label, QStringLiteral("Vellumline"));
        QCOMPARE(f->item.image, picture(VellumlineMarkImage::image(Qt::black)));
    }

    void theIconFollowsBusyAndNothingElse() {
        const auto f = signedInStage(ModelOnFakes::accountBody("paid", 1, 30))();
        f->fakes->rewrite();
        QCOMPARE(f->item.label, QStringLiteral("Vellumline, correcting"));
        QCOMPARE(f->item.image, symbol("busy"));
        f->fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::failed));
        QCOMPARE(f->item.label, QStringLiteral("Vellumline"));
        QCOMPARE(f->item.image, picture(VellumlineMarkImage::image(Qt::black)));
        const int images = f->item.images;
        f->model().signOut();
        QCOMPARE(f->item.images, images);
    }

    void aLongCorrectionAnimatesQuietlyAndStops() {
        const auto f = signedInStage(ModelOnFakes::accountBody("paid", 1, 30))();
        f->fakes->rewrite();
        f->fakes->service.clock.advance(299ms);
        QCOMPARE(f->item.image, symbol("busy"));
        f->fakes->service.clock.advance(1ms);
        QCOMPARE(f->item.image, symbol("busy-1"));
        const int before = f->item.images;
        f->fakes->service.clock.advance(1000ms);
        const int frames = f->item.images - before;
        QVERIFY2(frames > 1 && frames <= 8, qPrintable(QString::number(frames)));
        f->fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::failed));
        QCOMPARE(f->item.image, picture(VellumlineMarkImage::image(Qt::black)));
        const int stopped = f->item.images;
        f->fakes->service.clock.advance(2000ms);
        QCOMPARE(f->item.images, stopped);
        QCOMPARE(f->fakes->service.clock.pendingSleeps(), 0);
    }

    void aShortCorrectionShowsOnePicture() {
        const auto f = signedInStage(ModelOnFakes::accountBody("paid", 1, 30))();
        const int before = f->item.images;
        f->fakes->rewrite();
        f->fakes->service.clock.advance(200ms);
        f->fakes->rewriter.finish(RewriteOutcome::problem(RewriteProblem::Kind::failed));
        f->fakes->service.clock.advance(1000ms);
        QCOMPARE(f->item.images, before + 2);
    }

    void pressingTheItemOpensAndClosesThePanel() {
        const auto f = signedOutStage();
        f->item.press();
        QVERIFY(f->menu.isOpen());
        QVERIFY(f->item.highlighted);
        f->item.press();
        QVERIFY(!f->menu.isOpen());
        QVERIFY(!f->item.highlighted);
    }

    void aPressWithinAQuarterSecondOfClosingDoesNothing() {
        const auto f = signedOutStage();
        f->item.press();
        f->item.press();
        f->fakes->service.clock.advance(249ms);
        f->item.press();
        QVERIFY(!f->menu.isOpen());
        f->fakes->service.clock.advance(1ms);
        f->item.press();
        QVERIFY(f->menu.isOpen());
    }

    void closingTwiceDoesNotStartTheQuarterSecondAgain() {
        const auto f = signedOutStage();
        f->item.press();
        f->menu.close();
        f->fakes->service.clock.advance(200ms);
        f->menu.close();
        f->fakes->service.clock.advance(50ms);
        f->item.press();
        QVERIFY(f->menu.isOpen());
    }

    void monitorsListenOnlyWhileThePanelIsOpen() {
        const auto f = signedOutStage();
        QCOMPARE(f->mouse.monitorCount(), 0U);
        QCOMPARE(f->fakes->keyMonitor.monitorCount(), 0);
        f->menu.show();
        f->menu.show();
        QCOMPARE(f->mouse.monitorCount(), 1U);
        QCOMPARE(f->fakes->keyMonitor.monitorCount(), 1);
        f->menu.close();
        QCOMPARE(f->mouse.monitorCount(), 0U);
        QCOMPARE(f->fakes->keyMonitor.monitorCount(), 0);
    }

    void monitorsThatCannotBeInstalledAreDoneWithout() {
        const auto f = signedOutStage();
        f->mouse.refuses = true;
        f->fakes->keyMonitor.refuses = true;
        f->menu.show();
        QVERIFY(f->menu.isOpen());
        f->menu.close();
        QVERIFY(!f->menu.isOpen());
    }

    void escapeClosesAndIsSwallowed() {
        const auto f = signedOutStage();
        f->menu.show();
        QCOMPARE(f->fakes->keyMonitor.press({0, {}, QStringLiteral("a")}), KeyMonitor::Handling::passOn);
        QVERIFY(f->menu.isOpen());
        QCOMPARE(f->fakes->keyMonitor.press({KeyCode::escape, {}, {}}), KeyMonitor::Handling::swallow);
        QVERIFY(!f->menu.isOpen());
    }

    void escapeWhileRecordingEndsTheRecordingOnly() {
        const auto f = signedOutStage();
        f->openMenu(MenuContent::Page::settings);
        f->model().toggleRecording();
        f->fakes->keyMonitor.press({KeyCode::escape, {}, {}});
        QTest::qWait(1);
        QVERIFY(!f->model().recordingHotkey());
        QVERIFY(f->menu.isOpen());
    }

    void aPressInAnotherProgramClosesThePanel() {
        const auto f = signedOutStage();
        f->menu.show();
        f->mouse.press(QPoint(3, 500));
        QVERIFY(!f->menu.isOpen());
    }

    void aPressOnTheItemIsLeftToTheItem() {
        const auto f = signedOutStage();
        f->item.place = QRect(600, 0, 24, 24);
        f->menu.show();
        f->mouse.press(QPoint(610, 10));
        QVERIFY(f->menu.isOpen());
        // Where the desktop does not tell where the item is, it is where it was pressed.
        f->menu.close();
        f->fakes->service.clock.advance(1s);
        f->item.place.reset();
        f->item.press(QPoint(400, 5));
        f->mouse.press(QPoint(405, 8));
        QVERIFY(f->menu.isOpen());
        f->mouse.press(QPoint(440, 8));
        QVERIFY(!f->menu.isOpen());
    }

    void aPressBesideAnItemWhosePlaceIsGuessedClosesThePanelUnlessItWasTheItem() {
        const auto f = signedOutStage();
        f->item.press(QPoint(400, 5));
        f->mouse.press(QPoint(405, 8)); // the item beside it
        f->fakes->service.clock.advance(500ms);
        QTest::qWait(1);
        QVERIFY(!f->menu.isOpen());

        f->item.press(QPoint(400, 5));
        f->mouse.press(QPoint(401, 8));
        f->item.press(QPoint(401, 8));
        QVERIFY(!f->menu.isOpen());
        f->fakes->service.clock.advance(300ms);
        f->item.press(QPoint(401, 8));
        QVERIFY(f->menu.isOpen());
        f->fakes->service.clock.advance(300ms);
        QTest::qWait(1);
        QVERIFY(f->menu.isOpen());
    }

    void aPressInAnotherWindowOfOursClosesThePanelAndOneInsideDoesNot() {
        const auto f = signedOutStage();
        QWidget* panel = f->openMenu();
        QTest::mouseClick(showing(panel, QStringLiteral("Not signed in.")), Qt::LeftButton);
        QVERIFY(f->menu.isOpen());
        QWidget other;
        other.show();
        QTest::mouseClick(&other, Qt::MiddleButton);
        QVERIFY(f->menu.isOpen());
        QTest::mouseClick(&other, Qt::RightButton);
        QVERIFY(!f->menu.isOpen());
    }

    void thePanelIsKeptBetweenOpenings() {
        const auto f = signedOutStage();
        const QWidget* first = f->openMenu(MenuContent::Page::settings);
        f->menu.close();
        f->menu.show();
        QCOMPARE(f->menu.panel(), first);
        QCOMPARE(f->menu.content()->page(), MenuContent::Page::settings);
    }

    void theWindowManagersWishToCloseKeepsThePanel() {
        const auto f = signedOutStage();
        QWidget* panel = f->openMenu();
        panel->close();
        QVERIFY(!f->menu.isOpen());
        f->menu.show();
        QVERIFY(panel->isVisible());
    }

    void inputGoesBackToTheProgramTheUserCameFrom() {
        const auto f = signedOutStage();
        f->fakes->workspace.front = Workspace::Application{4182};
        QWidget* panel = f->openMenu();
        QVERIFY(QTest::qWaitForWindowActive(panel));
        f->menu.close();
        QVERIFY(f->fakes->workspace.calls().contains(QStringLiteral("activate(4182)")));
    }

    void inputStaysWithAProgramThatTookItItself() {
        const auto f = signedOutStage();
        f->fakes->workspace.front = Workspace::Application{4182};
        QWidget* panel = f->openMenu();
        QVERIFY(QTest::qWaitForWindowActive(panel));
        QWidget other;
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTRY_VERIFY(!f->menu.isOpen());
        QVERIFY(!f->fakes->workspace.calls().contains(QStringLiteral("activate(4182)")));
    }

    void thePanelHangsFromTheItem() {
        const auto f = signedOutStage();
        f->item.place = QRect(380, 0, 24, 24);
        const QWidget* panel = f->openMenu();
        QCOMPARE(panel->geometry().top(), 24);
        QVERIFY(std::abs(panel->geometry().center().x() - 391) <= 1);
    }

    void anotherPageKeepsThePanelAtTheItem() {
        const auto f = signedOutStage();
        f->item.place = QRect(380, 0, 24, 24);
        const QWidget* panel = f->openMenu();
        const int height = panel->height();
        f->menu.content()->showPage(MenuContent::Page::settings);
        f->settle();
        QVERIFY(panel->height() > height);
        QCOMPARE(panel->geometry().top(), 24);
        QCOMPARE(panel->height(), panel->layout()->sizeHint().height());
    }

    void aRowThatComesResizesThePanel() {
        const auto f = signedOutStage();
        const QWidget* panel = f->openMenu();
        const int height = panel->height();
        f->model().setStatus(MenuStatus::message(QStringLiteral("Something happened.")));
        QTRY_VERIFY(panel->height() > height);
        QCOMPARE(panel->height(), panel->layout()->sizeHint().height());
    }

    void thePanelStaysOnTheScreenAtEveryEdge_data() {
        QTest::addColumn<QRect>("item");
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        QTest::newRow("top left") << QRect(0, 0, 24, 24);
        QTest::newRow("top right") << QRect(screen.right() - 23, 0, 24, 24);
        QTest::newRow("bottom") << QRect(380, screen.bottom() - 23, 24, 24);
        QTest::newRow("bottom right") << QRect(screen.right() - 23, screen.bottom() - 23, 24, 24);
    }

    void thePanelStaysOnTheScreenAtEveryEdge() {
        QFETCH(const QRect, item);
        const auto f = signedOutStage();
        f->item.place = item;
        const QWidget* panel = f->openMenu();
        QVERIFY(QGuiApplication::primaryScreen()->geometry().contains(panel->geometry()));
        const bool below = panel->geometry().top() == item.bottom() + 1;
        const bool above = panel->geometry().bottom() + 1 == item.top();
        QVERIFY(below || above);
    }

    void withoutAnItemThePanelDropsFromTheCorner() {
        const auto f = signedOutStage();
        const QWidget* panel = f->openMenu();
        const QRect visible = QGuiApplication::primaryScreen()->availableGeometry();
        QCOMPARE(panel->geometry().top(), visible.top());
        QCOMPARE(panel->geometry().right(), visible.right() - 4);
    }

    void thePanelLooksAgainWhenTheContentHasSettled() {
        const auto f = signedOutStage();
        f->item.place = QRect(380, 0, 24, 24);
        f->menu.show();
        QTest::qWait(1);
        // The item moves while the content settles; nobody tells.
        f->item.place = QRect(200, 0, 24, 24);
        f->fakes->service.clock.advance(49ms);
        QVERIFY(std::abs(f->menu.panel()->geometry().center().x() - 391) <= 1);
        f->fakes->service.clock.advance(1ms);
        QVERIFY(std::abs(f->menu.panel()->geometry().center().x() - 211) <= 1);
    }

    void quittingWhileOpenOrCorrectingLeavesNothingBehind() {
        auto f = signedInStage(ModelOnFakes::accountBody("paid", 1, 30))();
        f->openMenu();
        f->fakes->rewrite();
        FakeStatusItem item;
        FakeMouseMonitor mouse;
        {
            StatusMenu menu(
                f->model(), {},
                {item, mouse, f->fakes->keyMonitor, f->fakes->workspace, f->fakes->service.clock, {}});
            menu.start();
            menu.show();
            QCOMPARE(mouse.monitorCount(), 1U);
        }
        QCOMPARE(mouse.monitorCount(), 0U);
        QVERIFY(!item.onAction);
    }
};

QTEST_MAIN(StatusMenuTest)
#include "tst_statusmenu.moc"
