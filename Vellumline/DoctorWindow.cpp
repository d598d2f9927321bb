#include "Vellumline/DoctorWindow.h"

#include "Vellumline/Style.h"

#include <QPlainTextEdit>
#include <QVBoxLayout>

namespace vellumline {

namespace {

constexpr int width = 420;
constexpr int height = 120;
constexpr int padding = 16;

} // namespace

DoctorWindow::DoctorWindow() : window_(std::make_unique<QWidget>()) {
    window_->setWindowTitle(QStringLiteral("A look at this desktop"));
    auto* layout = new QVBoxLayout(window_.get());
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->addWidget(Style::callout(
        QStringLiteral("This window closes by itself. Please do not type until it has."), window_.get()));
    edit_ = new QPlainTextEdit(window_.get());
    edit_->setAccessibleName(QStringLiteral("Practice sentence"));
    layout->addWidget(edit_);
    window_->resize(Style::scaled(width), Style::scaled(height));
}

DoctorWindow::~DoctorWindow() = default;

void DoctorWindow::show() {
    window_->show();
    window_->raise();
    window_->activateWindow();
    edit_->setFocus();
}

bool DoctorWindow::hasKeyboard() const {
    return window_->isActiveWindow() && edit_->hasFocus();
}

void DoctorWindow::setText(const QString& text) {
    edit_->setPlainText(text);
}

QString DoctorWindow::text() const {
    return edit_->toPlainText();
}

void DoctorWindow::selectAll() {
    edit_->selectAll();
}

void DoctorWindow::close() {
    window_->hide();
}

} // namespace vellumline
