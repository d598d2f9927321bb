#pragma once

#include "Vellumline/Platform/Workspace.h"
#include "Vellumline/Platform/X11/X11Connection.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

namespace vellumline {

/// The window manager's active window, the desktop's browser and the bell. Main thread only. Every question
/// is a round trip to the X server or two, never one to another program.
class X11Workspace final : public Workspace {
  public:
    /// Starts a program without waiting for it; false when it could not be started.
    using Launcher = std::function<bool(const QString& program, const QStringList& arguments)>;

    /// The connection must outlive the workspace. The default launcher starts a detached process.
    explicit X11Workspace(X11Connection& connection, Launcher launcher = {});

    std::optional<Application> frontmostApplication() const override;
    QCoro::Task<bool> hasTakenInput(Application application, std::chrono::milliseconds limit) override;
    void activate(const Application& application) override;
    void openURL(const QUrl& url) override;
    void beep() override;

    /// The window that the window manager calls active (_NET_ACTIVE_WINDOW). Where no window manager keeps
    /// that property: the top-level window that holds the input focus. XCB_WINDOW_NONE when there is none.
    xcb_window_t activeWindow() const;

    struct WindowClass {
        QString instance; ///< "gimp-2.10"
        QString name;     ///< "Gimp"
        bool operator==(const WindowClass&) const = default;
    };
    /// WM_CLASS of that window; both parts empty when it has none.
    WindowClass activeWindowClass() const;

  private:
    QByteArray property(xcb_window_t window, const QByteArray& name, xcb_atom_t type) const;
    bool exists(xcb_window_t window) const;
    xcb_window_t focusedTopLevel() const;
    bool isOfThisMachine(xcb_window_t window) const;
    qint64 clientProcess(xcb_window_t window) const;
    qint64 processOf(xcb_window_t window) const;
    void openAccessibilitySettings();
    void openWithDesktop(const QUrl& url);

    X11Connection& connection_;
    Launcher launcher_;
    bool hasClientIds_ = false;
    QObject context_; ///< Answers of the portal are dropped when the workspace is gone.
};

} // namespace vellumline
