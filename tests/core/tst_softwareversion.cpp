#include "VellumlineCore/SoftwareVersion.h"

#include <QTest>

using namespace vellumline;

class SoftwareVersionTest : public QObject {
    Q_OBJECT

  private Q_SLOTS:
    void versionsCompareNumberByNumber_data() {
        QTest::addColumn<QString>("one");
        QTest::addColumn<QString>("other");
        QTest::addColumn<int>("order"); // of one, seen from the other
        const auto row = [](const char* one, const char* other, int order) {
            QTest::addRow("%s and %s", one, other)
                << QString::fromLatin1(one) << QString::fromLatin1(other) << order;
        };
        row("1.0", "1.0", 0);
        row("1.0", "1.0.0", 0);
        row("1", "1.0.0.0", 0);
        row("01.02", "1.2", 0);
        row("1.2", "1.10", -1);
        row("1.10", "1.9.9", 1);
        row("2", "1.999999999", 1);
        row("1.0.1", "1.0", 1);
        row("0.1.0", "0.1.0", 0);
        row("0.0", "0", 0);
        row("1.0-beta", "1.0", -1);
        row("1.0-beta", "1.0.0", -1);
        row("1.0-beta", "0.9", 1);
        row("1.0.1-beta", "1.0", 1);
        row("1.0-alpha", "1.0-beta", -1);
        row("1.0-beta", "1.0-rc", -1);
        row("1.0-beta", "1.0-beta2", -1);
        row("1.0-beta2", "1.0-beta10", -1);
        row("1.0-beta.2", "1.0-beta.10", -1);
        row("1.0-beta.2", "1.0-beta2", 0);
        row("1.0-Beta", "1.0-beta", 0);
        row("1.0-1", "1.0-beta", -1);
        row("1.0-1", "1.0", -1);
        row("1.0-rc-1", "1.0-rc.1", 0);
    }
    void versionsCompareNumberByNumber() {
        QFETCH(const QString, one);
        QFETCH(const QString, other);
        QFETCH(const int, order);
        const auto first = SoftwareVersion::parse(one);
        const auto second = SoftwareVersion::parse(other);
        QVERIFY(first && second);
        QCOMPARE(*first <=> *second, std::weak_ordering(order <=> 0));
        QCOMPARE(*second <=> *first, std::weak_ordering(0 <=> order));
        QCOMPARE(*first == *second, order == 0);
        QCOMPARE(first->text(), one);
    }

    void whatIsNoVersionIsNotRead_data() {
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const QString& text) { QTest::newRow(name) << text; };
        row("empty", QString());
        row("a word", QStringLiteral("newest"));
        row("a letter in front", QStringLiteral("v1.0"));
        row("a dot at the end", QStringLiteral("1.0."));
        row("a dot in front", QStringLiteral(".1"));
        row("two dots", QStringLiteral("1..0"));
        row("a space", QStringLiteral("1.0 "));
        row("a line break", QStringLiteral("1.0\n"));
        row("a negative number", QStringLiteral("-1"));
        row("a plus", QStringLiteral("1.0+4"));
        row("an empty suffix", QStringLiteral("1.0-"));
        row("an empty part of the suffix", QStringLiteral("1.0-a..b"));
        row("ten digits", QStringLiteral("1234567890"));
        row("a suffix that is no 32-bit number", QStringLiteral("1.0-4294967296"));
        row("nine numbers", QStringLiteral("1.2.3.4.5.6.7.8.9"));
        row("digits of another script", QStringLiteral("١.٢"));
        row("a letter of another script", QStringLiteral("1.0-bêta"));
        row("65 characters", QStringLiteral("1-") + QString(63, QLatin1Char('a')));
    }
    void whatIsNoVersionIsNotRead() {
        QFETCH(const QString, text);
        QVERIFY(!SoftwareVersion::parse(text));
    }

    void theLongestTextIsRead() {
        QVERIFY(SoftwareVersion::parse(QStringLiteral("1-") + QString(62, QLatin1Char('a'))));
        QVERIFY(SoftwareVersion::parse(QStringLiteral("1-4294967295")));
        QVERIFY(SoftwareVersion::parse(QStringLiteral("1.2.3.4.5.6.7.8")));
    }
};

QTEST_GUILESS_MAIN(SoftwareVersionTest)
#include "tst_softwareversion.moc"
