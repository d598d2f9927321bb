#include "Vellumline/Platform/Linux/DesktopStatusItem.h"

#include <QTest>

using namespace vellumline;

/// Without a session bus, so that the icon is an embedded one.
class DesktopStatusItemTest : public QObject {
    Q_OBJECT

  private:
    std::optional<QColor> panel_;
    QList<QColor> drawn_;
    std::unique_ptr<DesktopStatusItem> item_;

    void show() {
        drawn_.clear();
        item_ = std::make_unique<DesktopStatusItem>(
            [this] { return panel_; },
            QDBusConnection::connectToBus(QStringLiteral("unix:path=/dev/null"), QStringLiteral("nowhere")));
        item_->setImage([this](const QColor& color) {
            drawn_.append(color);
            return QIcon();
        });
        item_->show();
    }

  private Q_SLOTS:
    void cleanup() { item_.reset(); }

    void theColourStandsOutFromThePanel() {
        panel_ = Qt::black;
        show();
        const QColor onDark = drawn_.last();
        QVERIFY(onDark.lightness() > 200);
        panel_ = Qt::white;
        show();
        QVERIFY(drawn_.last().lightness() < 80);
    }
    void anUnknownPanelGetsWhatIsSeenOnEach() {
        panel_.reset();
        show();
        QCOMPARE(drawn_.last(), QColor(0x76, 0x76, 0x76));
    }
    void aPanelThatDrawsItselfLaterIsLookedAtAgain() {
        panel_.reset();
        show();
        const auto before = drawn_.size();
        panel_ = Qt::black;
        QTRY_COMPARE(drawn_.size(), before + 1);
        QVERIFY(drawn_.last().lightness() > 200);
    }
    void aHighlightLooksAtThePanelToo() {
        panel_ = Qt::black;
        show();
        panel_ = Qt::white;
        item_->setHighlighted(true);
        QVERIFY(drawn_.last().lightness() < 80);
    }
};

QTEST_MAIN(DesktopStatusItemTest)
#include "tst_desktopstatusitem.moc"
