#pragma once

#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/HTTPTransport.h"
#include "Vellumline/Platform/Workspace.h"
#include "Vellumline/UpdateDialog.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>

namespace vellumline {

/// Looks at the update feed, one look at a time, and shows what came of it in one dialog. Nothing is fetched
/// but the feed, and nothing is installed: the dialog opens a page. Main thread only.
class UpdaterController : public QObject {
    Q_OBJECT
  public:
    static constexpr std::chrono::seconds quietDelay{5}; ///< The start of the program comes first.

    UpdaterController(UpdateFeed feed, SoftwareVersion current, HTTPTransport& transport,
                      Workspace& workspace, Clock& clock);
    ~UpdaterController() override;

    /// Looks once, a few seconds from now, and says something only if there is a newer version; the window
    /// does not take the keyboard then.
    QCoro::Task<void> checkQuietlyLater();
    /// Shows the dialog at once, and in it what comes of the look that begins or is under way. With a dialog
    /// on screen: brings it to the front.
    void checkForUpdates();

    /// The dialog on screen, if any.
    UpdateDialog* dialog() const { return dialog_; }

  private:
    enum class Focus { take, leave };

    QCoro::Task<void> look();
    UpdateDialog* makeDialog();
    void present(Focus focus);

    UpdateFeed feed_;
    SoftwareVersion current_;
    HTTPTransport& transport_;
    Workspace& workspace_;
    Clock& clock_;
    int looks_ = 0;    ///< how many have begun
    int underWay_ = 0; ///< the number of the look whose result counts; 0 when there is none
    QPointer<UpdateDialog> dialog_;
};

} // namespace vellumline
