#include "VellumlineService/Correction/Engines.h"
#include "VellumlineService/Correction/RulesEngine.h"
#include "VellumlineService/Correction/SlipCost.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <thread>

using namespace vellumline;

class CorrectionEngineTest : public QObject {
    Q_OBJECT

    RulesEngine engine_;
    QString correct(const QString& text) {
        const CorrectionResult result = engine_.correct(text);
        return result.status == CorrectionResult::Status::corrected ? result.text
                                                                    : QStringLiteral("<no answer>");
    }

  private Q_SLOTS:
    void wrongTextBecomesRight_data() {
        QTest::addColumn<QString>("wrong");
        QTest::addColumn<QString>("right");
        const auto row = [](const char* name, const char* wrong, const char* right) {
            QTest::newRow(name) << QString::fromUtf8(wrong) << QString::fromUtf8(right);
        };
        row("the practice sentence", "i has went to the shop yesterday and buyed three apple.",
            "I went to the shop yesterday and bought three apples.");
        row("a doubled word", "Please read the the instructions.", "Please read the instructions.");
        row("a dropped letter", "Could you foward this to the team?", "Could you forward this to the team?");
        row("a doubled letter missing", "Our company has a new adress.", "Our company has a new address.");
        row("a misspelt first word", "Tommorow I have an appointment.", "Tomorrow I have an appointment.");
        row("an apostrophe", "They arent ready and I dont know why.",
            "They aren't ready and I don't know why.");
        row("an irregular past", "She teached me a song.", "She taught me a song.");
        row("had with a past form", "He had went home.", "He had gone home.");
        row("a verb after I", "I has a dog.", "I have a dog.");
        row("a verb after he", "He go to school.", "He goes to school.");
        row("don't after he", "He don't know the answer.", "He doesn't know the answer.");
        row("was after we", "We was waiting for the bus.", "We were waiting for the bus.");
        row("each with have", "Every student have to register.", "Every student has to register.");
        row("there was many", "There was three cars in front of us.",
            "There were three cars in front of us.");
        row("a past after didn't", "They didn't came to the party.", "They didn't come to the party.");
        row("a past after did you", "Did you ate breakfast?", "Did you eat breakfast?");
        row("of for have", "I must of left it at home.", "I must have left it at home.");
        row("a number and a singular", "I ordered three pizza for tonight.",
            "I ordered three pizzas for tonight.");
        row("a before a vowel", "It is a apple.", "It is an apple.");
        row("an before a consonant's sound", "He is an useful member of the team.",
            "He is a useful member of the team.");
        row("then for than", "It is better then nothing.", "It is better than nothing.");
        row("too for to", "They need too decide soon.", "They need to decide soon.");
        row("loose for lose", "Don't loose your ticket.", "Don't lose your ticket.");
        row("a day's capital", "The office is closed on sunday.", "The office is closed on Sunday.");
        row("the words around choose the word", "She signed the leter before the guests arived.",
            "She signed the letter before the guests arrived.");
        row("a sound written otherwise", "The fotograph hangs in the hallway.",
            "The photograph hangs in the hallway.");
        row("a neighbouring key", "We moved the meeting to next wrek.", "We moved the meeting to next week.");
        row("swapped letters", "The trian was late again.", "The train was late again.");
        row("a missing space", "He stood infront of the door.", "He stood in front of the door.");
        row("words run together", "I will see you ofcourse.", "I will see you of course.");
        row("a name in small letters", "We flew to germany in the spring.",
            "We flew to Germany in the spring.");
        row("a British text gets British spelling", "The colour of the centre was my favorit.",
            "The colour of the centre was my favourite.");
        row("an American text gets American spelling", "The color of the center was my favorit.",
            "The color of the center was my favorite.");
        row("their for there", "Is their a bank near the hotel?", "Is there a bank near the hotel?");
        row("there for their", "The neighbors painted there house.", "The neighbors painted their house.");
        row("form for from", "He came home form work at six.", "He came home from work at six.");
        row("quiet for quite", "The soup was quiet good.", "The soup was quite good.");
        row("your for you're", "Call me when your ready to go.", "Call me when you're ready to go.");
        row("its for it's", "I think its going to rain.", "I think it's going to rain.");
        row("a tree for three", "We waited for tree hours.", "We waited for three hours.");
        row("no for know", "I do not no the answer.", "I do not know the answer.");
        row("curly apostrophes stay curly", "It’s fine but they arent here.",
            "It’s fine but they aren’t here.");
        row("a second sentence", "It is late. we go home.", "It is late. We go home.");
    }
    void wrongTextBecomesRight() {
        QFETCH(QString, wrong);
        QFETCH(QString, right);
        QCOMPARE(correct(wrong), right);
        QCOMPARE(correct(right), right);
    }

    void whatIsNotOursStays_data() {
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char* text) {
            QTest::newRow(name) << QString::fromUtf8(text);
        };
        row("nothing", "");
        row("blanks and tabs", "  \t a tab\t\tand   blanks  \n\n");
        row("CR LF", "One line.\r\nAnother line.\r\n");
        row("a trailing newline", "It is fine.\n");
        row("no trailing newline", "It is fine.");
        row("an address", "The docs are at http://docs.exmaple.org/v2/giude.html#instal.");
        row("a mail address", "Write to suport@mial.example.net if it fails.");
        row("paths", "Copy ~/notse/todo.txt to /var/bakcups/ or D:\\Projcts\\main.cpp first.");
        row("code", "The variable maxRetryCuont is set in parse_agrs for the .evn file.");
        row("a statement", "if (count == 0) { return flase; }");
        row("names", "Dr. Okonkwo met Szymon in Gdynia.");
        row("capitals", "We use the SMTPX and the XQRT here.");
        row("digits", "Room 4b is on the 2nd floor of b2b3.");
        row("names with a sign", "Ask @mraia or post it in #radnom now.");
        row("straight and curly quotes", "\"It's\" and ‘It’s fine,’ she said.");
        row("a word that is talked about", "The word 'recieve' is a common misspelling.");
        row("words that look like others",
            "The quiet form of the tree was there, and their principal lost it.");
        row("a rare plural", "The cofounders praised the brevities of the style.");
        row("a note", "* buy milk");
        row("British spelling", "The organisation recognises its neighbours' behaviour.");
        row("a subjunctive", "I suggest that she have a look.");
        row("an emoji", "Thanks so much \xF0\x9F\x98\x8A\xF0\x9F\x8E\x89");
        row("another language", "Ich habe gestern einen langen Spaziergang gemacht.");
        row("a heir and a unit", "An heir, a unit, an SMS and a eulogy.");
        row("a wrapped line", "This sentence goes on\nin the next line.");
    }
    void whatIsNotOursStays() {
        QFETCH(QString, text);
        QCOMPARE(correct(text), text);
    }

    void slipsAreCheaperThanStrangers() {
        const auto cost = [](const char* a, const char* b) { return slipCost(a, b, 3.0); };
        QCOMPARE(cost("word", "word"), 0.0);
        QVERIFY(cost("adress", "address") < cost("adress", "dress"));
        QVERIFY(cost("teh", "the") < cost("teh", "tea"));
        QVERIFY(cost("hte", "the") < cost("hte", "he"));
        QVERIFY(cost("grammer", "grammar") < cost("grammer", "gammer"));
        QVERIFY(cost("worf", "word") < cost("worp", "word"));
    }
    void oneEngineServesManyThreads() {
        const QString wrong = QStringLiteral("i has went to the shop yesterday and buyed three apple.");
        const QString right = correct(wrong);
        std::atomic<int> different = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 20; ++i) {
                    different += correct(wrong) == right ? 0 : 1;
                    different +=
                        correct(QStringLiteral("A recieved leter%1 zzyx.").arg(t * 100 + i)).isEmpty() ? 1
                                                                                                       : 0;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        QCOMPARE(different.load(), 0);
    }
    void everyRuleHasAKebabCaseNameOfItsOwn() {
        QSet<QString> seen;
        const QStringList names = RulesEngine::ruleNames();
        for (const QString& name : names) {
            static const QRegularExpression kebab(QStringLiteral("^[a-z]+(-[a-z]+)*$"));
            QVERIFY2(kebab.match(name).hasMatch(), qPrintable(name));
            QVERIFY2(!seen.contains(name), qPrintable(name));
            seen.insert(name);
        }
    }
    void aRuleCanBeSwitchedOff() {
        RulesEngine without({QStringLiteral("spelling")});
        QCOMPARE(without.correct(QStringLiteral("A recieved leter is a apple.")).text,
                 QStringLiteral("A recieved leter is an apple."));
        QCOMPARE(RulesEngine::unknownRules({QStringLiteral("spelling"), QStringLiteral("speling")}),
                 QStringList{QStringLiteral("speling")});
    }
    void changesNameTheirRule() {
        std::vector<CorrectionChange> changes;
        const auto result = engine_.correct(QStringLiteral("It is a apple.\nRead the the letter."), changes);
        QCOMPARE(result.text, QStringLiteral("It is an apple.\nRead the letter."));
        QCOMPARE(changes.size(), size_t{2});
        QCOMPARE(changes.at(0).rule, QStringLiteral("a-an"));
        QCOMPARE(changes.at(0).before, QStringLiteral("a"));
        QCOMPARE(changes.at(0).after, QStringLiteral("an"));
        QVERIFY(!changes.at(0).why.isEmpty());
        QCOMPARE(changes.at(1).rule, QStringLiteral("doubled-word"));
        QCOMPARE(changes.at(1).before, QStringLiteral("the the"));
        QCOMPARE(changes.at(1).after, QStringLiteral("the"));
    }
    void enginesAreKnownByName() {
        for (const QString& name : correctionEngineNames()) {
            QVERIFY2(makeCorrectionEngine(name) != nullptr, qPrintable(name));
        }
        QVERIFY(makeCorrectionEngine(QStringLiteral("nonsense")) == nullptr);
    }
};

QTEST_GUILESS_MAIN(CorrectionEngineTest)
#include "tst_correction_engine.moc"
