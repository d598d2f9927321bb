#pragma once

#include "Vellumline/AppModel.h"
#include "Vellumline/UpdaterController.h"

#include <QObject>
#include <memory>
#include <optional>

namespace vellumline {

/// The updates of the program, for a build with an update feed and for one without. Main thread only.
class Updates : public QObject {
    Q_OBJECT
  public:
    Updates(const std::optional<UpdateFeed>& feed, const QString& currentVersion, AppModel& model,
            HTTPTransport& transport, Workspace& workspace, Clock& clock);

    /// The look at the start of the program; nothing without a feed. A second call does nothing.
    void start();
    /// The user's command. Does nothing before start(). Without a feed the model's status line says so.
    void checkForUpdates();

    /// Nothing before start(), and without a feed.
    UpdaterController* controller() const { return controller_.get(); }

  private:
    std::optional<UpdateFeed> feed_;
    std::optional<SoftwareVersion> current_;
    AppModel& model_;
    HTTPTransport& transport_;
    Workspace& workspace_;
    Clock& clock_;
    bool started_ = false;
    std::unique_ptr<UpdaterController> controller_;
};

} // namespace vellumline
