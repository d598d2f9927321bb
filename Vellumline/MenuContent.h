#pragma once

#include "Vellumline/AppModel.h"

#include <QWidget>
#include <functional>

class QVBoxLayout;

namespace vellumline {

class InfoView;
class SettingsView;

namespace Style {
class Button;
class Label;
class UsageBar;
} // namespace Style

/// What the menu panel shows: the main menu, the settings page or the about page. A picture of the model; the
/// page is its only state, and survives closing the panel. Main thread only.
class MenuContent : public QWidget {
    Q_OBJECT
  public:
    struct Actions {
        std::function<void()> checkForUpdates;
        std::function<void()> showWelcomeWindow;
        std::function<void(QUrl)> openLink; ///< a link of the about page
        std::function<void()> quit;
    };
    enum class Page { main, settings, info };

    MenuContent(AppModel& model, Actions actions, QWidget* parent = nullptr);

    /// The main menu is about to be seen: its figures are made fresh.
    void willShow();
    Page page() const { return page_; }
    void showPage(Page page);

  Q_SIGNALS:
    /// A row came, went or has another text.
    void sizeMayHaveChanged();
    /// Another page is shown; its size settles within a moment.
    void pageChanged();

  private:
    QWidget* mainPage();
    void addHeader(QVBoxLayout* rows, QWidget* page);
    void addAccount(QVBoxLayout* rows, QWidget* page);
    void addPlans(QVBoxLayout* rows, QWidget* page);
    void addCommands(QVBoxLayout* rows, QWidget* page);
    void refresh();
    bool event(QEvent* event) override;

    AppModel& model_;
    Actions actions_;
    Page page_ = Page::main;
    QWidget* main_ = nullptr;
    SettingsView* settings_ = nullptr;
    InfoView* info_ = nullptr;

    Style::Label* account_ = nullptr;
    QWidget* plan_ = nullptr;
    Style::Label* planLabel_ = nullptr;
    Style::UsageBar* usage_ = nullptr;
    Style::Label* notice_ = nullptr;
    Style::Button* signInAgain_ = nullptr;
    Style::Button* signIn_ = nullptr;
    Style::Label* status_ = nullptr;
    QWidget* plans_ = nullptr;
    Style::Button* allowAccessibility_ = nullptr;
    Style::Button* accountPage_ = nullptr;
    Style::Button* signOut_ = nullptr;
};

} // namespace vellumline
