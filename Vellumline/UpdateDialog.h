#pragma once

#include "Vellumline/Style.h"
#include "Vellumline/UpdateCheck.h"

#include <QDialog>

class QPlainTextEdit;
class QProgressBar;

namespace vellumline {

/// The one window of the updates: that the feed is being looked at, and then what came of it. The program
/// goes on beside it. Escape and the window's close button open nothing.
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
    void fitNotes();
    void fit();

    QString currentVersion_;
    QUrl page_; ///< what proceed_ opens; nothing when empty
    bool checking_ = false;

    Style::Label* headline_;
    Style::Label* detail_;
    Style::Label* versions_;
    QProgressBar* progress_;
    Style::Field* notesField_;
    QPlainTextEdit* notes_;
    Style::Button* dismiss_;
    Style::Button* proceed_;
};

} // namespace vellumline
