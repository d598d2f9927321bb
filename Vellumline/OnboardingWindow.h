#pragma once

#include "Vellumline/AppModel.h"
#include "VellumlineCore/UserDefaults.h"

#include <QObject>
#include <QPointer>
#include <QWidget>
#include <functional>

class QPlainTextEdit;
class QVBoxLayout;

namespace vellumline {

namespace Style {
class Button;
class Label;
class Symbol;
} // namespace Style

/// The content of the welcome window: what the program needs, the shortcut, signing in, and a sentence to
/// practise on. A picture of the model; the practice text is its only state. Main thread only.
class OnboardingView : public QWidget {
    Q_OBJECT
  public:
    OnboardingView(AppModel& model, std::function<void()> onDone, QWidget* parent = nullptr);

    QPlainTextEdit* practice() const { return practice_; }

  private:
    struct Step {
        Style::Symbol* icon;
        Style::Label* title;
        QVBoxLayout* content;
    };
    /// A row of the window: its icon, and a column that begins with the title.
    Step step(int number, const QString& title);
    static void setDone(const Step& step, int number, bool done);
    void addAccessibilityStep();
    void addShortcutStep();
    void addSignInStep();
    void addPracticeStep();
    void refresh();

    AppModel& model_;
    QVBoxLayout* parts_;
    Step accessibility_{};
    Style::Button* openSettings_ = nullptr;
    Step shortcut_{};
    Style::Button* record_ = nullptr;
    Style::Label* hotkeyNote_ = nullptr;
    Step signInStep_{};
    Style::Button* signIn_ = nullptr;
    Step practiceStep_{};
    Style::Label* practiceHint_ = nullptr;
    QPlainTextEdit* practice_ = nullptr;
    Style::Label* status_ = nullptr;
};

/// The welcome window. Main thread only.
class OnboardingWindow : public QObject {
    Q_OBJECT
  public:
    OnboardingWindow(AppModel& model, UserDefaults& defaults, Clock& clock);
    ~OnboardingWindow() override;

    static const QString doneKey; ///< "vellumline.onboardingDone"

    /// Shows the window, or brings the one that is open to the front.
    void show();
    QWidget* window() const { return window_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QWidget* buildWindow();
    QCoro::Task<void> pollTrust();

    AppModel& model_;
    UserDefaults& defaults_;
    Clock& clock_;
    QPointer<QWidget> window_;
};

} // namespace vellumline
