#pragma once

#include "VellumlineService/Correction/Rules.h"

#include <QStringList>
#include <vector>

namespace vellumline {

/// What the engine needs to know of a language. A further language is a further pack: the names of its
/// Hunspell dictionaries, a model if there is one (scripts/train-language-model.sh shows how one is made),
/// and its rules.
struct LanguagePack {
    enum class Model {
        needed,  ///< Without it the language cannot be corrected.
        without, ///< Hunspell suggests, and only near and clear suggestions are taken.
    };
    QString code; ///< As in ISO 639; also the name of the model.
    QStringList dictionaries;
    Model model = Model::needed;
    const std::vector<Rule>& (*rules)();
};

/// All, English first.
const std::vector<LanguagePack>& languagePacks();
/// Null for a language that has none.
const LanguagePack* languagePack(const QString& code);
QStringList languagePackCodes();

} // namespace vellumline
