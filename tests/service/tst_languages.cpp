#include "VellumlineService/Correction/LanguagePack.h"
#include "VellumlineService/Correction/RulesEngine.h"

#include <QTest>

using namespace vellumline;

class LanguagesTest : public QObject {
    Q_OBJECT

    RulesEngine engine_;
    QString correct(const char* text) {
        const CorrectionResult result = engine_.correct(QString::fromUtf8(text));
        return result.status == CorrectionResult::Status::corrected ? result.text
                                                                    : QStringLiteral("<no answer>");
    }

  private Q_SLOTS:
    void englishAndGermanHavePacks() {
        QCOMPARE(languagePackCodes(), (QStringList{QStringLiteral("en"), QStringLiteral("de")}));
        QVERIFY(languagePack(QStringLiteral("de")));
        QVERIFY(!languagePack(QStringLiteral("xx")));
    }

    void germanTextGetsGermanSpelling() {
        QCOMPARE(correct("Ich habe gestren mit meiner Schwester telefoniert."),
                 QStringLiteral("Ich habe gestern mit meiner Schwester telefoniert."));
        QCOMPARE(
            correct("Wir haben uns vor dem Bahnhof getrofen und sind dann nach Hause gegangen."),
            QStringLiteral("Wir haben uns vor dem Bahnhof getroffen und sind dann nach Hause gegangen."));
        QCOMPARE(correct("Die Geschwindikeit ist hier nicht begrenzt."),
                 QStringLiteral("Die Geschwindigkeit ist hier nicht begrenzt."));
    }

    void rightGermanTextStays_data() {
        QTest::addColumn<QString>("text");
        for (const char* text : {"Schöne Grüße aus München, wir sehen uns am Wochenende!",
                                 "Der Vorstandsvorsitzende traf sich mit der Betriebsrätin.",
                                 "Das Meeting mit dem Team von Xylonova ist auf morgen verschoben.",
                                 "Die Straße war naß, daß es nur so spritzte.",
                                 "Er sagte, er hat's nicht gewusst.\r\n\tUnd sie auch nicht.\n"}) {
            QTest::newRow(text) << QString::fromUtf8(text);
        }
    }
    void rightGermanTextStays() {
        QFETCH(QString, text);
        QCOMPARE(engine_.correct(text).text, text);
    }

    void aTextInALanguageWithoutAPackStays_data() {
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char* text) {
            QTest::newRow(name) << QString::fromUtf8(text);
        };
        row("French", "Je voudrais réserver une table pour deux personnes, a demain soir.");
        row("French without accents", "je suis alle a la maison et il a mange le le pain.");
        row("Spanish", "¿Dónde está la estación? i no tengo el mapa.");
        row("Italian", "Ieri siamo andati al mare con i nostri amici e abbiamo mangiato bene.");
        row("Portuguese", "Não sei se ele vem hoje ou amanhã com os amigos.");
        row("Dutch", "Ik weet niet of hij morgen komt, maar we wachten op hem.");
        row("Swedish", "Jag vet inte om han kommer i dag eller i morgon.");
        row("Danish", "Jeg ved ikke, om han kommer i dag eller i morgen.");
        row("Norwegian", "Jeg vet ikke om han kommer i dag eller i morgen, men vi venter på ham.");
        row("Finnish", "Minä en tiedä, milloin hän tulee kotiin, mutta se on hyvä.");
        row("Polish", "Nie wiem, czy on przyjdzie dzisiaj, ale czekamy na niego.");
        row("Czech", "Nevím, jestli dnes přijde, ale čekáme na něj u domu.");
        row("Hungarian", "Nem tudom, hogy ma jön vagy holnap, de várunk rá.");
        row("Romanian", "Nu știu dacă vine astăzi sau mâine, dar îl așteptăm.");
        row("Turkish", "Bugün gelip gelmeyeceğini bilmiyorum ama onu bekliyoruz.");
        row("Latin", "Cogito ergo sum, et veni vidi vici.");
        row("Russian", "Я не знаю, придёт ли он сегодня, i мы ждём.");
        row("Greek", "Δεν ξέρω αν θα έρθει σήμερα.");
        row("Japanese", "今日は来るかどうか分かりません。");
        row("Arabic", "لا أعرف إن كان سيأتي اليوم.");
        row("one that is not known here", "Ez dakit gaur etorriko den ala bihar helduko ote zaigun.");
    }
    void aTextInALanguageWithoutAPackStays() {
        QFETCH(QString, text);
        QCOMPARE(engine_.correct(text).text, text);
    }

    void quotesInOtherLanguagesStayInAnEnglishText() {
        QCOMPARE(correct("She said \"je ne sais quoi\" and recieved a smile."),
                 QStringLiteral("She said \"je ne sais quoi\" and received a smile."));
        QCOMPARE(correct("The sign says “Bitte nicht auf den Rasen treten”, wich is German, and 'carpe diem' "
                         "is Latin."),
                 QStringLiteral(
                     "The sign says “Bitte nicht auf den Rasen treten”, which is German, and 'carpe diem' "
                     "is Latin."));
    }

    void aLineInAnotherLanguageStaysInAnEnglishText() {
        QCOMPARE(correct("Here is what the landlord wrote to us:\n"
                         "Die Heizung wird am Montag repariert, i bitte um Verstndnis.\n"
                         "I dont know what that means, and I recieved nothing else."),
                 QStringLiteral("Here is what the landlord wrote to us:\n"
                                "Die Heizung wird am Montag repariert, i bitte um Verstndnis.\n"
                                "I don't know what that means, and I received nothing else."));
    }

    void aBadlySpeltTextIsStillEnglish() {
        QCOMPARE(correct("I realy dont no what hapened to teh packige yestarday."),
                 QStringLiteral("I really don't know what happened to the package yesterday."));
    }

    void aLanguageCanBeFixed() {
        RulesEngine german(RulesEngineSettings{{}, QStringLiteral("de"), {}});
        QCOMPARE(german.correct(QStringLiteral("Gestren")).text, QStringLiteral("Gestern"));
        RulesEngine none(RulesEngineSettings{{}, QStringLiteral("xx"), {}});
        QCOMPARE(none.correct(QStringLiteral("Teh end.")).text, QStringLiteral("Teh end."));
    }
};

QTEST_APPLESS_MAIN(LanguagesTest)
#include "tst_languages.moc"
