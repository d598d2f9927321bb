#include "Vellumline/Updates.h"

namespace vellumline {

Updates::Updates(const std::optional<UpdateFeed>& feed, const QString& currentVersion, AppModel& model,
                 HTTPTransport& transport, Workspace& workspace, Clock& clock)
    : model_(model) {
    const std::optional<SoftwareVersion> current = SoftwareVersion::parse(currentVersion);
    if (feed && current)
        controller_ = std::make_unique<UpdaterController>(*feed, *current, transport, workspace, clock);
}

void Updates::start() {
    if (controller_)
        controller_->checkQuietlyLater();
}

void Updates::checkForUpdates() {
    if (controller_)
        controller_->checkForUpdates();
    else
        model_.setStatus(MenuStatus::message(QStringLiteral("This build has no update feed.")));
}

} // namespace vellumline
