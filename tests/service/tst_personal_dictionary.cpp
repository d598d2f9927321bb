#include "VellumlineService/Correction/PersonalDictionary.h"
#include "VellumlineService/Correction/RulesEngine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <thread>

using namespace vellumline;

class PersonalDictionaryTest : public QObject {
    Q_OBJECT

    QTemporaryDir folder_;
    QString path_;

    void write(const QByteArray& contents) {
        QFile file(path_);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(contents);
        file.close();
        // Two writes may fall into one tick of the file system's clock.
        static qint64 later = 0;
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(++later),
                                 QFileDevice::FileModificationTime));
    }
    QString correct(RulesEngine& engine, const char* text) {
        return engine.correct(QString::fromUtf8(text)).text;
    }

  private Q_SLOTS:
    void init() {
        path_ = folder_.filePath(QStringLiteral("dictionary.txt"));
        QFile::remove(path_);
    }

    void itsWordsAreNeverChanged() {
        RulesEngine without;
        QCOMPARE(correct(without, "The grafana recieve box is here."),
                 QStringLiteral("The grafana receive box is here."));
        write("recieve\nthier\n");
        RulesEngine engine(RulesEngineSettings{{}, {}, path_});
        QCOMPARE(correct(engine, "The grafana recieve box is here."),
                 QStringLiteral("The grafana recieve box is here."));
        QCOMPARE(correct(engine, "RECIEVE it, Recieve it, thier’s it."),
                 QStringLiteral("RECIEVE it, Recieve it, thier’s it."));
        QCOMPARE(correct(engine, "We beleive that we recieve it."),
                 QStringLiteral("We believe that we recieve it."));
    }

    void itsWordsAreWhatMisspeltWordsMayMean() {
        write("# what we work with\nZorblatt\nqwuxify\n");
        RulesEngine engine(RulesEngineSettings{{}, {}, path_});
        QCOMPARE(correct(engine, "We met in the office of qwuxfy yesterday."),
                 QStringLiteral("We met in the office of qwuxify yesterday."));
        QCOMPARE(correct(engine, "Please ask zorblat about it."),
                 QStringLiteral("Please ask Zorblatt about it."));
    }

    void aChangedFileIsReadAgain() {
        RulesEngine engine(RulesEngineSettings{{}, {}, path_});
        QCOMPARE(correct(engine, "We recieve it."), QStringLiteral("We receive it."));
        write("recieve\n");
        QCOMPARE(correct(engine, "We recieve it."), QStringLiteral("We recieve it."));
        write("something\n");
        QCOMPARE(correct(engine, "We recieve it."), QStringLiteral("We receive it."));
        write("recieve\n");
        QCOMPARE(correct(engine, "We recieve it."), QStringLiteral("We recieve it."));
        QVERIFY(QFile::remove(path_));
        QCOMPARE(correct(engine, "We recieve it."), QStringLiteral("We receive it."));
    }

    void whatIsNoWordIsPassedOver() {
        write(QByteArray("\xef\xbb\xbf") + "first\r\n\n   spaced  \n\xff\xfe\xfd\nbad\xc3\x28\n# note\n" +
              QByteArray(5000, 'x') + "\n" + QByteArray("nu\0l", 4) + "\nlast");
        const PersonalDictionary dictionary(path_);
        QVERIFY(dictionary.contains(QStringLiteral("first")));
        QVERIFY(dictionary.contains(QStringLiteral("Spaced")));
        QVERIFY(dictionary.contains(QStringLiteral("LAST")));
        QVERIFY(!dictionary.contains(QStringLiteral("# note")));
        QVERIFY(!dictionary.contains(QString(5000, u'x')));
        QVERIFY(!dictionary.contains(QString()));
        QCOMPARE(dictionary.words()->size(), 4);
    }

    void onlyTheBeginningOfAHugeFileIsRead() {
        QByteArray contents = "first\n";
        while (contents.size() < 3'000'000) {
            contents += "word" + QByteArray::number(contents.size()) + '\n';
        }
        write(contents + "last\n");
        const PersonalDictionary dictionary(path_);
        QVERIFY(dictionary.contains(QStringLiteral("first")));
        QVERIFY(!dictionary.contains(QStringLiteral("last")));
    }

    void whatIsNoFileHasNoWords() {
        QCOMPARE(PersonalDictionary(QString()).words()->size(), 0);
        QCOMPARE(PersonalDictionary(folder_.path()).words()->size(), 0);
        QCOMPARE(PersonalDictionary(QStringLiteral("/dev/zero")).words()->size(), 0);
        QCOMPARE(PersonalDictionary(folder_.filePath(QStringLiteral("missing/too"))).words()->size(), 0);
    }

    void itStandsInTheConfigurationFolder() {
        qputenv("XDG_CONFIG_HOME", folder_.path().toLocal8Bit());
        QCOMPARE(PersonalDictionary::defaultPath(),
                 folder_.filePath(QStringLiteral("vellumline/dictionary.txt")));
        QVERIFY(QDir(folder_.path()).mkpath(QStringLiteral("vellumline")));
        path_ = PersonalDictionary::defaultPath();
        write("recieve\n");
        QProcess program;
        program.start(QStringLiteral(VELLUMLINE_CORRECT_PROGRAM), QStringList());
        program.write("We recieve and beleive it.\n");
        program.closeWriteChannel();
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.readAllStandardOutput(), QByteArray("We recieve and believe it.\n"));
    }

    void itMayChangeWhileOthersRead() {
        RulesEngine engine(RulesEngineSettings{{}, {}, path_});
        std::atomic<int> strange = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 100; ++round) {
                    const QString made = engine.correct(QStringLiteral("We recieve it.")).text;
                    strange +=
                        made == QStringLiteral("We recieve it.") || made == QStringLiteral("We receive it.")
                            ? 0
                            : 1;
                }
            });
        }
        for (int round = 0; round < 20; ++round) {
            write(round % 2 == 0 ? "recieve\n" : "other\n");
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(strange.load(), 0);
    }
};

QTEST_GUILESS_MAIN(PersonalDictionaryTest)
#include "tst_personal_dictionary.moc"
