// The service corrects the texts of its users on as many threads as there are cores, with one engine.
// Standard threads, none of Qt's, so that ThreadSanitizer sees all that orders them; and nothing of the
// engine is warm before they start at once.
#include "VellumlineService/Correction/RulesEngine.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <array>
#include <functional>
#include <latch>
#include <thread>

using namespace vellumline;

class EngineThreadsTest : public QObject {
    Q_OBJECT

    static constexpr int threads = 4;

    /// Runs it on every thread; none begins before all are there.
    static void onAllThreads(const std::function<void(int thread)>& work) {
        std::latch start(threads);
        std::vector<std::thread> running;
        running.reserve(threads);
        for (int thread = 0; thread < threads; ++thread) {
            running.emplace_back([&start, &work, thread] {
                start.arrive_and_wait();
                work(thread);
            });
        }
        for (std::thread& each : running) {
            each.join();
        }
    }
    /// Misspelt words that all threads meet, words that only one of them does, and two languages.
    static QString wrongText(int thread, int round) {
        switch ((thread + round) % 4) {
        case 0:
            return QString::fromUtf8("She has went to the shop and recieved leter%1%2.")
                .arg(thread)
                .arg(round);
        case 1:
            return QString::fromUtf8("Tommorow we buyed three apple, numbr%1 of zzyx%2.")
                .arg(round)
                .arg(thread);
        case 2:
            return QString::fromUtf8("Ich habe gestern einen langen Spatziergang gemacht und war müde.");
        default:
            return QString::fromUtf8("Could you foward this adress to the the team befor sunday?");
        }
    }

  private Q_SLOTS:
    void aColdEngineServesManyThreadsAtOnce() {
        constexpr int rounds = 12;
        std::array<std::array<QString, rounds>, threads> made;
        {
            RulesEngine engine;
            QCOMPARE(engine.problem(), QString());
            onAllThreads([&engine, &made](int thread) {
                for (int round = 0; round < rounds; ++round) {
                    made.at(static_cast<size_t>(thread)).at(static_cast<size_t>(round)) =
                        engine.correct(wrongText(thread, round)).text;
                }
            });
        }
        RulesEngine alone;
        for (int thread = 0; thread < threads; ++thread) {
            for (int round = 0; round < rounds; ++round) {
                QCOMPARE(made.at(static_cast<size_t>(thread)).at(static_cast<size_t>(round)),
                         alone.correct(wrongText(thread, round)).text);
            }
        }
    }
    void thePersonalDictionaryChangesWhileManyThreadsRead() {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("words.txt"));
        RulesEngine engine(RulesEngineSettings{{}, {}, path});
        std::array<int, threads> strange{};
        onAllThreads([&](int thread) {
            for (int round = 0; round < 30; ++round) {
                if (thread == 0) {
                    QFile file(path);
                    if (file.open(QIODevice::WriteOnly)) {
                        file.write(round % 2 == 0 ? "recieve\n" : "another word\n");
                    }
                    continue;
                }
                const QString text = engine.correct(QString::fromUtf8("We recieve it.")).text;
                if (text != QLatin1String("We recieve it.") && text != QLatin1String("We receive it.")) {
                    ++strange.at(static_cast<size_t>(thread));
                }
            }
        });
        QCOMPARE(strange, (std::array<int, threads>{}));
    }
};

QTEST_GUILESS_MAIN(EngineThreadsTest)
#include "tst_engine_threads.moc"
