#pragma once

#include "Vellumline/Platform/ClipboardGuardian.h"
#include "Vellumline/Platform/Linux/GuardianMessages.h"

#include <QObject>
#include <QString>
#include <memory>

class QSocketNotifier;

namespace vellumline {

/// The guardian as a small process of its own, which outlives this one when that is killed. It sleeps until
/// it is told something. Main thread only.
class GuardianProcess final : public QObject, public ClipboardGuardian {
    Q_OBJECT
  public:
    /// Longest wait for the guardian to say that it has the items.
    static constexpr int answerTimeoutMs = 300;

    /// Where the program is: beside this one, or where an installation has it.
    static QString find();

    explicit GuardianProcess(QString program, QObject* parent = nullptr);
    ~GuardianProcess() override;

    /// Starts the process; false when it cannot be started. Without one every operation does nothing.
    bool start();
    bool isRunning() const { return socket_ >= 0; }
    qint64 processIdentifier() const { return processIdentifier_; }

    QCoro::Task<void> hold(QList<PasteboardItem> items) override;
    void borrow() override;
    void settle() override;
    void forget() override;

  private:
    void send(guardianMessages::Message message, int descriptor = -1);
    void answered();
    void lose();

    QString program_;
    int socket_ = -1;
    qint64 processIdentifier_ = 0;
    QSocketNotifier* notifier_ = nullptr;
    struct Answer;
    std::unique_ptr<Answer> answer_; ///< awaited by hold()
};

} // namespace vellumline
