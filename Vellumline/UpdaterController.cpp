#include "Vellumline/UpdaterController.h"

namespace vellumline {

UpdaterController::UpdaterController(UpdateFeed feed, SoftwareVersion current, HTTPTransport& transport,
                                     Workspace& workspace, Clock& clock)
    : feed_(std::move(feed)), current_(std::move(current)), transport_(transport), workspace_(workspace),
      clock_(clock) {}

UpdaterController::~UpdaterController() {
    if (dialog_) {
        dialog_->disconnect(this);
        delete dialog_;
    }
}

QCoro::Task<void> UpdaterController::checkQuietlyLater() {
    const QPointer<UpdaterController> self(this);
    co_await clock_.sleepFor(quietDelay);
    if (self && looks_ == 0)
        look();
}

void UpdaterController::checkForUpdates() {
    if (!dialog_) {
        makeDialog()->showChecking();
        if (underWay_ == 0)
            look();
    }
    present(Focus::take);
}

QCoro::Task<void> UpdaterController::look() {
    const QPointer<UpdaterController> self(this);
    const int number = ++looks_;
    underWay_ = number;
    const UpdateResult result = co_await UpdateCheck::run(transport_, feed_, current_);
    // Cancelled by the user, perhaps with another look after it.
    if (!self || underWay_ != number)
        co_return;
    underWay_ = 0;
    if (dialog_) {
        dialog_->showResult(result);
    } else if (result.kind == UpdateResult::Kind::newVersion) {
        makeDialog()->showResult(result);
        present(Focus::leave);
    }
}

UpdateDialog* UpdaterController::makeDialog() {
    dialog_ = new UpdateDialog(current_.text());
    connect(dialog_, &UpdateDialog::pageWanted, this, [this](const QUrl& url) { workspace_.openURL(url); });
    connect(dialog_, &UpdateDialog::finished, this, [this] {
        if (dialog_->isChecking())
            underWay_ = 0;
        dialog_->deleteLater();
        dialog_.clear();
    });
    return dialog_;
}

void UpdaterController::present(Focus focus) {
    dialog_->setAttribute(Qt::WA_ShowWithoutActivating, focus == Focus::leave);
    dialog_->setWindowState(dialog_->windowState() & ~Qt::WindowMinimized);
    dialog_->show();
    dialog_->raise();
    if (focus == Focus::take)
        dialog_->activateWindow();
}

} // namespace vellumline
