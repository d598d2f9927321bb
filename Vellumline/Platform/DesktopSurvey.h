#pragma once

#include <QCoroTask>
#include <QString>
#include <QStringList>

namespace vellumline {

/// Where windows are shown.
struct DisplayFacts {
    QString sessionType;    ///< as the session says: "x11", "wayland", or empty
    QString desktop;        ///< as the session says: "XFCE"
    QString display;        ///< the name of the display server, empty when there is none
    QString waylandDisplay; ///< the same of a Wayland compositor
    QString windowManager;
    bool connected = false;
    QStringList missing; ///< what the display server lacks and the program needs
};

/// Who shows status items.
struct TrayFacts {
    bool host = false;      ///< a host of StatusNotifierItems
    bool embedding = false; ///< a host of the older kind, which embeds windows
};

/// Who gets the links of the program's scheme.
struct LinkFacts {
    QString entry;             ///< the desktop entry that is the handler, empty when there is none
    QString program;           ///< what that entry starts
    bool works = false;        ///< whether there is such a program
    bool startedByBus = false; ///< whether the session bus knows how to start the program
};

/// What the desktop around the program has to offer. Main thread only; nothing here changes anything.
class DesktopSurvey {
  public:
    virtual ~DesktopSurvey() = default;
    virtual DisplayFacts display() = 0;
    virtual QCoro::Task<TrayFacts> tray() = 0;
    virtual QCoro::Task<LinkFacts> links() = 0;
};

} // namespace vellumline
