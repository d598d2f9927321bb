#include "VellumlineService/Correction/Inflections.h"
#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/RulesEngine.h"
#include "VellumlineService/Correction/SentenceScorer.h"
#include "VellumlineService/Correction/Tagger.h"
#include "VellumlineService/Training/ModelBuilder.h"

#include <QTemporaryDir>
#include <QTest>
#include <thread>

using namespace vellumline;

class LanguageModelTest : public QObject {
    Q_OBJECT

    QTemporaryDir folder_;
    Inflections inflections_;
    Tagger tagger_{inflections_};
    QString path(const char* name) const { return folder_.filePath(QString::fromLatin1(name)); }

    bool build(const QString& to) {
        ModelBuilder builder;
        for (int i = 0; i < 10; ++i) {
            builder.addLine(QStringLiteral("The cat sat on the mat."), 1);
            builder.addLine(QStringLiteral("The dog sat on the rug, and the cat left."), 1);
            builder.addLine(QStringLiteral("We met in Gdynia in 1998."), 2);
        }
        builder.addListedWord(QStringLiteral("unheard"), LanguageModel::americanWord);
        builder.addListedWord(QStringLiteral("Gdynia"), LanguageModel::britishWord);
        QString report;
        return builder.write(to, {}, &report);
    }
    std::unique_ptr<LanguageModel> model() {
        QString error;
        return build(path("small.model")) ? LanguageModel::open(path("small.model"), &error) : nullptr;
    }
    QByteArray bytes(const QString& of) {
        QFile file(of);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

  private Q_SLOTS:
    void wordsKeepTheirCountsAndFlags() {
        const auto made = model();
        QVERIFY(made);
        const int cat = made->find("cat");
        QVERIFY(cat >= 0);
        QVERIFY(qAbs(made->frequency(cat) - 20) <= 1);
        QCOMPARE(made->text(cat), QByteArrayView("cat"));
        QCOMPARE(made->find("ca"), -1);
        QCOMPARE(made->find("cats"), -1);
        QCOMPARE(made->find(""), -1);
        QCOMPARE(made->flags(made->find("unheard")), quint8(LanguageModel::americanWord));
        QCOMPARE(made->frequency(made->find("unheard")), 0);
        QCOMPARE(made->gramWord("unheard"), modelformat::unknownWord);
        QCOMPARE(made->flags(made->find("gdynia")),
                 quint8(LanguageModel::britishWord | LanguageModel::capitalWord));
        for (int i = 1; i < made->wordCount(); ++i) {
            QVERIFY(made->text(i - 1).toByteArray() < made->text(i).toByteArray());
        }
    }
    void probabilitiesFollowTheTexts() {
        const auto made = model();
        QVERIFY(made);
        const auto after = [&](std::initializer_list<const char*> context, const char* word) {
            std::vector<LanguageModel::Word> words;
            for (const char* one : context) {
                words.push_back(made->gramWord(one));
            }
            return made->logProbability(words, made->gramWord(word));
        };
        QVERIFY(after({"on", "the"}, "mat") > after({"on", "the"}, "dog"));
        QVERIFY(after({"sat"}, "on") > -0.3);
        QVERIFY(after({"sat"}, "rug") < after({}, "rug"));
        QVERIFY(after({"sat", "on", "the"}, "mat") > -1.2);
        // All that can follow has a probability of about one together; the steps of the logarithms leave some
        // room.
        double sum = 0;
        std::vector<LanguageModel::Word> context = {made->gramWord("the")};
        for (int i = 0; i < made->wordCount(); ++i) {
            if (made->gramWord(i) != modelformat::unknownWord) {
                sum += std::exp(made->logProbability(context, made->gramWord(i)));
            }
        }
        QVERIFY2(sum > 0.75 && sum < 1.2, qPrintable(QString::number(sum)));
    }
    void aLikelierWordGains() {
        const auto made = model();
        QVERIFY(made);
        const Line line(QStringLiteral("The dog sat on the cat."), true, tagger_);
        const SentenceScorer scorer(*made, line);
        QVERIFY(scorer.gain(5, QStringLiteral("rug")) > 0.5);
        QVERIFY(scorer.gain(3, QStringLiteral("mat")) < -2);
        QCOMPARE(scorer.gain(5, QStringLiteral("cat")), 0.0);
        QVERIFY(scorer.gain(4, 1, {}) < 0);
        QVERIFY(scorer.gain(2, 1, {QStringLiteral("sat"), QStringLiteral("sat")}) < 0);
        QCOMPARE(scorer.gain(6, QStringLiteral("cat")), 0.0);
        QCOMPARE(scorer.gain(-1, QStringLiteral("cat")), 0.0);
    }
    void theSameTextsMakeTheSameBytes() {
        QVERIFY(build(path("first.model")));
        QVERIFY(build(path("second.model")));
        QVERIFY(!bytes(path("first.model")).isEmpty());
        QCOMPARE(bytes(path("first.model")), bytes(path("second.model")));
    }
    void aDamagedFileIsRefusedWithAReason() {
        QVERIFY(build(path("whole.model")));
        const QByteArray whole = bytes(path("whole.model"));
        const auto refused = [&](const QByteArray& content, const char* what) {
            QFile file(path("damaged.model"));
            QString error;
            return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush() &&
                   !LanguageModel::open(file.fileName(), &error) &&
                   error.contains(QString::fromLatin1(what)) && error.contains(file.fileName());
        };
        QVERIFY(refused({}, "too short"));
        QVERIFY(refused("no model", "too short"));
        QVERIFY(refused(QByteArray(whole).replace(0, 1, "X"), "no language model"));
        QVERIFY(refused(whole.chopped(1), "bytes and should have"));
        QVERIFY(refused(whole + '\0', "bytes and should have"));
        for (qsizetype at = sizeof(modelformat::Header); at < whole.size(); at += 17) {
            QByteArray changed = whole;
            changed[at] = static_cast<char>(changed.at(at) ^ 0x20);
            QVERIFY2(refused(changed, "damaged"), qPrintable(QString::number(at)));
        }
        QString error;
        QVERIFY(!LanguageModel::open(path("missing.model"), &error));
        QVERIFY(error.contains(QStringLiteral("missing.model")));
    }
    void aHeaderThatLiesIsRefused() {
        QVERIFY(build(path("honest.model")));
        const QByteArray honest = bytes(path("honest.model"));
        // The checksum covers what follows the header, so every number of the header is checked by itself.
        for (qsizetype at = 24; at < qsizetype(sizeof(modelformat::Header)); ++at) {
            for (const char value : {'\0', '\1', '\x7f', '\xff'}) {
                QByteArray changed = honest;
                changed[at] = value;
                QFile file(path("lying.model"));
                QVERIFY(file.open(QIODevice::WriteOnly) && file.write(changed) == changed.size() &&
                        file.flush());
                QString error;
                // A changed seed is not noticed and does no harm: every probability can still be asked for.
                if (const auto opened = LanguageModel::open(file.fileName(), &error)) {
                    for (int word = 0; word < opened->wordCount(); ++word) {
                        const LanguageModel::Word number = opened->gramWord(word);
                        const std::vector<LanguageModel::Word> context(3, number);
                        QVERIFY(opened->logProbability(context, number) <= 0);
                    }
                }
            }
        }
    }
    void anEngineWithoutItsModelIsUnavailable() {
        QVERIFY(qputenv("VELLUMLINE_MODELS", path("nowhere").toLocal8Bit()));
        RulesEngine engine;
        qunsetenv("VELLUMLINE_MODELS");
        QCOMPARE(engine.correct(QStringLiteral("It is late.")).status, CorrectionResult::Status::unavailable);
        QVERIFY(engine.problem().contains(QStringLiteral("en.model")));
    }
    void oneModelServesManyThreads() {
        const auto made = model();
        QVERIFY(made);
        const Line line(QStringLiteral("The dog sat on the cat."), true, tagger_);
        const double expected = SentenceScorer(*made, line).gain(5, QStringLiteral("rug"));
        std::atomic<int> different = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 500; ++i) {
                    different +=
                        SentenceScorer(*made, line).gain(5, QStringLiteral("rug")) == expected ? 0 : 1;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(different.load(), 0);
    }
};

QTEST_GUILESS_MAIN(LanguageModelTest)
#include "tst_language_model.moc"
