#pragma once

#include "Vellumline/UpdateCheck.h"

#include <QDialog>

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace vellumline {

/// The one window of the updates: that the feed is being looked at, and then what came of it. The program
/// goes on beside it. Escape and the window's close button are the same as its first button.
class UpdateDialog final : public QDialog {
    Q_OBJECT
  public:
    explicit UpdateDialog(QString currentVersion);

    void showChecking();
    void showResult(const UpdateResult& result);
    bool isChecking() const { return checking_; }

  Q_SIGNALS:
    /// The user wants to see that page, or to fetch that file; the dialog is closing.
    void pageWanted(const QUrl& url);

  private:
    void showMessage(const QString& headline, const QString& detail);
    void showNewVersion(const AppcastItem& item);
    void fit();

    QString currentVersion_;
    QUrl page_;
    bool checking_ = false;

    QLabel* headline_;
    QLabel* detail_;
    QLabel* versions_;
    QProgressBar* progress_;
    QPlainTextEdit* notes_;
    QPushButton* dismiss_;
    QPushButton* open_;
};

} // namespace vellumline
