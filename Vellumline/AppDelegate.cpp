#include "Vellumline/AppDelegate.h"

#include "Vellumline/OnboardingWindow.h"

namespace vellumline {

AppDelegate::AppDelegate(Steps steps, HotkeyMonitor& hotkeyMonitor, UserDefaults& defaults)
    : steps_(std::move(steps)), hotkeyMonitor_(hotkeyMonitor), defaults_(defaults) {}

void AppDelegate::applicationDidFinishLaunching() {
    steps_.becomeAccessory();
    steps_.receiveLinks([this](const QString& link) { handleGetURLEvent(link); });
    model_ = &steps_.makeModel();
    hotkeyMonitor_.onPress = [model = model_] {
        if (model)
            model->rewrite();
    };
    const HotkeyBinding binding = HotkeyBinding::load(defaults_);
    if (!hotkeyMonitor_.registerBinding(binding))
        model_->setStatus(MenuStatus::message(QStringLiteral("Could not register ") + binding.label() +
                                              QStringLiteral(". Pick another shortcut in Settings.")));
    model_->restoreAccount();
    steps_.startUpdater();
    steps_.startStatusMenu();
    if (!defaults_.boolean(OnboardingWindow::doneKey))
        steps_.showWelcomeWindow();
}

void AppDelegate::handleGetURLEvent(const QString& link) {
    if (model_ && !link.isEmpty())
        model_->open(link);
}

} // namespace vellumline
