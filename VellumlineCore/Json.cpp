#include "VellumlineCore/Json.h"

#include <QJsonDocument>
#include <cmath>

namespace vellumline {

namespace {

/// Qt takes the zero width no-break space that a string begins with for the mark of an encoding, and drops it
/// (seen with 6.4); escaped it is kept.
QByteArray withEscapedMarks(QByteArray data) {
    static const QByteArray mark("\xEF\xBB\xBF");
    const bool isMarked = data.startsWith(mark);
    data.replace(mark, "\\ufeff");
    return isMarked ? data.mid(6) : data;
}

/// Whether each string is written as JSON has it: Qt takes control characters, and a backslash before any
/// letter (seen with 6.4).
bool stringsAreStrict(const QByteArray& data) {
    bool isInString = false;
    for (qsizetype i = 0; i < data.size(); ++i) {
        const char byte = data.at(i);
        if (byte == '"') {
            isInString = !isInString;
        } else if (isInString && static_cast<unsigned char>(byte) < 0x20) {
            return false;
        } else if (isInString && byte == '\\') {
            ++i;
            if (i == data.size() || !QByteArrayView("\"\\/bfnrtu").contains(data.at(i)))
                return false;
        }
    }
    return true;
}

} // namespace

JsonReader::JsonReader(const QByteArray& data) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(withEscapedMarks(data), &error);
    failed_ = error.error != QJsonParseError::NoError || !document.isObject() || !stringsAreStrict(data);
    if (!failed_)
        object_ = document.object();
}

QString JsonReader::string(const QString& key) {
    const QJsonValue value = object_.value(key);
    QString text = value.toString();
    if (!value.isString() || !text.isValidUtf16())
        failed_ = true;
    return text;
}

std::optional<QString> JsonReader::optionalString(const QString& key) {
    const QJsonValue value = object_.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    return string(key);
}

qint64 JsonReader::integer(const QString& key) {
    const QJsonValue value = object_.value(key);
    if (!value.isDouble()) {
        failed_ = true;
        return 0;
    }
    // Two defaults tell a number that is not an integer of 64 bits from one that happens to equal the
    // default.
    const qint64 first = value.toInteger(0);
    if (first != value.toInteger(1))
        failed_ = true;
    return first;
}

std::optional<bool> JsonReader::optionalBoolean(const QString& key) {
    const QJsonValue value = object_.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isBool())
        failed_ = true;
    return value.toBool();
}

} // namespace vellumline
