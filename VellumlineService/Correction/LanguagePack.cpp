#include "VellumlineService/Correction/LanguagePack.h"

#include "VellumlineService/Correction/Spelling.h"

#include <algorithm>

namespace vellumline {

namespace {

const std::vector<Rule>& spellingOnly() {
    static const std::vector<Rule> rules = {
        {"spelling", "The word is in no dictionary; this is the likeliest meant one.",
         applyDictionarySpelling},
    };
    return rules;
}

} // namespace

const std::vector<LanguagePack>& languagePacks() {
    static const std::vector<LanguagePack> all = {
        {QStringLiteral("en"),
         {QStringLiteral("en_US"), QStringLiteral("en_GB")},
         LanguagePack::Model::needed,
         correctionRules},
        {QStringLiteral("de"), {QStringLiteral("de_DE")}, LanguagePack::Model::without, spellingOnly},
    };
    return all;
}

const LanguagePack* languagePack(const QString& code) {
    const auto& all = languagePacks();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const LanguagePack& pack) { return pack.code == code; });
    return found == all.end() ? nullptr : &*found;
}

QStringList languagePackCodes() {
    QStringList codes;
    for (const LanguagePack& pack : languagePacks()) {
        codes.append(pack.code);
    }
    return codes;
}

} // namespace vellumline
