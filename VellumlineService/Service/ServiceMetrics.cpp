#include "VellumlineService/Service/ServiceMetrics.h"

#include <QFile>
#include <unistd.h>

namespace vellumline {

namespace {

QByteArray head(const char* name, const char* type, const char* help) {
    return QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

qint64 residentBytes() {
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    return file.readAll().split(' ').value(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
}

} // namespace

void ServiceMetrics::answered(const QByteArray& route, int status, qint64 microseconds) {
    const double seconds = static_cast<double>(microseconds) / 1e6;
    const std::scoped_lock lock(mutex_);
    ++requests_[{route, status}];
    Times& times = times_[route];
    ++times.count;
    times.seconds += seconds;
    for (size_t i = 0; i < bounds.size(); ++i) {
        times.within[i] += seconds <= bounds[i] ? 1 : 0;
    }
}

void ServiceMetrics::databaseFailed() {
    const std::scoped_lock lock(mutex_);
    ++databaseFailures_;
}

QByteArray ServiceMetrics::text(const Gauges& gauges, const QByteArray& version) const {
    const std::scoped_lock lock(mutex_);
    QByteArray out = head("vellumline_build_info", "gauge", "The version that runs.") +
                     "vellumline_build_info{version=\"" + version + "\"} 1\n";
    out += head("vellumline_requests_total", "counter", "Answered requests.");
    for (auto item = requests_.begin(); item != requests_.end(); ++item) {
        out += "vellumline_requests_total{route=\"" + item.key().first + "\",status=\"" +
               QByteArray::number(item.key().second) + "\"} " + QByteArray::number(item.value()) + '\n';
    }
    out += head("vellumline_request_seconds", "histogram", "Time from a whole request to its answer.");
    for (auto item = times_.begin(); item != times_.end(); ++item) {
        const QByteArray label = "route=\"" + item.key() + '"';
        for (size_t i = 0; i < bounds.size(); ++i) {
            out += "vellumline_request_seconds_bucket{" + label + ",le=\"" + QByteArray::number(bounds[i]) +
                   "\"} " + QByteArray::number(item.value().within[i]) + '\n';
        }
        out += "vellumline_request_seconds_bucket{" + label + ",le=\"+Inf\"} " +
               QByteArray::number(item.value().count) + "\nvellumline_request_seconds_sum{" + label + "} " +
               QByteArray::number(item.value().seconds) + "\nvellumline_request_seconds_count{" + label +
               "} " + QByteArray::number(item.value().count) + '\n';
    }
    out += head("vellumline_connections", "gauge", "Open connections.") + "vellumline_connections " +
           QByteArray::number(gauges.connections) + '\n';
    out += head("vellumline_waiting_corrections", "gauge", "Corrections that run or wait.") +
           "vellumline_waiting_corrections " + QByteArray::number(gauges.waitingCorrections) + '\n';
    out += head("vellumline_database_failures_total", "counter", "Statements that the database refused.") +
           "vellumline_database_failures_total " + QByteArray::number(databaseFailures_) + '\n';
    out += head("process_resident_memory_bytes", "gauge", "Memory in use.") +
           "process_resident_memory_bytes " + QByteArray::number(residentBytes()) + '\n';
    return out;
}

} // namespace vellumline
