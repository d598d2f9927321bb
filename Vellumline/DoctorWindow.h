#pragma once

#include "Vellumline/Doctor.h"

#include <memory>

class QPlainTextEdit;
class QWidget;

namespace vellumline {

/// The practice field as a small window in the middle of the screen. Main thread only.
class DoctorWindow final : public PracticeField {
  public:
    DoctorWindow();
    ~DoctorWindow() override;

    void show() override;
    bool hasKeyboard() const override;
    void setText(const QString& text) override;
    QString text() const override;
    void selectAll() override;
    void close() override;

  private:
    std::unique_ptr<QWidget> window_;
    QPlainTextEdit* edit_ = nullptr;
};

} // namespace vellumline
