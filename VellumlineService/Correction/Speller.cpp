#include "VellumlineService/Correction/Speller.h"

#include "VellumlineService/Correction/LanguageModel.h"
#include "VellumlineService/Correction/LanguagePack.h"
#include "VellumlineService/Correction/ModelFiles.h"
#include "VellumlineService/Correction/SlipCost.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <hunspell.hxx>

// At file scope: Q_INIT_RESOURCE may not stand in a namespace.
static void loadResources() {
    Q_INIT_RESOURCE(Words);
}

namespace vellumline {

namespace {

constexpr int rememberedLimit = 20'000;

} // namespace

/// Words go in and out in the encoding of the dictionary.
struct Speller::Dictionary {
    std::unique_ptr<Hunspell> words;
    bool latin = false;

    /// Empty for a word that the encoding has no letters for.
    std::string encoded(const QString& word) const {
        if (!latin) {
            return word.toStdString();
        }
        const bool fits = std::all_of(word.cbegin(), word.cend(), [](QChar c) { return c.unicode() < 256; });
        return fits ? word.toLatin1().toStdString() : std::string();
    }
    QString decoded(const std::string& word) const {
        return latin ? QString::fromLatin1(word.data(), static_cast<qsizetype>(word.size()))
                     : QString::fromStdString(word);
    }
};

Speller::Speller(const LanguagePack& pack) {
    for (const QString& name : pack.dictionaries) {
        for (const char* folder :
             {"/usr/share/hunspell/", "/usr/share/myspell/dicts/", "/usr/local/share/hunspell/"}) {
            const QString stem = QString::fromLatin1(folder) + name;
            if (!QFileInfo::exists(stem + QStringLiteral(".dic")) ||
                !QFileInfo::exists(stem + QStringLiteral(".aff"))) {
                continue;
            }
            auto words =
                std::make_unique<Hunspell>(QString(stem + QStringLiteral(".aff")).toLocal8Bit().constData(),
                                           QString(stem + QStringLiteral(".dic")).toLocal8Bit().constData());
            const std::string encoding = words->get_dict_encoding();
            const bool latin = encoding == "ISO8859-1";
            if (latin || encoding == "UTF-8") {
                dictionaries_.push_back(std::make_unique<Dictionary>(Dictionary{std::move(words), latin}));
            }
            break;
        }
    }
    const QString modelPath = modelFile(pack.code);
    model_ = modelPath.isEmpty() ? nullptr : LanguageModel::open(modelPath, &problem_);
    if (pack.model == LanguagePack::Model::without) {
        problem_.clear();
        model_.reset();
    } else if (modelPath.isEmpty()) {
        problem_ = QStringLiteral("there is no language model \"%1.model\"").arg(pack.code);
    }
    if (problem_.isEmpty() && dictionaries_.empty()) {
        problem_ = QStringLiteral("there is no Hunspell dictionary for %1").arg(pack.dictionaries.first());
    }
    if (model_) {
        finder_ = std::make_unique<CandidateFinder>(*model_);
    }
    if (pack.code != QStringLiteral("en")) {
        return;
    }
    loadResources();
    QFile file(QStringLiteral(":/vellumline/correction/words.tsv"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        entries_.reserve(static_cast<size_t>(lines.size()));
        for (const QByteArray& line : lines) {
            const QList<QByteArray> columns = line.split('\t');
            if (columns.size() == 3 && !columns.at(2).isEmpty()) {
                entries_.push_back({columns.at(0), columns.at(1).toInt(), columns.at(2).at(0)});
            }
        }
        std::sort(entries_.begin(), entries_.end(),
                  [](const Entry& a, const Entry& b) { return a.word < b.word; });
    }
}

Speller::~Speller() = default;

const Speller::Entry* Speller::entry(const QString& lower) const {
    const QByteArray word = lower.toLatin1();
    const auto found = std::lower_bound(entries_.begin(), entries_.end(), word,
                                        [](const Entry& a, const QByteArray& b) { return a.word < b; });
    return found != entries_.end() && found->word == word ? &*found : nullptr;
}

int Speller::frequency(const QString& lower) const {
    const Entry* found = entry(lower);
    return found ? found->count : 0;
}

bool Speller::isNoun(const QString& lower) const {
    const Entry* found = entry(lower);
    return found && found->wordClass == 'n';
}

bool Speller::isVerb(const QString& lower) const {
    const Entry* found = entry(lower);
    return found && found->wordClass == 'v';
}

bool Speller::inDictionary(const QString& word) const {
    {
        const std::shared_lock lock(memory_);
        const auto found = rememberedAnswers_.constFind(word);
        if (found != rememberedAnswers_.cend()) {
            return *found;
        }
    }
    bool answer = false;
    {
        const std::lock_guard lock(mutex_);
        answer = std::any_of(dictionaries_.begin(), dictionaries_.end(), [&](const auto& dictionary) {
            const std::string bytes = dictionary->encoded(word);
            return !bytes.empty() && dictionary->words->spell(bytes);
        });
    }
    const std::unique_lock lock(memory_);
    if (rememberedAnswers_.size() >= rememberedLimit) {
        rememberedAnswers_.clear();
    }
    rememberedAnswers_.insert(word, answer);
    return answer;
}

bool Speller::isKnown(const QString& word) const {
    if (!model_) {
        return inDictionary(word);
    }
    const int index = model_->find(word.toLower().toUtf8());
    if (index >= 0) {
        const quint8 flags = model_->flags(index);
        const bool listed = (flags & (LanguageModel::americanWord | LanguageModel::britishWord)) != 0;
        const bool written = (flags & LanguageModel::capitalWord) == 0 || word.front().isUpper();
        // A word that edited text uses ten times is a word.
        if (written && (listed || model_->frequency(index) >= 10)) {
            return true;
        }
    }
    if (inDictionary(word)) {
        return true;
    }
    // -ise, -ised, -isation for -ize.
    for (qsizetype at = word.indexOf(QStringLiteral("is"), 3); at > 0;
         at = word.indexOf(QStringLiteral("is"), at + 1)) {
        if (inDictionary(QString(word).replace(at + 1, 1, u'z'))) {
            return true;
        }
    }
    // -our for -or, and a plural that the dictionary does not list.
    const QString american = QString(word).replace(QStringLiteral("our"), QStringLiteral("or"));
    if (american != word && inDictionary(american)) {
        return true;
    }
    if (word.size() > 5 && word.endsWith(QStringLiteral("ings")) && inDictionary(word.chopped(1))) {
        return true;
    }
    return isCompound(word) || (word.endsWith(u's') && isCompound(word.chopped(1)));
}

bool Speller::isListed(const QString& lower) const {
    const int index = model_->find(lower.toUtf8());
    return index >= 0 &&
           (model_->flags(index) & (LanguageModel::americanWord | LanguageModel::britishWord)) != 0;
}

QString Speller::derivedFrom(const QString& lower) const {
    constexpr qsizetype shortestBase = 5;
    const auto isBase = [&](const QString& word) { return word.size() >= shortestBase && isListed(word); };
    if (QString base = lower.chopped(3) + u'y'; lower.endsWith(QStringLiteral("ies")) && isBase(base)) {
        return base;
    }
    for (const char* text : {"s", "es", "ly", "ness", "less"}) {
        const QString suffix = QString::fromLatin1(text);
        // Not "issuess": that is a doubled letter.
        const bool doubled = suffix.startsWith(u's') && lower.chopped(suffix.size()).endsWith(u's');
        if (lower.endsWith(suffix) && !doubled && isBase(lower.chopped(suffix.size()))) {
            return lower.chopped(suffix.size());
        }
    }
    for (const char* text : {"co", "re", "un", "non", "pre", "anti", "multi", "sub", "micro", "meta", "hyper",
                             "over", "inter"}) {
        const QString prefix = QString::fromLatin1(text);
        if (lower.startsWith(prefix) && isBase(lower.mid(prefix.size()))) {
            return lower.mid(prefix.size());
        }
    }
    return {};
}

bool Speller::isCompound(const QString& lower) const {
    // Two common words written as one, or a common word with a prefix, are more often jargon than a slip.
    for (const char* text :
         {"co", "re", "un", "non", "pre", "anti", "multi", "sub", "micro", "meta", "hyper"}) {
        const QString prefix = QString::fromLatin1(text);
        if (lower.size() >= prefix.size() + 4 && lower.startsWith(prefix) &&
            frequency(lower.mid(prefix.size())) >= 300) {
            return true;
        }
    }
    constexpr qsizetype shortest = 7; // "payments" is no "pay" and "men".
    for (qsizetype at = 3; lower.size() >= shortest && at + 3 <= lower.size(); ++at) {
        if (frequency(lower.left(at)) >= 800 && frequency(lower.mid(at)) >= 800) {
            return true;
        }
    }
    return false;
}

std::vector<Candidate> Speller::suggestions(const QString& word) const {
    // An umlaut is a letter with a mark left out or too much, not another letter.
    constexpr double mark = 0.3;
    constexpr double limit = 3;
    const auto plain = [](const QString& text) {
        QString folded;
        for (const QChar c : text.toLower()
                                 .replace(QChar(0xdf), QStringLiteral("ss"))
                                 .normalized(QString::NormalizationForm_D)) {
            if (!c.isMark()) {
                folded += c;
            }
        }
        return folded.toLatin1();
    };
    std::vector<Candidate> found;
    const std::lock_guard lock(mutex_);
    for (const auto& dictionary : dictionaries_) {
        const std::string bytes = dictionary->encoded(word);
        if (bytes.empty()) {
            continue;
        }
        for (const std::string& suggested : dictionary->words->suggest(bytes)) {
            const QString text = dictionary->decoded(suggested);
            const double cost =
                std::min(slipCost(word.toLower().toLatin1(), text.toLower().toLatin1(), limit),
                         slipCost(plain(word), plain(text), limit) + mark);
            found.push_back({text, cost, 0});
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Candidate& a, const Candidate& b) { return a.cost < b.cost; });
    return found;
}

std::shared_ptr<const std::vector<Candidate>> Speller::candidates(const QString& lower) const {
    {
        const std::shared_lock lock(memory_);
        const auto found = remembered_.constFind(lower);
        if (found != remembered_.constEnd()) {
            return *found;
        }
    }
    const qsizetype length = lower.size();
    const double limit = length <= 3 ? 1.3 : length == 4 ? 1.3 : length == 5 ? 1.8 : length <= 7 ? 2.0 : 2.4;
    auto made = std::make_shared<const std::vector<Candidate>>(
        finder_ ? finder_->find(lower.toLatin1(), limit) : suggestions(lower));
    const std::unique_lock lock(memory_);
    if (remembered_.size() >= rememberedLimit) {
        remembered_.clear();
    }
    remembered_.insert(lower, made);
    return made;
}

} // namespace vellumline
