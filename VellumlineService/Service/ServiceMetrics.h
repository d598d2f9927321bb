#pragma once

#include <QByteArray>
#include <QMap>
#include <array>
#include <mutex>

namespace vellumline {

/// Counts for whoever watches the service, in the text form of Prometheus 0.0.4. Routes, statuses and times
/// only: nothing that says who asked, or for what. Thread-safe.
class ServiceMetrics {
  public:
    /// `route` is one of a fixed set of names, so that no request can make new rows.
    void answered(const QByteArray& route, int status, qint64 microseconds);
    void databaseFailed();

    struct Gauges {
        int connections = 0;
        int waitingCorrections = 0;
    };
    QByteArray text(const Gauges& gauges, const QByteArray& version) const;

  private:
    static constexpr std::array<double, 9> bounds = {0.002, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 1, 5};
    struct Times {
        std::array<quint64, bounds.size()> within = {};
        quint64 count = 0;
        double seconds = 0;
    };

    mutable std::mutex mutex_;
    QMap<std::pair<QByteArray, int>, quint64> requests_;
    QMap<QByteArray, Times> times_;
    quint64 databaseFailures_ = 0;
};

} // namespace vellumline
