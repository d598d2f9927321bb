#pragma once

#include "Vellumline/Platform/DesktopSurvey.h"
#include "Vellumline/Platform/X11/X11Connection.h"

#include <QDBusConnection>

namespace vellumline {

/// X11, the session bus and the XDG folders. Main thread only.
class LinuxDesktopSurvey final : public DesktopSurvey {
  public:
    /// `connection`: null when there is no display; otherwise it must outlive the survey.
    explicit LinuxDesktopSurvey(X11Connection* connection,
                                QDBusConnection bus = QDBusConnection::sessionBus());

    DisplayFacts display() override;
    QCoro::Task<TrayFacts> tray() override;
    QCoro::Task<LinkFacts> links() override;

    /// The program that the Exec line of a desktop entry starts: its first argument, unquoted.
    static QString programOf(const QString& exec);

  private:
    QString windowManager();

    X11Connection* connection_;
    QDBusConnection bus_;
};

} // namespace vellumline
