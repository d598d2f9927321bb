#pragma once

#include <QString>
#include <QStringList>

namespace vellumline {

/// What the fakes were asked, in order. Every fake keeps its own list; given a shared one it writes there
/// too, so that a test can check the order across ports.
class CallLog {
  public:
    explicit CallLog(QStringList* shared = nullptr) : shared_(shared) {}

    void add(const QString& call) {
        calls_.append(call);
        if (shared_ != nullptr)
            shared_->append(call);
    }
    const QStringList& calls() const { return calls_; }
    void clear() { calls_.clear(); }

  private:
    QStringList calls_;
    QStringList* shared_;
};

} // namespace vellumline
