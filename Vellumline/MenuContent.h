#pragma once

#include "Vellumline/AppModel.h"

#include <QWidget>
#include <functional>

class QCheckBox;
class QLabel;
class QPushButton;

namespace vellumline {

/// What the menu panel shows: the main menu, the settings page or the about page. A picture of the model; the
/// page is its only state.
class MenuContent : public QWidget {
    Q_OBJECT
  public:
    struct Actions {
        std::function<void()> checkForUpdates;
        std::function<void()> showWelcomeWindow;
        std::function<void()> quit;
    };

    MenuContent(AppModel& model, Actions actions, QWidget* parent = nullptr);

    /// The main menu is about to be seen: its figures are made fresh.
    void willShow();

  Q_SIGNALS:
    /// The content may have another size now.
    void sizeMayHaveChanged();

  private:
    enum class Page { main, settings, about };

    QWidget* mainPage();
    QWidget* settingsPage();
    QWidget* aboutPage();
    void showPage(Page page);
    void refresh();

    AppModel& model_;
    Actions actions_;
    QWidget* main_ = nullptr;
    QWidget* settings_ = nullptr;
    QWidget* about_ = nullptr;

    QLabel* account_ = nullptr;
    QLabel* plan_ = nullptr;
    QLabel* notice_ = nullptr;
    QPushButton* signInAgain_ = nullptr;
    QPushButton* signIn_ = nullptr;
    QLabel* status_ = nullptr;
    QWidget* plans_ = nullptr;
    QPushButton* allowAccessibility_ = nullptr;
    QPushButton* accountPage_ = nullptr;
    QPushButton* signOut_ = nullptr;

    QLabel* hotkey_ = nullptr;
    QPushButton* record_ = nullptr;
    QLabel* hotkeyNote_ = nullptr;
    QLabel* trust_ = nullptr;
    QPushButton* openSettings_ = nullptr;
    QCheckBox* launchAtLogin_ = nullptr;
};

} // namespace vellumline
