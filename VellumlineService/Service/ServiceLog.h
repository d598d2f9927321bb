#pragma once

#include <QJsonObject>
#include <cstdio>
#include <mutex>

namespace vellumline {

/// One line for each event, on the standard error. What is handed over is chosen by name: no text of a user,
/// no token, no address and no part of an address's query ever is.
class ServiceLog {
  public:
    enum class Format { problems, text, json };

    explicit ServiceLog(Format format, std::FILE* stream = stderr) : format_(format), stream_(stream) {}

    /// An ordinary event; not written with `Format::problems`.
    void event(const QString& name, const QJsonObject& fields = {});
    void problem(const QString& name, const QJsonObject& fields = {});

  private:
    void write(const QString& level, const QString& name, const QJsonObject& fields);

    const Format format_;
    std::FILE* const stream_;
    std::mutex mutex_;
};

} // namespace vellumline
