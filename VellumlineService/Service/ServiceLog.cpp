#include "VellumlineService/Service/ServiceLog.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonValue>

namespace vellumline {

void ServiceLog::event(const QString& name, const QJsonObject& fields) {
    if (format_ != Format::problems) {
        write(QStringLiteral("info"), name, fields);
    }
}

void ServiceLog::problem(const QString& name, const QJsonObject& fields) {
    write(QStringLiteral("problem"), name, fields);
}

void ServiceLog::write(const QString& level, const QString& name, const QJsonObject& fields) {
    const QString time = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
    QByteArray line;
    if (format_ == Format::json) {
        QJsonObject object = fields;
        object.insert(QStringLiteral("time"), time);
        object.insert(QStringLiteral("level"), level);
        object.insert(QStringLiteral("event"), name);
        line = QJsonDocument(object).toJson(QJsonDocument::Compact);
    } else {
        line = (time + u' ' + level + u' ' + name).toUtf8();
        for (auto field = fields.begin(); field != fields.end(); ++field) {
            line += ' ' + field.key().toUtf8() + '=' + field.value().toVariant().toString().toUtf8();
        }
    }
    line += '\n';
    const std::scoped_lock lock(mutex_);
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stream_);
    std::fflush(stream_);
}

} // namespace vellumline
