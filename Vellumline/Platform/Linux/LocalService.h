#pragma once

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>
#include <optional>

class QProcess;

namespace vellumline {

/// The correction service on this machine: started when the program's origin is a loopback address and nobody
/// answers there, and ended with the program. Main thread only; nothing here blocks.
class LocalService : public QObject {
    Q_OBJECT
  public:
    enum class Result {
        notLocal,       ///< the origin is not a loopback address; nothing to do
        alreadyRunning, ///< somebody listens there already; it is left alone, now and when the program ends
        started,        ///< our own process answers
        failed          ///< no executable, or it ended or did not answer in time
    };

    /// `origin`: the service API origin. `executable`: a path, or empty to look beside this program, in the
    /// build tree and in PATH.
    explicit LocalService(QUrl origin, QString executable = {}, QObject* parent = nullptr);
    ~LocalService() override;

    /// Makes sure that somebody answers at the origin; at most about 5 s.
    QCoro::Task<Result> ensureRunning();
    /// Ends the process that ensureRunning() started: asks, and insists after 3 s. Does nothing when there is
    /// none.
    QCoro::Task<void> stop();
    /// The process that was started here, if it still runs.
    std::optional<qint64> processIdentifier() const;

  private:
    static QString findExecutable();
    void watchForUnexpectedEnd();

    QUrl origin_;
    QString executable_;
    std::unique_ptr<QProcess> process_;
    int restartsLeft_ = 3; ///< A service that keeps falling over is left down: corrections then say so.
    bool stopping_ = false;
};

} // namespace vellumline
