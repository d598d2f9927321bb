// What the built-in correction engine takes: time to its first answer, time for a sentence, memory, and
// sentences a second by threads.
//
//   bench_engine [FILE]     a sentence a line; without it sentences made here, half of them with a slip of a
//   key
#include "VellumlineService/Correction/RulesEngine.h"

#include <QFile>
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <random>
#include <sys/resource.h>
#include <thread>

using namespace vellumline;

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// Of this thread alone: on a busy machine the clock on the wall also counts the others.
double processorMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

/// The time below which a part of the times is.
double quantile(std::vector<double> times, double part) {
    std::sort(times.begin(), times.end());
    return times[static_cast<size_t>(std::floor(part * static_cast<double>(times.size() - 1)))];
}

void print(const char* what, const std::vector<double>& times) {
    std::printf("a sentence, %s  median %.3f ms, p99 %.3f ms, longest %.3f ms\n", what, quantile(times, 0.5),
                quantile(times, 0.99), quantile(times, 1));
}

/// With a slip of a key: a letter left out, or two in the wrong order.
QString slipped(QString word, std::mt19937* random) {
    if (word.size() < 5) {
        return word;
    }
    const auto at = static_cast<qsizetype>(1 + (*random)() % static_cast<unsigned>(word.size() - 2));
    if ((*random)() % 2 == 0) {
        return word.remove(at, 1);
    }
    const QChar letter = word.at(at);
    return word.remove(at, 1).insert(at - 1, letter);
}

QStringList madeSentences() {
    const auto words = [](const char* text) { return QString::fromLatin1(text).split(u'|'); };
    const std::array parts = {
        words("The manager|My neighbour|A customer|The new teacher|One of the visitors|Her younger brother|"
              "The committee|Our landlord"),
        words("promised|decided|wanted|refused|managed|forgot|offered|agreed"),
        words("to finish|to explain|to collect|to compare|to translate|to measure|to repair|to publish"),
        words("the report|a photograph|every document|the old furniture|his favourite recipe|the schedule|"
              "another machine|the remaining tickets"),
        words("before lunch|on Thursday morning|without any help|because of the weather|in the library|"
              "during the holidays|for a friend|as soon as possible"),
        words("and told everybody about it|but nobody was interested|although it was expensive|"
              "while the others were waiting|so that we could leave earlier|which surprised the whole family|"
              "as the letter had requested|when the building was empty"),
    };
    std::mt19937 random(1); // Always the same ones.
    QStringList made;
    for (int i = 0; i < 2000; ++i) {
        QStringList sentence;
        for (const QStringList& part : parts) {
            sentence +=
                part.at(static_cast<qsizetype>(random() % static_cast<unsigned>(part.size()))).split(u' ');
        }
        if (i % 2 == 0) {
            QString& word =
                sentence[static_cast<qsizetype>(random() % static_cast<unsigned>(sentence.size()))];
            word = slipped(word, &random);
        }
        made.append(sentence.join(u' ') + u'.');
    }
    return made;
}

QStringList sentencesOf(const char* path) {
    QFile file(QString::fromLocal8Bit(path));
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "bench_engine: %s cannot be read.\n", path);
        std::exit(1);
    }
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

/// In MB, of /proc/self/smaps_rollup.
double memory(const QByteArray& name) {
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    double kilobytes = 0;
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray& line : lines) {
            if (line.startsWith(name + ':')) {
                kilobytes = line.mid(name.size() + 1).simplified().split(' ').first().toDouble();
            }
        }
    }
    return kilobytes / 1024;
}

void printThroughput(RulesEngine& engine, const QStringList& sentences, int threads) {
    constexpr double leastTime = 2000;
    std::atomic<qsizetype> next = 0;
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const auto begin = Clock::now();
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&] {
            while (millisecondsSince(begin) < leastTime) {
                engine.correct(sentences.at(next++ % sentences.size()));
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    const double seconds = millisecondsSince(begin) / 1000;
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const auto used = [](const rusage& usage) {
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    };
    // A wait of one thread for another is a switch that it asked for.
    const auto done = static_cast<double>(next);
    std::printf(
        "%2d thread%s  %6.0f sentences/s, %6.0f for each second of processor time; waits: %.2f of 1000\n",
        threads, threads == 1 ? ": " : "s:", done / seconds, done / (used(after) - used(before)),
        static_cast<double>(after.ru_nvcsw - before.ru_nvcsw) * 1000 / done);
}

} // namespace

int main(int count, char** arguments) {
    const QStringList sentences = count > 1 ? sentencesOf(arguments[1]) : madeSentences();
    if (sentences.isEmpty()) {
        std::fputs("bench_engine: there is no sentence.\n", stderr);
        return 1;
    }
    const auto begin = Clock::now();
    RulesEngine engine;
    if (engine.correct(QStringLiteral("It is raedy.")).status != CorrectionResult::Status::corrected) {
        std::fprintf(stderr, "bench_engine: %s\n", qPrintable(engine.problem()));
        return 1;
    }
    std::printf("first answer after      %8.1f ms   (processor: %.1f ms)\n", millisecondsSince(begin),
                processorMilliseconds());

    std::vector<double> times;
    std::vector<double> processorTimes;
    int changed = 0;
    for (const QString& sentence : sentences) {
        const auto start = Clock::now();
        const double processorStart = processorMilliseconds();
        const CorrectionResult result = engine.correct(sentence);
        processorTimes.push_back(processorMilliseconds() - processorStart);
        times.push_back(millisecondsSince(start));
        changed += result.text == sentence ? 0 : 1;
    }
    std::printf("sentences               %8d   (%d changed)\n", static_cast<int>(times.size()), changed);
    print("clock:    ", times);
    print("processor:", processorTimes);
    for (int threads = 1; threads <= std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
         threads *= 2) {
        printThroughput(engine, sentences, threads);
    }
    std::printf("memory, Rss             %8.1f MB\n", memory("Rss"));
    std::printf("memory, Pss             %8.1f MB\n", memory("Pss"));
    return 0;
}
