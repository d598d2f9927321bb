#include "Vellumline/Style.h"
#include "Vellumline/VellumlineMark.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTest>
#include <algorithm>

using namespace vellumline;

namespace {

QImage drawn(int side, const QColor& color = Qt::black) {
    return VellumlineMarkImage::image(color)
        .pixmap(side, side)
        .toImage()
        .convertToFormat(QImage::Format_ARGB32);
}

/// The path data of the one drawing of the mark in an SVG file, as numbers.
QList<double> numbersOfMark(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression data(QStringLiteral("<path[^>]* d=\"([^\"]+)\""));
    static const QRegularExpression number(QStringLiteral("-?[0-9]+(?:\\.[0-9]+)?"));
    QList<double> result;
    auto matches = number.globalMatch(data.match(QString::fromUtf8(file.readAll())).captured(1));
    while (matches.hasNext())
        result.append(matches.next().captured().toDouble());
    return result;
}

QList<double> numbersOf(const QPainterPath& path) {
    QList<double> result;
    for (int i = 0; i < path.elementCount(); ++i) {
        result.append(path.elementAt(i).x);
        result.append(path.elementAt(i).y);
    }
    return result;
}

} // namespace

class VellumlineMarkTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void theOutlineHasTwoClosedSubpathsOfTwentySixCurvesAndSixLines() {
        const QPainterPath outline = VellumlineMarkImage::outline(QRectF(0, 0, 1, 1));
        int moves = 0;
        int lines = 0;
        int curves = 0;
        for (int i = 0; i < outline.elementCount(); ++i) {
            const auto element = outline.elementAt(i);
            moves += element.isMoveTo() ? 1 : 0;
            lines += element.isLineTo() ? 1 : 0;
            curves += element.type == QPainterPath::CurveToElement ? 1 : 0;
            QVERIFY(element.x >= 0 && element.x <= 1 && element.y >= 0 && element.y <= 1);
        }
        QCOMPARE(moves, 2);
        QCOMPARE(curves, 26);
        QCOMPARE(lines, 6);
        const auto subpaths = outline.toSubpathPolygons();
        QCOMPARE(subpaths.size(), 2);
        for (const QPolygonF& each : subpaths)
            QVERIFY(each.isClosed());
    }

    void theOutlineScalesWithItsRectangle() {
        const QPainterPath unit = VellumlineMarkImage::outline(QRectF(0, 0, 1, 1));
        const QPainterPath scaled = VellumlineMarkImage::outline(QRectF(3, 5, 20, 10));
        for (int i = 0; i < unit.elementCount(); ++i) {
            QVERIFY(qAbs(scaled.elementAt(i).x - (3 + unit.elementAt(i).x * 20)) < 1e-9);
            QVERIFY(qAbs(scaled.elementAt(i).y - (5 + unit.elementAt(i).y * 10)) < 1e-9);
        }
    }

    void itIsCrispAtEverySize_data() {
        QTest::addColumn<int>("side");
        for (const int side : {16, 18, 22, 24, 32, 64})
            QTest::newRow(qPrintable(QString::number(side))) << side;
    }

    void itIsCrispAtEverySize() {
        QFETCH(const int, side);
        const QImage image = drawn(side);
        QCOMPARE(image.size(), QSize(side, side));
        int full = 0;
        int half = 0;
        QRect box;
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const int alpha = qAlpha(image.pixel(x, y));
                full += alpha == 255 ? 1 : 0;
                half += alpha > 0 && alpha < 255 ? 1 : 0;
                if (alpha > 127)
                    box = box.united(QRect(x, y, 1, 1));
            }
        }
        // The shape fills its square, and has a body and not only edges.
        QVERIFY(box.width() >= side * 0.8);
        QVERIFY(box.height() >= side * 0.85);
        QVERIFY(full >= side * side * 0.1);
        // Edges are as long as the outline; a blurred drawing has far more.
        QVERIFY2(half <= side * 8, qPrintable(QString::number(half)));
    }

    void theLineIsSharpWherePixelsAllow_data() {
        QTest::addColumn<int>("side");
        for (const int side : {16, 32, 64})
            QTest::newRow(qPrintable(QString::number(side))) << side;
    }

    void theLineIsSharpWherePixelsAllow() {
        QFETCH(const int, side);
        const QImage image = drawn(side);
        // The straight part lies between 13 and 15 sixteenths of the height.
        const int x = side * 3 / 4;
        QCOMPARE(qAlpha(image.pixel(x, side * 13 / 16 - 1)), 0);
        QCOMPARE(qAlpha(image.pixel(x, side * 13 / 16)), 255);
        QCOMPARE(qAlpha(image.pixel(x, side * 15 / 16 - 1)), 255);
        QCOMPARE(qAlpha(image.pixel(x, side * 15 / 16)), 0);
    }

    void itTakesAnyColour() {
        const QImage image = drawn(64, QColor(10, 200, 30));
        const QRgb inside = image.pixel(48, 56);
        QCOMPARE(QColor::fromRgba(inside), QColor(10, 200, 30));
    }

    void theIconFilesShowTheSameMark_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QRectF>("place");
        QTest::newRow("application") << QStringLiteral("com.kelthorne.Vellumline.svg")
                                     << QRectF(14, 13, 36, 36);
        QTest::newRow("symbolic") << QStringLiteral("com.kelthorne.Vellumline-symbolic.svg")
                                  << QRectF(0, 0, 16, 16);
    }

    void theIconFilesShowTheSameMark() {
        QFETCH(const QString, file);
        QFETCH(const QRectF, place);
        const QDir icons(QStringLiteral(QT_TESTCASE_SOURCEDIR "/../../packaging/icons"));
        const QList<double> found = numbersOfMark(icons.filePath(file));
        const QList<double> expected = numbersOf(VellumlineMarkImage::outline(place));
        QCOMPARE(found.size(), expected.size());
        for (qsizetype i = 0; i < found.size(); ++i)
            QVERIFY2(qAbs(found.at(i) - expected.at(i)) < 0.01, qPrintable(QString::number(i)));
    }

    void everySymbolDrawsSomethingAtEverySize() {
        for (const char* name : {"busy", "busy-1", "busy-2", "busy-3", "check", "cross", "gear", "info",
                                 "step-1", "step-2", "step-3", "step-4"}) {
            for (const int side : {16, 18, 22, 24, 32, 64}) {
                const QImage image = Style::icon(QString::fromLatin1(name), Qt::black)
                                         .pixmap(side, side)
                                         .toImage()
                                         .convertToFormat(QImage::Format_ARGB32);
                int covered = 0;
                for (int y = 0; y < side; ++y)
                    for (int x = 0; x < side; ++x)
                        covered += qAlpha(image.pixel(x, y)) > 127 ? 1 : 0;
                QVERIFY2(covered > side * side / 20, name);
            }
        }
        QVERIFY(!Style::applicationIcon().pixmap(64, 64).isNull());
    }
};

QTEST_MAIN(VellumlineMarkTest)
#include "tst_vellumlinemark.moc"
