#pragma once

#include <QCoroTask>
#include <QUrl>
#include <chrono>
#include <optional>

namespace vellumline {

/// The desktop around the program. Main thread only.
class Workspace {
  public:
    virtual ~Workspace() = default;

    struct Application {
        qint64 processIdentifier = 0;
        quint64 window = 0; ///< the one in front, by the platform's own number; 0 where that is not known

        /// The same program, whichever of its windows.
        bool operator==(const Application& other) const {
            return processIdentifier == other.processIdentifier;
        }
    };

    /// The program whose window has the user's input now; nothing when there is none or it does not say who
    /// it is.
    virtual std::optional<Application> frontmostApplication() const = 0;
    /// True once that program has taken the keys that were sent to its window before this call, however late
    /// it comes to them. False when it cannot be asked, its window goes, or the time is over.
    virtual QCoro::Task<bool> hasTakenInput(Application application, std::chrono::milliseconds limit) = 0;
    /// Gives the user's input to that program: its topmost window becomes the active one. Nothing happens
    /// when it has none any more.
    virtual void activate(const Application& application) = 0;
    /// Opens a link in the user's browser (or the program registered for its scheme); failures are not
    /// reported.
    virtual void openURL(const QUrl& url) = 0;
    /// The system's short alert sound.
    virtual void beep() = 0;
};

} // namespace vellumline
