#include "VellumlineService/Correction/Inflections.h"
#include "VellumlineService/Correction/Line.h"
#include "VellumlineService/Correction/Tagger.h"

#include <QElapsedTimer>
#include <QTest>
#include <thread>

using namespace vellumline;

class WordKnowledgeTest : public QObject {
    Q_OBJECT

    Inflections inflections_;
    Tagger tagger_{inflections_};

    QString form(const char* lemma, Form wanted) const {
        return inflections_.form(QString::fromLatin1(lemma), wanted);
    }
    QString lemma(const char* word, Form form) const {
        return inflections_.lemma(QString::fromLatin1(word), form);
    }
    std::vector<Tag> tagsOf(const char* text) const {
        const Line line(QString::fromUtf8(text), true, tagger_);
        std::vector<Tag> tags;
        for (int i = 0; i < line.wordCount(); ++i) {
            tags.push_back(line.tag(i));
        }
        return tags;
    }

  private Q_SLOTS:
    void verbsNounsAndAdjectivesAreInflected() {
        QCOMPARE(form("buy", Form::past), QStringLiteral("bought"));
        QCOMPARE(form("go", Form::participle), QStringLiteral("gone"));
        QCOMPARE(form("go", Form::thirdPerson), QStringLiteral("goes"));
        QCOMPARE(form("write", Form::gerund), QStringLiteral("writing"));
        QCOMPARE(form("child", Form::plural), QStringLiteral("children"));
        QCOMPARE(form("box", Form::plural), QStringLiteral("boxes"));
        QCOMPARE(form("hot", Form::comparative), QStringLiteral("hotter"));
        QCOMPARE(form("travel", Form::past), QStringLiteral("traveled"));
        QVERIFY(form("xyzzy", Form::plural).isEmpty());
    }
    void formsLeadBackToTheirLemma() {
        QCOMPARE(lemma("bought", Form::past), QStringLiteral("buy"));
        QCOMPARE(lemma("travelled", Form::past), QStringLiteral("travel"));
        QCOMPARE(lemma("children", Form::plural), QStringLiteral("child"));
        QVERIFY(lemma("bought", Form::plural).isEmpty());
        QVERIFY(inflections_.is(QStringLiteral("knives"), Form::plural));
        QVERIFY(!inflections_.is(QStringLiteral("knife"), Form::plural));
    }
    void countedAndUncountedNounsAreToldApart() {
        for (const char* noun : {"chair", "book", "student", "apple"}) {
            QVERIFY2(inflections_.isCounted(QString::fromLatin1(noun)), noun);
        }
        for (const char* noun : {"furniture", "information", "advice"}) {
            QVERIFY2(inflections_.isUncounted(QString::fromLatin1(noun)), noun);
        }
    }
    void wordsGetTheirPartOfSpeech() {
        QCOMPARE(tagsOf("She writes long letters."),
                 (std::vector{Tag::pronoun, Tag::thirdPersonVerb, Tag::adjective, Tag::pluralNoun}));
        QCOMPARE(tagsOf("The dog can run."),
                 (std::vector{Tag::determiner, Tag::noun, Tag::modal, Tag::baseVerb}));
        QCOMPARE(tagsOf("They have gone to Paris."),
                 (std::vector{Tag::pronoun, Tag::presentVerb, Tag::participle, Tag::preposition, Tag::name}));
    }
    void contractionsHaveTwoParts() {
        const Line line(QStringLiteral("John’s sister doesn’t know."), true, tagger_);
        QCOMPARE(line.tag(0), Tag::name);
        QCOMPARE(line.cliticTag(0), Tag::possessive);
        QCOMPARE(line.tag(2), Tag::thirdPersonVerb);
        QCOMPARE(line.cliticTag(2), Tag::adverb);
        QCOMPARE(line.cliticTag(1), Tag::other);
    }
    void everySentenceOfALineIsTaggedByItself() {
        QCOMPARE(tagsOf("It works. She runs."),
                 (std::vector{Tag::pronoun, Tag::thirdPersonVerb, Tag::pronoun, Tag::thirdPersonVerb}));
    }
    void oddTextIsTaggedToo() {
        QVERIFY(tagsOf("").empty());
        QCOMPARE(tagsOf("… — 12 %").size(), size_t{0});
        QCOMPARE(tagsOf("é").size(), size_t{1});
        QCOMPARE(tagsOf("\xF0\x9F\x98\x8A I smile").size(), size_t{2});
    }
    void aTaggerServesManyThreads() {
        const auto wanted = tagsOf("The old man who lives next door has never liked our dogs.");
        std::atomic<int> different = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 50; ++i) {
                    different +=
                        tagsOf("The old man who lives next door has never liked our dogs.") == wanted ? 0 : 1;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(different.load(), 0);
    }
    void aSentenceIsTaggedQuickly() {
        const char* sentence =
            "The committee that was chosen by the members last year has decided, after a long "
            "and tiring discussion, to publish its findings before the end of the month.";
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 100; ++i) {
            tagsOf(sentence);
        }
        // Measured: 0.06 ms in a release build. The bound holds for builds with sanitizers on busy machines
        // too.
        QVERIFY2(timer.nsecsElapsed() / 100 < 10'000'000, "tagging became slow");
    }
};

QTEST_GUILESS_MAIN(WordKnowledgeTest)
#include "tst_word_knowledge.moc"
