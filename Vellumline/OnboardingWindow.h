#pragma once

#include "Vellumline/AppModel.h"
#include "VellumlineCore/UserDefaults.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

namespace vellumline {

/// The welcome window: what the program needs, the shortcut, signing in, and a sentence to practise on. Main
/// thread only.
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
