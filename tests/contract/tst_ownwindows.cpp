// This program's own fields, which the accessibility adapter answers in process, and the accessibility bus
// that comes and goes.

#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"
#include "Vellumline/SelectionProbe.h"
#include "fakes/FakeSecureInput.h"
#include "fakes/FakeWorkspace.h"

#include <QCoroTask>
#include <QDBusConnection>
#include <QDBusReply>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>
#include <csignal>

using namespace vellumline;
using Kind = ProbeAnswer::Kind;

namespace {

const QString words = QStringLiteral("i has went");

QDBusMessage busCall(const QDBusConnection& bus, const QString& service, const QString& path,
                     const QString& interface, const QString& method, const QVariantList& arguments = {}) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return bus.call(message);
}

/// The process of the accessibility bus of this private session.
pid_t accessibilityBusProcess() {
    const QDBusReply<QString> address = busCall(QDBusConnection::sessionBus(), QStringLiteral("org.a11y.Bus"),
                                                QStringLiteral("/org/a11y/bus"),
                                                QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress"));
    const QString name = QStringLiteral("look-up");
    const QDBusConnection bus = QDBusConnection::connectToBus(address.value(), name);
    const QString daemon = QStringLiteral("org.freedesktop.DBus");
    const QDBusReply<uint> process = busCall(bus, daemon, QStringLiteral("/org/freedesktop/DBus"), daemon,
                                             QStringLiteral("GetConnectionUnixProcessID"), {daemon});
    QDBusConnection::disconnectFromBus(name);
    return static_cast<pid_t>(process.value());
}

} // namespace

class OwnWindowsTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<AtSpiAccessibility> accessibility_;
    FakeWorkspace workspace_;
    FakeSecureInput secureInput_;
    std::unique_ptr<SelectionProbe> probe_;

    static void give(QWidget& widget) {
        widget.show();
        QVERIFY(QTest::qWaitForWindowActive(&widget));
        widget.setFocus();
        QCOMPARE(QApplication::focusWidget(), &widget);
    }
    ProbeAnswer probe() { return QCoro::waitFor(probe_->focused()); }

  private Q_SLOTS:
    void init() {
        // Even with a terminal's window class: our own fields are known.
        accessibility_ =
            std::make_unique<AtSpiAccessibility>([] { return QStringList{QStringLiteral("xterm")}; });
        QVERIFY(QCoro::waitFor(accessibility_->ready()));
        workspace_.front = Workspace::Application{QCoreApplication::applicationPid()};
        probe_ = std::make_unique<SelectionProbe>(*accessibility_, workspace_, secureInput_);
    }

    void aLineOfOurOwnGivesItsSelection() {
        QLineEdit line(words);
        give(line);
        line.deselect();
        QCOMPARE(probe(), ProbeAnswer::of(Kind::emptySelection));
        line.selectAll();
        QCOMPARE(probe(), ProbeAnswer::editable(words));
        line.setReadOnly(true);
        QCOMPARE(probe(), ProbeAnswer::of(Kind::readOnly));
        line.setReadOnly(false);
        for (const auto mode : {QLineEdit::Password, QLineEdit::NoEcho, QLineEdit::PasswordEchoOnEdit}) {
            line.setEchoMode(mode);
            QCOMPARE(probe(), ProbeAnswer::of(Kind::secure));
        }
    }

    void aTextOfOurOwnGivesItsLinesAsLines() {
        QPlainTextEdit plain(QStringLiteral("one\ntwo"));
        give(plain);
        QCOMPARE(probe(), ProbeAnswer::of(Kind::emptySelection));
        plain.selectAll();
        QCOMPARE(probe(), ProbeAnswer::editable(QStringLiteral("one\ntwo")));
        plain.setReadOnly(true);
        QCOMPARE(probe(), ProbeAnswer::of(Kind::readOnly));
        plain.hide();
        QTextEdit rich;
        rich.setHtml(QStringLiteral("<p>one</p><p>two</p>"));
        give(rich);
        rich.selectAll();
        QCOMPARE(probe(), ProbeAnswer::editable(QStringLiteral("one\ntwo")));
    }

    void aButtonOfOurOwnIsUnknown() {
        QPushButton button;
        give(button);
        QCOMPARE(probe(), ProbeAnswer::of(Kind::unknown));
    }

    void aFieldThatIsGoneAnswersWithErrors() {
        auto line = std::make_unique<QLineEdit>(words);
        give(*line);
        const auto root = accessibility_->applicationElement(QCoreApplication::applicationPid());
        const auto focused =
            QCoro::waitFor(accessibility_->copyAttribute(root, AccessibilityAttribute::focusedElement));
        QVERIFY(focused.isValue());
        const auto field = std::get<AccessibilityElement>(focused.value());
        line.reset();
        QVERIFY(
            !QCoro::waitFor(accessibility_->copyAttribute(field, AccessibilityAttribute::role)).isValue());
        QVERIFY(!QCoro::waitFor(accessibility_->isAttributeSettable(field, AccessibilityAttribute::value))
                     .isValue());
    }

    void anAdapterThatIsDestroyedWhileItWaitsLeavesNothingBehind() {
        const auto root = accessibility_->applicationElement(1);
        bool ended = false;
        accessibility_->copyAttribute(root, AccessibilityAttribute::focusedElement).then([&ended](auto) {
            ended = true;
        });
        auto other = std::make_unique<AtSpiAccessibility>([] { return QStringList(); });
        QVERIFY(QCoro::waitFor(other->ready()));
        const auto otherRoot = other->applicationElement(1);
        bool otherEnded = false;
        other->copyAttribute(otherRoot, AccessibilityAttribute::focusedElement).then([&otherEnded](auto) {
            otherEnded = true;
        });
        QVERIFY(!otherEnded); // it suspended
        other.reset();
        QTRY_VERIFY(otherEnded);
        QTRY_VERIFY(ended);
    }

    void aSessionWithoutAnAccessibilityBusIsNotTrusted() {
        const QDBusConnection none(QStringLiteral("no-such-bus"));
        AtSpiAccessibility lonely([] { return QStringList(); }, none);
        QVERIFY(!QCoro::waitFor(lonely.ready()));
        QVERIFY(!lonely.isProcessTrusted());
        const auto root = lonely.applicationElement(1);
        QVERIFY(
            !QCoro::waitFor(lonely.copyAttribute(root, AccessibilityAttribute::focusedElement)).isValue());
        QVERIFY(
            !QCoro::waitFor(lonely.setAttribute(root, AccessibilityAttribute::manualAccessibility, true)));
    }

    void aLostBusIsNoticedAndFoundAgain() {
        QVERIFY(accessibility_->isProcessTrusted());
        QSignalSpy changed(accessibility_.get(), &AtSpiAccessibility::trustChanged);
        const pid_t daemon = accessibilityBusProcess();
        QVERIFY(daemon > 1);
        // Its launcher does not start it again; the session bus starts another launcher when it is asked for.
        const QString sessionDaemon = QStringLiteral("org.freedesktop.DBus");
        const QDBusReply<uint> launcher = busCall(
            QDBusConnection::sessionBus(), sessionDaemon, QStringLiteral("/org/freedesktop/DBus"),
            sessionDaemon, QStringLiteral("GetConnectionUnixProcessID"), {QStringLiteral("org.a11y.Bus")});
        QVERIFY(launcher.isValid() && launcher.value() > 1);
        QCOMPARE(kill(static_cast<pid_t>(launcher.value()), SIGKILL), 0);
        kill(daemon, SIGKILL); // it may have gone with its launcher
        QTRY_VERIFY(changed.count() >= 1);
        // What the user does with the next press.
        const auto isBack = [this] {
            if (!accessibility_->isProcessTrusted())
                accessibility_->requestTrust();
            return accessibility_->isProcessTrusted();
        };
        QVERIFY(QTest::qWaitFor(isBack, 10000));
    }
};

QTEST_MAIN(OwnWindowsTest)
#include "tst_ownwindows.moc"
