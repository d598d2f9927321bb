#include "VellumlineService/Correction/RulesEngine.h"

#include <QTest>
#include <algorithm>

using namespace vellumline;

namespace {

struct WrongText {
    const char* rule;
    const char* wrong;
    const char* right;
};

struct RightText {
    const char* rule; ///< The one that must not take it for wrong.
    const char* text;
};

const std::vector<WrongText>& wrongTexts();
const std::vector<RightText>& rightTexts();

} // namespace

class GrammarRulesTest : public QObject {
    Q_OBJECT

    RulesEngine engine_;

  private Q_SLOTS:
    void everyRuleHasTextsForBothSides() {
        const QStringList names = RulesEngine::ruleNames();
        for (const QString& name : names) {
            const auto isOfRule = [&](const auto& text) { return name == QLatin1String(text.rule); };
            QVERIFY2(std::any_of(wrongTexts().cbegin(), wrongTexts().cend(), isOfRule), qPrintable(name));
            QVERIFY2(std::any_of(rightTexts().cbegin(), rightTexts().cend(), isOfRule), qPrintable(name));
        }
    }
    void theRuleCorrectsWhatIsWrong_data() {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QString>("wrong");
        QTest::addColumn<QString>("right");
        for (const WrongText& text : wrongTexts()) {
            QTest::addRow("%s: %s", text.rule, text.wrong)
                << QString::fromUtf8(text.rule) << QString::fromUtf8(text.wrong)
                << QString::fromUtf8(text.right);
        }
    }
    void theRuleCorrectsWhatIsWrong() {
        QFETCH(QString, rule);
        QFETCH(QString, wrong);
        QFETCH(QString, right);
        std::vector<CorrectionChange> changes;
        QCOMPARE(engine_.correct(wrong, changes).text, right);
        const bool named = std::any_of(changes.cbegin(), changes.cend(),
                                       [&](const CorrectionChange& change) { return change.rule == rule; });
        QVERIFY2(named, "another rule made the change");
        QCOMPARE(engine_.correct(right).text, right);
    }
    void whatIsRightStays_data() {
        QTest::addColumn<QString>("text");
        for (const RightText& text : rightTexts()) {
            QTest::addRow("%s: %s", text.rule, text.text) << QString::fromUtf8(text.text);
        }
    }
    void whatIsRightStays() {
        QFETCH(QString, text);
        QCOMPARE(engine_.correct(text).text, text);
    }
};

namespace {

const std::vector<WrongText>& wrongTexts() {
    static const std::vector<WrongText> texts = {
        {"doubled-word", "Put it on the the shelf.", "Put it on the shelf."},
        {"known-slip", "We didnt see the sign.", "We didn't see the sign."},
        {"known-slip", "She eats alot of fruit.", "She eats a lot of fruit."},
        {"known-slip", "It was a wonderfull evening.", "It was a wonderful evening."},
        {"doubled-likely", "They were were waiting outside.", "They were waiting outside."},
        {"lone-i", "My brother and i went home.", "My brother and I went home."},
        {"have-with-past", "I have ate at that place before.", "I have eaten at that place before."},
        {"over-regular", "The children drawed a map.", "The children drew a map."},
        {"spelling", "The kalendar hangs behind the door.", "The calendar hangs behind the door."},
        {"spelling", "The experinces of the visitors differ.", "The experiences of the visitors differ."},
        {"spelling", "Nobody knew hte answer.", "Nobody knew the answer."},
        {"spelling", "The hikers ate pottesium tablets.", "The hikers ate potassium tablets."},
        {"real-word", "I could not here the speaker.", "I could not hear the speaker."},
        {"modal-slip", "You should of asked me first.", "You should have asked me first."},
        {"space-before-sign", "We packed the tent , the stove and the map .",
         "We packed the tent, the stove and the map."},
        {"fixed-phrase", "In the other hand, trains are slower.", "On the other hand, trains are slower."},
        {"fixed-phrase", "We went out despite of the rain.", "We went out despite the rain."},
        {"have-participle", "The guests had already drank the coffee.",
         "The guests had already drunk the coffee."},
        {"be-participle", "The letter was wrote by my aunt.", "The letter was written by my aunt."},
        {"be-participle-frame", "The film is base on a novel.", "The film is based on a novel."},
        {"do-base", "The driver did not stopped at the corner.", "The driver did not stop at the corner."},
        {"do-base", "Why did she left so early?", "Why did she leave so early?"},
        {"modal-base", "You can comes whenever you like.", "You can come whenever you like."},
        {"to-base", "They decided to went by train.", "They decided to go by train."},
        {"preposition-gerund", "Thank you for help me with the boxes.",
         "Thank you for helping me with the boxes."},
        {"verb-gerund", "My father enjoys to cook on Sundays.", "My father enjoys cooking on Sundays."},
        {"verb-to", "I want know the reason.", "I want to know the reason."},
        {"let-bare", "Please let me to explain the plan.", "Please let me explain the plan."},
        {"be-beside-verb", "I am agree with your plan.", "I agree with your plan."},
        {"be-gerund", "We are go to the lake today.", "We are going to the lake today."},
        {"much-likely", "We spent many time on the project.", "We spent much time on the project."},
        {"other-others", "He plays with the others children.", "He plays with the other children."},
        {"two-determiners", "I lost the my keys again.", "I lost my keys again."},
        {"possessor", "My brothers wife is a nurse.", "My brother's wife is a nurse."},
        {"past-time", "Three days ago we meet an old friend.", "Three days ago we met an old friend."},
        {"finite-be", "When they be ready, call me.", "When they are ready, call me."},
        {"be-form", "The plan will be discuss tomorrow.", "The plan will be discussed tomorrow."},
        {"plural-after-many", "We had lots of problem with the engine.",
         "We had lots of problems with the engine."},
        {"plural-after-many", "She has written many letter to the bank.",
         "She has written many letters to the bank."},
        {"plural-after-figure", "The box holds 12 bottle.", "The box holds 12 bottles."},
        {"one-of-many", "He is one of my friend.", "He is one of my friends."},
        {"uncounted-plural", "We bought new softwares last week.", "We bought new software last week."},
        {"uncounted-article", "She gave me an advice.", "She gave me advice."},
        {"singular-after-each", "Every rooms has a balcony.", "Every room has a balcony."},
        {"this-these", "I bought this apples at the market.", "I bought these apples at the market."},
        {"much-many", "There were too much people in the lift.", "There were too many people in the lift."},
        {"quantity-of", "Most of people like music.", "Most people like music."},
        {"subject-verb", "The quality of the photos are poor.", "The quality of the photos is poor."},
        {"subject-verb", "My neighbour work in a bakery.", "My neighbour works in a bakery."},
        {"subject-verb", "The dogs barks all night.", "The dogs bark all night."},
        {"relative-clause-verb", "I know a man who live in that house.",
         "I know a man who lives in that house."},
        {"there-is", "There is many reasons to stay.", "There are many reasons to stay."},
        {"verb-preposition", "The team consists from five people.", "The team consists of five people."},
        {"verb-preposition", "We discussed about the budget.", "We discussed the budget."},
        {"adjective-preposition", "My father is proud about his garden.",
         "My father is proud of his garden."},
        {"missing-preposition", "He never listens me.", "He never listens to me."},
        {"tell-say", "She said me that she was tired.", "She told me that she was tired."},
        {"time-preposition", "The shop is closed in Monday.", "The shop is closed on Monday."},
        {"missing-article", "My sister is teacher.", "My sister is a teacher."},
        {"missing-article", "The prices in both shops are same.", "The prices in both shops are the same."},
        {"double-comparative", "This road is more longer than the other.",
         "This road is longer than the other."},
        {"comparative-likely", "It was the most easy way to the top.", "It was the easiest way to the top."},
        {"article-likely", "This is important question for all of us.",
         "This is an important question for all of us."},
        {"plural-likely", "Recently scientist have found a new planet.",
         "Recently scientists have found a new planet."},
        {"fixed-phrase", "I look forward to hear from you.", "I look forward to hearing from you."},
        {"time-preposition", "The concert begins in 8 o'clock.", "The concert begins at 8 o'clock."},
        {"there-is", "There is also people who never travel.", "There are also people who never travel."},
        {"subject-verb", "It was late, and he still do not know the answer.",
         "It was late, and he still does not know the answer."},
        {"subject-verb", "In the evening, she walk along the river.",
         "In the evening, she walks along the river."},
        {"introductory-comma", "For example many shops close on Sundays.",
         "For example, many shops close on Sundays."},
        {"comma-after-phrase", "In the middle of the night we heard a noise.",
         "In the middle of the night, we heard a noise."},
        {"comma-before-but", "We looked for the keys everywhere but the door was open.",
         "We looked for the keys everywhere, but the door was open."},
        {"pronoun-case", "Him and I went to the market.", "He and I went to the market."},
        {"introductory-comma", "However the plan did not work.", "However, the plan did not work."},
        {"comma-before-but", "I called my uncle twice yesterday but he did not answer.",
         "I called my uncle twice yesterday, but he did not answer."},
        {"comma-after-clause", "If the ticket costs more then we wait until spring.",
         "If the ticket costs more, then we wait until spring."},
        {"comma-after-clause", "If the train does not come soon we will take the bus.",
         "If the train does not come soon, we will take the bus."},
        {"question-mark", "Where did you put the keys.", "Where did you put the keys?"},
        {"confusion", "Your welcome to stay.", "You're welcome to stay."},
        {"confusion", "If you have more then ten, call us.", "If you have more than ten, call us."},
        {"confusion", "Send me they're address.", "Send me their address."},
        {"confusion-frame", "We hope there coming by train.", "We hope they're coming by train."},
        {"confusion-frame", "Call me if your free tonight.", "Call me if you're free tonight."},
        {"confusion-frame", "Who's bag is on my chair?", "Whose bag is on my chair?"},
        {"confusion-frame", "The new hours effect everybody.", "The new hours affect everybody."},
        {"confusion-frame", "You need to keep quite.", "You need to keep quiet."},
        {"confusion-frame", "We use to play there.", "We used to play there."},
        {"confusion-frame", "She was too ill to walk and couldn't breath.",
         "She was too ill to walk and couldn't breathe."},
        {"confusion-frame", "I would rather stay in then go out.", "I would rather stay in than go out."},
        {"confusion-frame", "That stays between you and I.", "That stays between you and me."},
        {"confusion-frame", "He loose his temper often.", "He loses his temper often."},
        {"confusion-frame", "They seen the film last week.", "They saw the film last week."},
        {"uncounted-plural", "The childrens room is upstairs.", "The children's room is upstairs."},
        {"known-slip", "She did'nt call.", "She didn't call."},
        {"fixed-phrase", "We stayed because of we were tired.", "We stayed because we were tired."},
        {"missing-preposition", "I am looking forward the concert.", "I am looking forward to the concert."},
        {"missing-preposition", "According my sister, the shop is closed.",
         "According to my sister, the shop is closed."},
        {"missing-preposition", "I will wait you at the gate.", "I will wait for you at the gate."},
        {"verb-preposition", "We arrived to the hotel at noon.", "We arrived at the hotel at noon."},
        {"adjective-preposition", "They spend money for clothes.", "They spend money on clothes."},
        {"missing-article", "He is best singer in the choir.", "He is the best singer in the choir."},
        {"article-likely", "She is good student.", "She is a good student."},
        {"adverb-form", "My aunt drives very careful.", "My aunt drives very carefully."},
        {"modal-base", "You should trying the soup.", "You should try the soup."},
        {"modal-base", "It will helps you to sleep.", "It will help you to sleep."},
        {"modal-base", "Can you told me the price?", "Can you tell me the price?"},
        {"do-base", "They do not trying hard.", "They do not try hard."},
        {"to-base", "It is hard to finding a flat.", "It is hard to find a flat."},
        {"to-base", "We have to making plans.", "We have to make plans."},
        {"preposition-gerund", "She is interested in learn languages.",
         "She is interested in learning languages."},
        {"have-participle", "I have see that house.", "I have seen that house."},
        {"be-participle-frame", "He born in a village.", "He was born in a village."},
        {"be-participle-frame", "The damage is cause by rain.", "The damage is caused by rain."},
        {"subject-verb", "Living alone give you time.", "Living alone gives you time."},
        {"subject-verb", "Technology are changing fast.", "Technology is changing fast."},
        {"subject-verb", "Both of them was late.", "Both of them were late."},
        {"subject-verb", "If a child learn the alphabet, it can read.",
         "If a child learns the alphabet, it can read."},
        {"plural-after-many", "All the window were open.", "All the windows were open."},
        {"plural-after-many", "There are several way to cook it.", "There are several ways to cook it."},
        {"uncounted-article", "They gave us a useful information.", "They gave us useful information."},
        {"quantity-of", "Most of young people like music.", "Most young people like music."},
        {"a-an", "She is an friend of mine.", "She is a friend of mine."},
        {"a-an", "They walked for an moment or two.", "They walked for a moment or two."},
        {"plural-after-many", "In these circumstance we wait.", "In these circumstances we wait."},
        {"doubled-likely", "The tea is is in the pot.", "The tea is in the pot."},
        {"modal-base", "She could sees the harbour.", "She could see the harbour."},
        {"capital-name", "The office opens on monday.", "The office opens on Monday."},
        {"sentence-capital", "we left before noon because of the snow.",
         "We left before noon because of the snow."},
    };
    return texts;
}

const std::vector<RightText>& rightTexts() {
    static const std::vector<RightText> texts = {
        {"doubled-word", "He knew that that was true."},
        {"doubled-word", "She had had enough of it."},
        {"known-slip", "It was his wont to walk at dawn."},
        {"doubled-likely", "It was a long, long way and very very cold."},
        {"doubled-likely", "All that he had had was gone."},
        {"spelling", "The motto was \"tempora mutantur\" and nothing else."},
        {"lone-i", "See section (i) for the details."},
        {"have-with-past", "They have gone home."},
        {"over-regular", "The wire was grounded yesterday."},
        {"spelling", "Mr Szymborsky lives in Wroclaw."},
        {"real-word", "They're over there with their dog."},
        {"real-word", "Volunteers form a circle around the tree."},
        {"real-word", "It turned out that the pupils form teams of four."},
        {"real-word", "She arrived far later than we had hoped."},
        {"real-word", "Many wood companies plant new trees."},
        {"real-word", "It is better to just know the rules."},
        {"spelling", "The disking of the field took two days."},
        {"spelling", "Both painters and attributers signed the list."},
        {"spelling", "They spoke of the voluntad of the village."},
        {"modal-slip", "You must of course wait."},
        {"space-before-sign", "The file .profile stays where it is."},
        {"fixed-phrase", "He held a cup in his other hand."},
        {"fixed-phrase", "These kind of answers help nobody."},
        {"have-participle", "The town has cut costs."},
        {"have-participle", "They have left us."},
        {"be-participle", "The year was then nearly over."},
        {"be-participle-frame", "The plan is to use of course both."},
        {"do-base", "What he did pleased them."},
        {"do-base", "They did not need used furniture."},
        {"modal-base", "The can leaks."},
        {"modal-base", "He could better explain it."},
        {"to-base", "I look forward to cooked meals."},
        {"to-base", "We are used to the noise."},
        {"preposition-gerund", "The demand for help is growing."},
        {"verb-gerund", "They finished to great applause."},
        {"verb-to", "I want help with this."},
        {"let-bare", "Let it be known to all."},
        {"be-beside-verb", "The agreed price is fair."},
        {"be-gerund", "They are live and loud."},
        {"much-likely", "Many a man has tried it."},
        {"other-others", "The others left before noon."},
        {"two-determiners", "It was such a these-days problem."},
        {"possessor", "My brothers and sisters live here."},
        {"past-time", "I know the man who called yesterday."},
        {"past-time", "She says that he left two days ago."},
        {"finite-be", "If he be guilty, let him say so."},
        {"be-form", "All the money will be help for the poor."},
        {"plural-after-many", "These two-door cars are cheap."},
        {"plural-after-many", "The other driver waved."},
        {"plural-after-many", "The settlers went through lots of hardship."},
        {"plural-after-figure", "It is a 12 month contract."},
        {"one-of-many", "Two of the family stayed at home."},
        {"uncounted-plural", "The waters of the lake are cold."},
        {"uncounted-article", "It was a weather report."},
        {"singular-after-each", "Every sales manager was there."},
        {"this-these", "This news is old."},
        {"this-these", "This tells us little."},
        {"much-many", "We do not have much furniture."},
        {"quantity-of", "Most of my friends like music."},
        {"subject-verb", "The team are playing well."},
        {"subject-verb", "I suggest that he wait outside."},
        {"subject-verb", "If I were you, I would go."},
        {"subject-verb", "The man and his dog walk every day."},
        {"subject-verb", "Ten years is a long time."},
        {"subject-verb", "Let the boy speak."},
        {"subject-verb", "Does the new engine work?"},
        {"relative-clause-verb", "The people who live here are kind."},
        {"relative-clause-verb", "There is a reason that prices rise in winter."},
        {"relative-clause-verb", "Of the girls she is the one who sing at church."},
        {"relative-clause-verb", "She is one of those teachers who like noise."},
        {"there-is", "There is a table and two chairs in the room."},
        {"verb-preposition", "The talk was about the budget."},
        {"adjective-preposition", "Similar things happen with glass."},
        {"missing-preposition", "Wait a minute."},
        {"missing-preposition", "He left without a reply the next day."},
        {"tell-say", "She said to him that she was tired."},
        {"time-preposition", "I will be there at noon on Monday."},
        {"missing-article", "As a teacher she was strict."},
        {"missing-article", "She is teacher and nurse to them."},
        {"double-comparative", "We need more plain shelves than tables."},
        {"comparative-likely", "We need more plain paper."},
        {"article-likely", "We went to school by train."},
        {"article-likely", "The need for man to travel is old."},
        {"plural-likely", "She spoke with great conviction."},
        {"comma-after-phrase", "In the box there were letters."},
        {"comma-after-phrase", "In what he said we found no fault."},
        {"pronoun-case", "It was he who called."},
        {"introductory-comma", "However hard we tried, the door stayed shut."},
        {"introductory-comma", "Finally home, she slept."},
        {"comma-before-but", "It was slow but sure."},
        {"comma-after-clause", "If you knew what he would say, why ask?"},
        {"question-mark", "How he did it is a mystery."},
        {"confusion", "It's a long way to the top."},
        {"confusion", "If it costs more, then we wait until spring."},
        {"confusion", "When the days are longer then the garden needs water."},
        {"confusion", "When you're part of the crew, you eat here."},
        {"fixed-phrase", "See the last page for examples of both."},
        {"confusion-frame", "They sat there reading."},
        {"confusion-frame", "The tools that we use to build houses are old."},
        {"confusion-frame", "He was not quite."},
        {"confusion-frame", "Your free ticket is in the drawer."},
        {"confusion-frame", "Have they seen it?"},
        {"real-word", "They were an odd band of friends."},
        {"real-word", "Your guess is as good as mine."},
        {"real-word", "He listened to them attentively."},
        {"real-word", "She speaks Dutch very well."},
        {"known-slip", "He had been wont to sleep late."},
        {"subject-verb", "\"We was robbed!\" shouted the crowd."},
        {"subject-verb", "What matters is the people that we meet."},
        {"subject-verb", "Whether the ice holds is anybody's guess."},
        {"subject-verb", "The data is clear, and the data are public."},
        {"subject-verb", "Running shoes are dear."},
        {"subject-verb", "Outsourcing the sales function to others may help."},
        {"subject-verb", "Learning facts is only the start."},
        {"doubled-likely", "What he does does not concern me."},
        {"article-likely", "He read book after book."},
        {"article-likely", "There is potential value in it."},
        {"plural-likely", "A beginner or an experienced user will like it."},
        {"have-participle", "He might have learnt it at school."},
        {"adverb-form", "He works hard and looks careful."},
        {"to-base", "She is used to finding her own way."},
        {"preposition-gerund", "It is kept for further study."},
        {"sentence-capital", "sudo apt-get install -y libfoo-dev"},
        {"sentence-capital", "def add(a, b): return a + b"},
        {"sentence-capital", "O Captain! my Captain!"},
        {"spelling", "It was, omg, so funny."},
        {"spelling", "Wow, that is sooooo good!"},
        {"a-an", "It took an hour on a one-way street."},
        {"capital-name", "The soldiers march in the morning."},
        {"sentence-capital", "milk, bread, eggs"},
    };
    return texts;
}

} // namespace

QTEST_APPLESS_MAIN(GrammarRulesTest)
#include "tst_grammar_rules.moc"
