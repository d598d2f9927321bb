#pragma once

#include <QDBusConnection>
#include <QObject>
#include <functional>

namespace vellumline {

/// Knows when a program that shows status items has come up. Qt decides once, at the first use of a status
/// item, whether it speaks StatusNotifierItem or the older X11 embedding; asked too early, as at login, it
/// would never show with a StatusNotifierItem host. Main thread only.
class StatusItemHost : public QObject {
    Q_OBJECT
  public:
    explicit StatusItemHost(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    /// Calls `ready` once: when a StatusNotifierItem host answers, or after 10 s without one.
    /// `embeddingHostIsThere` tells whether an X11 tray is running already; then nothing is waited for.
    void whenReady(bool embeddingHostIsThere, std::function<void()> ready);

  private:
    void finish();

    QDBusConnection bus_;
    std::function<void()> ready_;
};

} // namespace vellumline
