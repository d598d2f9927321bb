#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace vellumline {

/// Reading of JSON objects (RFC 8259): a key is read as exactly the type that is asked for. Qt's parser is
/// not strict with strings; here a raw control character or an unknown escape anywhere fails, and a surrogate
/// without its other half in a string that is asked for. What else Qt lets pass remains: a number such as
/// "1." or ".5", and of a key's several values the last. Every getter marks the reader as failed when a
/// required key is missing or a key has another type, so that a body is read in one go and judged once.
/// `null` counts as absent.
class JsonReader {
  public:
    /// Fails when the bytes are not JSON, or not an object at the top level.
    explicit JsonReader(const QByteArray& data);

    bool failed() const { return failed_; }

    QString string(const QString& key);
    std::optional<QString> optionalString(const QString& key);
    /// A number without a fractional part, whatever its notation (30 and 30.0); never a boolean.
    qint64 integer(const QString& key);
    std::optional<bool> optionalBoolean(const QString& key);

  private:
    QJsonObject object_;
    bool failed_ = false;
};

} // namespace vellumline
