#include "VellumlineService/Correction/PersonalDictionary.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <utility>

namespace vellumline {

namespace {

// A list that a person keeps is never that long; anything else at that path shall not fill the memory.
constexpr qint64 mostBytes = 1'000'000;
constexpr qsizetype longestWord = 100;

QString folded(const QString& word) {
    return word.toLower().replace(QChar(0x2019), u'\'');
}

} // namespace

PersonalDictionary::PersonalDictionary(QString path)
    : path_(std::move(path)), words_(std::make_shared<const Words>()) {
    refresh();
}

QString PersonalDictionary::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/vellumline/dictionary.txt");
}

void PersonalDictionary::refresh() {
    const QFileInfo info(path_);
    const qint64 size = info.isFile() ? info.size() : -1;
    const QDateTime time = size < 0 ? QDateTime() : info.lastModified();
    const std::lock_guard lock(mutex_);
    if (size == size_ && time == time_) {
        return;
    }
    size_ = size;
    time_ = time;
    auto words = std::make_shared<Words>();
    QFile file(path_);
    if (size > 0 && file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.read(mostBytes).split('\n');
        for (const QByteArray& line : lines) {
            const QString word = QString::fromUtf8(line).remove(QChar::ByteOrderMark).trimmed();
            // Bytes that are no UTF-8 came out as replacement characters.
            if (!word.isEmpty() && !word.startsWith(u'#') && word.size() <= longestWord &&
                !word.contains(QChar::ReplacementCharacter)) {
                words->insert(folded(word), word);
            }
        }
    }
    words_ = std::move(words);
}

std::shared_ptr<const PersonalDictionary::Words> PersonalDictionary::words() const {
    const std::lock_guard lock(mutex_);
    return words_;
}

bool PersonalDictionary::contains(const QString& word) const {
    const auto all = words();
    if (all->isEmpty()) {
        return false;
    }
    const QString lower = folded(word);
    return all->contains(lower) || (lower.endsWith(QStringLiteral("'s")) && all->contains(lower.chopped(2)));
}

} // namespace vellumline
