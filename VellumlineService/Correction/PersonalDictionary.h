#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <memory>
#include <mutex>

namespace vellumline {

/// The words that a person does not want to have changed: a file of one word a line, which may be missing.
/// Lines that start with "#" are notes. Thread-safe.
class PersonalDictionary {
  public:
    /// By the word in small letters with straight apostrophes, as the person writes it.
    using Words = QHash<QString, QString>;

    explicit PersonalDictionary(QString path);

    /// $XDG_CONFIG_HOME/vellumline/dictionary.txt
    static QString defaultPath();
    /// Reads the file again if it has changed; costs no more than looking at its time and size.
    void refresh();
    /// In any case, with a straight or curly apostrophe, also with "'s" behind it.
    bool contains(const QString& word) const;
    /// As they were at the last look.
    std::shared_ptr<const Words> words() const;

  private:
    const QString path_;
    mutable std::mutex mutex_;
    std::shared_ptr<const Words> words_;
    QDateTime time_;
    qint64 size_ = -1;
};

} // namespace vellumline
