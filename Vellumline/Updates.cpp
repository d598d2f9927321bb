#include "Vellumline/Updates.h"

namespace vellumline {

Updates::Updates(const std::optional<UpdateFeed>& feed, const QString& currentVersion, AppModel& model,
                 HTTPTransport& transport, Workspace& workspace, Clock& clock)
    : feed_(feed), current_(SoftwareVersion::parse(currentVersion)), model_(model), transport_(transport),
      workspace_(workspace), clock_(clock) {}

void Updates::start() {
    if (started_)
        return;
    started_ = true;
    if (!feed_ || !current_)
        return;
    controller_ = std::make_unique<UpdaterController>(*feed_, *current_, transport_, workspace_, clock_);
    controller_->checkQuietlyLater();
}

void Updates::checkForUpdates() {
    if (!started_)
        return;
    if (controller_)
        controller_->checkForUpdates();
    else
        model_.setStatus(MenuStatus::message(QStringLiteral("This build has no update feed.")));
}

} // namespace vellumline
