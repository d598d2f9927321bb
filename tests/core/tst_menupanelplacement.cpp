#include "VellumlineCore/MenuPanelPlacement.h"

#include <QTest>
#include <cmath>
#include <limits>

using namespace vellumline;
using namespace vellumline::MenuPanelPlacement;

namespace {
const PanelRect visible{0, 0, 1440, 875};
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
} // namespace

class MenuPanelPlacementTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void derivedValues() {
        const PanelRect rect{10, 20, 30, 40};
        QCOMPARE(rect.midX(), 25.0);
        QCOMPARE(rect.maxX(), 40.0);
        QCOMPARE(rect.maxY(), 60.0);
        QVERIFY(!(rect == PanelRect{10, 20.0001, 30, 40}));
        QVERIFY((rect == PanelRect{10, 20, 30, 40}));
    }

    void aPanelAtTheLeftEndKeepsTheMargin() {
        QVERIFY((frame(300, 200, {100, 800, 20, 22}, visible, 4) == PanelRect{4, 600, 300, 200}));
    }
    void aPanelAtTheRightEndKeepsTheMargin() {
        QVERIFY((frame(300, 200, {1400, 875, 24, 24}, visible, 4) == PanelRect{1136, 675, 300, 200}));
    }
    void aPanelInTheMiddleIsCentred() {
        QVERIFY((frame(300, 200, {700, 875, 24, 24}, visible, 4) == PanelRect{562, 675, 300, 200}));
    }
    void aPanelThatJustFitsIsLeftWhereItIs() {
        QCOMPARE(frame(300, 200, {1274, 875, 24, 24}, visible, 4).x, 1136.0); // right edge exactly on 1436
    }
    void aPanelTooWideStandsAtTheLeft() {
        const PanelRect result = frame(2000, 200, {700, 875, 24, 24}, visible, 4);
        QCOMPARE(result.x, 4.0);
        QCOMPARE(result.width, 2000.0);
    }
    void aPanelTooTallGoesBelow() { QCOMPARE(frame(300, 2000, {700, 875, 24, 24}, visible, 4).y, -1125.0); }
    void aScreenElsewhereCountsToo() {
        QCOMPARE(frame(300, 200, {-1300, 875, 24, 24}, {-1440, 0, 1440, 875}, 4).x, -1436.0);
    }
    void notANumberLeavesTheCandidate() {
        QCOMPARE(frame(300, 200, {100, 800, 20, 22}, {0, 0, notANumber, 875}, 4).x,
                 4.0); // the left clamp still works
        QCOMPARE(frame(300, 200, {1400, 800, 20, 22}, {notANumber, 0, 10, 875}, 4).x, 1260.0);
        QVERIFY(std::isnan(frame(300, 200, {notANumber, 800, 20, 22}, visible, 4).x));
        QVERIFY(std::isnan(frame(300, 200, {100, notANumber, 20, 22}, visible, 4).y));
    }

    void aBarAtAnyEdgeHasThePanelBesideIt_data() {
        QTest::addColumn<PanelRect>("button");
        QTest::addColumn<PanelRect>("visible");
        QTest::addColumn<PanelRect>("expected");
        QTest::newRow("top: as under a menu bar")
            << PanelRect{700, 875, 24, 24} << PanelRect{0, 0, 1440, 875} << PanelRect{562, 675, 300, 200};
        QTest::newRow("bottom: on the item")
            << PanelRect{700, 4, 24, 24} << PanelRect{0, 32, 1440, 868} << PanelRect{562, 28, 300, 200};
        QTest::newRow("bottom right corner")
            << PanelRect{1412, 4, 24, 24} << PanelRect{0, 32, 1440, 868} << PanelRect{1136, 28, 300, 200};
        QTest::newRow("left: beside the item, in its middle")
            << PanelRect{4, 400, 24, 24} << PanelRect{32, 0, 1408, 900} << PanelRect{28, 312, 300, 200};
        QTest::newRow("left, at the lower end: inside the margin")
            << PanelRect{4, 4, 24, 24} << PanelRect{32, 0, 1408, 900} << PanelRect{28, 4, 300, 200};
        QTest::newRow("right: beside the item")
            << PanelRect{1412, 400, 24, 24} << PanelRect{0, 0, 1408, 900} << PanelRect{1112, 312, 300, 200};
        QTest::newRow("right, at the upper end: inside the margin")
            << PanelRect{1412, 872, 24, 24} << PanelRect{0, 0, 1408, 900} << PanelRect{1112, 696, 300, 200};
        QTest::newRow("a bar that hides itself, at the bottom: on the item")
            << PanelRect{700, 4, 24, 24} << PanelRect{0, 0, 1440, 900} << PanelRect{562, 28, 300, 200};
        QTest::newRow("a bar that hides itself, at the top: under the item")
            << PanelRect{700, 872, 24, 24} << PanelRect{0, 0, 1440, 900} << PanelRect{562, 672, 300, 200};
        QTest::newRow("a second screen at the right")
            << PanelRect{2000, 4, 24, 24} << PanelRect{1440, 32, 1000, 868} << PanelRect{1862, 28, 300, 200};
        QTest::newRow("no room above or below the item: inside the visible area")
            << PanelRect{700, 100, 24, 24} << PanelRect{0, 0, 1440, 210} << PanelRect{562, 0, 300, 200};
    }
    void aBarAtAnyEdgeHasThePanelBesideIt() {
        QFETCH(const PanelRect, button);
        QFETCH(const PanelRect, visible);
        QFETCH(const PanelRect, expected);
        const PanelRect result = frameAtAnyEdge(300, 200, button, visible, 4);
        QVERIFY2(result == expected, qPrintable(QStringLiteral("%1, %2").arg(result.x).arg(result.y)));
    }
    void aPanelTallerThanTheScreenHangsFromTheTop() {
        QCOMPARE(frameAtAnyEdge(300, 2000, {700, 875, 24, 24}, visible, 4).y, -1125.0);
    }

    void attachmentHasItsSlack_data() {
        QTest::addColumn<double>("gap");
        QTest::addColumn<bool>("attached");
        QTest::newRow("touching") << 0.0 << true;
        QTest::newRow("23.9 below") << 23.9 << true;
        QTest::newRow("23.9 above") << -23.9 << true;
        QTest::newRow("24 below") << 24.0 << false;
        QTest::newRow("24 above") << -24.0 << false;
    }
    void attachmentHasItsSlack() {
        QFETCH(const double, gap);
        QFETCH(const bool, attached);
        QCOMPARE(isAttached({0, 600 - gap, 300, 200}, {100, 800, 20, 22}), attached);
        QCOMPARE(attachSlack, 24.0);
    }
    void touchingSidesDoNotOverlap() {
        QVERIFY(!isAttached({120, 600, 300, 200}, {100, 800, 20, 22}));
        QVERIFY(!isAttached({-200, 600, 300, 200}, {100, 800, 20, 22}));
        QVERIFY(isAttached({119.9, 600, 300, 200}, {100, 800, 20, 22}));
    }
    void aRectangleOfOneIsNone() {
        const PanelRect panel{0, 600, 300, 200};
        const PanelRect button{100, 800, 20, 22};
        QVERIFY(isAttached(panel, button));
        QVERIFY(!isAttached({100, 600, 1, 200}, button));
        QVERIFY(!isAttached({0, 799, 300, 1}, button));
        QVERIFY(!isAttached(panel, {100, 800, 1, 22}));
        QVERIFY(!isAttached(panel, {100, 800, 20, 1}));
    }
    void notANumberIsNeverAttached() {
        for (int field = 0; field < 8; ++field) {
            double values[8] = {0, 600, 300, 200, 100, 800, 20, 22};
            values[field] = notANumber;
            const bool attached = isAttached({values[0], values[1], values[2], values[3]},
                                             {values[4], values[5], values[6], values[7]});
            QVERIFY2(!attached, qPrintable(QString::number(field)));
        }
    }
};

QTEST_GUILESS_MAIN(MenuPanelPlacementTest)
#include "tst_menupanelplacement.moc"
