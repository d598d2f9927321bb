// One text a line on standard input, the corrected line on standard output; each line is flushed.
#include "VellumlineService/Correction/LanguagePack.h"
#include "VellumlineService/Correction/PersonalDictionary.h"
#include "VellumlineService/Correction/Rules.h"
#include "VellumlineService/Correction/RulesEngine.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>
#include <iostream>
#include <string>

using namespace vellumline;

namespace {

void listRules() {
    for (const Rule& rule : correctionRules()) {
        std::cout << rule.name << '\t' << rule.why << '\n';
    }
}

void explain(const std::vector<CorrectionChange>& changes) {
    for (const CorrectionChange& change : changes) {
        std::cout << QStringLiteral("\t%1: %2 → %3 (%4)\n")
                         .arg(change.rule, change.before, change.after, change.why)
                         .toStdString();
    }
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vellumline-correct"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Corrects text: one text a line in, one line out, flushed after each."));
    parser.addHelpOption();
    const QCommandLineOption disable(QStringLiteral("disable"),
                                     QStringLiteral("Rules that shall do nothing; may be repeated."),
                                     QStringLiteral("name,…"));
    const QCommandLineOption list(QStringLiteral("list-rules"),
                                  QStringLiteral("Print each rule's name and what it says, and end."));
    const QCommandLineOption explaining(
        QStringLiteral("explain"),
        QStringLiteral("After each line print its changes, each on a line that starts with a tab."));
    const QCommandLineOption language(
        QStringLiteral("language"),
        QStringLiteral("The language of all texts: %1; without it each text's own is found out.")
            .arg(languagePackCodes().join(QStringLiteral(", "))),
        QStringLiteral("code"));
    const QCommandLineOption dictionary(QStringLiteral("dictionary"),
                                        QStringLiteral("Words that stay as they are, one a line (%1).")
                                            .arg(PersonalDictionary::defaultPath()),
                                        QStringLiteral("file"), PersonalDictionary::defaultPath());
    parser.addOptions({disable, list, explaining, language, dictionary});
    parser.process(application);

    if (parser.isSet(list)) {
        listRules();
        return 0;
    }
    const QStringList disabled =
        parser.values(disable).join(QLatin1Char(',')).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (const QStringList unknown = RulesEngine::unknownRules(disabled); !unknown.isEmpty()) {
        std::fprintf(stderr, "vellumline-correct: \"%s\" is no rule; --list-rules names all.\n",
                     qPrintable(unknown.first()));
        return 2;
    }
    const QString code = parser.value(language);
    if (parser.isSet(language) && !languagePack(code)) {
        std::fprintf(stderr, "vellumline-correct: the language \"%s\" is not known; there are: %s\n",
                     qPrintable(code), qPrintable(languagePackCodes().join(QStringLiteral(", "))));
        return 2;
    }
    const RulesEngine engine(RulesEngineSettings{disabled, code, parser.value(dictionary)});
    std::string line;
    while (std::getline(std::cin, line)) {
        std::vector<CorrectionChange> changes;
        const auto result = engine.correct(QString::fromStdString(line), changes);
        if (result.status != CorrectionResult::Status::corrected) {
            std::fprintf(stderr, "vellumline-correct: the engine cannot work: %s\n",
                         qPrintable(engine.problem()));
            return 1;
        }
        std::cout << result.text.toStdString() << '\n';
        if (parser.isSet(explaining)) {
            explain(changes);
        }
        std::cout << std::flush;
    }
    return 0;
}
