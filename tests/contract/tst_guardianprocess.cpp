#include "Vellumline/Platform/Linux/GuardianProcess.h"

#include <QCoroTask>
#include <QFileInfo>
#include <QTest>
#include <csignal>

using namespace vellumline;

namespace {

PasteboardItem item(const QByteArray& bytes) {
    PasteboardItem made;
    made.representations.append({QStringLiteral("image/png"), bytes, QStringLiteral("STRING"), 16});
    made.set(PasteboardType::string, "text");
    return made;
}

QString program() {
    return QStringLiteral(VELLUMLINE_GUARDIAN);
}

} // namespace

/// What the program sees of its guardian. That the clipboard comes back is seen from outside, by killed.py.
class GuardianProcessTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void whatIsHeldIsReadAsItWas() {
        const QList<PasteboardItem> items{item(QByteArray(100000, '\0')), item({}), {}};
        const auto read = guardianMessages::decode(guardianMessages::encode(items));
        QVERIFY(read);
        QVERIFY(*read == items);
        QVERIFY(guardianMessages::decode(guardianMessages::encode({}))->isEmpty());
    }

    void whatIsNoClipboardIsNotRead() {
        const QByteArray good = guardianMessages::encode({item("bytes")});
        QVERIFY(!guardianMessages::decode({}));
        QVERIFY(!guardianMessages::decode("something else"));
        for (qsizetype length = 0; length < good.size(); ++length)
            QVERIFY(!guardianMessages::decode(good.left(length)));
        QVERIFY(!guardianMessages::decode(good + '\0'));
        QByteArray many = good;
        many.replace(4, 4, QByteArray(4, '\xff'));
        QVERIFY(!guardianMessages::decode(many));
    }

    void itTakesWhatItIsGiven() {
        GuardianProcess guardian(program());
        QVERIFY(guardian.start());
        for (const int size : {0, 10, 1 << 20, 40 << 20}) {
            QCoro::waitFor(guardian.hold({item(QByteArray(size, 'x'))}));
            QVERIFY(guardian.isRunning());
            guardian.settle();
            guardian.borrow();
            guardian.forget();
        }
    }

    void itEndsWithTheProgramWhenItHoldsNothing() {
        qint64 process = 0;
        {
            GuardianProcess guardian(program());
            QVERIFY(guardian.start());
            process = guardian.processIdentifier();
            QCoro::waitFor(guardian.hold({item("x")}));
            guardian.forget();
        }
        QTRY_VERIFY(!QFileInfo::exists(QStringLiteral("/proc/%1/fd/0").arg(process)));
    }

    void withoutTheProgramNothingIsHeldAndNothingFails() {
        GuardianProcess guardian(QStringLiteral("/nonexistent/guardian"));
        QVERIFY(!guardian.start());
        QCoro::waitFor(guardian.hold({item("x")}));
        guardian.settle();
        QVERIFY(!guardian.isRunning());
    }

    void aGuardianThatHangsIsNotWaitedForLong() {
        GuardianProcess guardian(program());
        QVERIFY(guardian.start());
        kill(static_cast<pid_t>(guardian.processIdentifier()), SIGSTOP);
        QCoro::waitFor(guardian.hold({item("x")})); // would never come back otherwise
        for (int i = 0; i < 5000; ++i)
            guardian.borrow(); // more than its queue takes
        kill(static_cast<pid_t>(guardian.processIdentifier()), SIGKILL);
        kill(static_cast<pid_t>(guardian.processIdentifier()), SIGCONT);
        QCoro::waitFor(guardian.hold({item("x")}));
        QVERIFY(!guardian.isRunning());
    }

    void aGuardianThatHasDiedIsDoneWithout() {
        GuardianProcess guardian(program());
        QVERIFY(guardian.start());
        kill(static_cast<pid_t>(guardian.processIdentifier()), SIGKILL);
        QTRY_VERIFY(!guardian.isRunning());
        QCoro::waitFor(guardian.hold({item("x")}));
        guardian.settle();
    }
};

QTEST_GUILESS_MAIN(GuardianProcessTest)
#include "tst_guardianprocess.moc"
