#include "Vellumline/PromptPanel.h"

#include "Vellumline/Style.h"

#include <QCloseEvent>
#include <QCursor>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>

namespace vellumline {

namespace {

constexpr int windowWidth = 440;
constexpr int detailWidth = 400;
constexpr int sideInset = 20;
constexpr int topInset = 16;
constexpr int spacing = 8;
constexpr int spaceAfterDetail = 20;

} // namespace

PromptPanel::PromptPanel(std::function<void(QWidget& window)> prepareWindow)
    : prepareWindow_(std::move(prepareWindow)) {}

PromptPanel::~PromptPanel() {
    if (window_) {
        window_->removeEventFilter(this);
        delete window_;
    }
}

void PromptPanel::show(const QString& title, const QString& detail, const QList<Action>& actions,
                       std::function<void()> onFinish) {
    close();
    actions_ = actions;
    onFinish_ = std::move(onFinish);

    auto* window = new QWidget(nullptr, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                            Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setWindowTitle(QStringLiteral("Vellumline"));
    window->installEventFilter(this);

    auto* stack = new QVBoxLayout(window);
    stack->setContentsMargins(sideInset, topInset, sideInset, topInset);
    stack->setSpacing(0);
    Style::Label* question = Style::headline(title, window);
    question->setWordWrap(false);
    stack->addWidget(question);
    stack->addSpacing(spacing);
    Style::Label* explanation = Style::callout(detail, window);
    explanation->setMaximumWidth(Style::scaled(detailWidth));
    stack->addWidget(explanation);
    stack->addSpacing(spaceAfterDetail);

    auto* row = new QHBoxLayout;
    row->setSpacing(spacing);
    row->addStretch();
    Style::Button* notNow = Style::button(QStringLiteral("Not now"), window);
    connect(notNow, &QPushButton::clicked, this, &PromptPanel::dismiss);
    row->addWidget(notNow);
    QPushButton* last = nullptr;
    for (qsizetype i = 0; i < actions.size(); ++i) {
        const bool isLast = i == actions.size() - 1;
        Style::Button* button = isLast ? Style::prominentButton(actions.at(i).title, window)
                                       : Style::button(actions.at(i).title, window);
        connect(button, &QPushButton::clicked, this, [this, i] { pressed(i); });
        row->addWidget(button);
        last = button;
    }
    if (last != nullptr) {
        last->setFocus();
        for (const auto key : {Qt::Key_Return, Qt::Key_Enter})
            connect(new QShortcut(QKeySequence(key), window), &QShortcut::activated, last,
                    &QPushButton::click);
    }
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), window), &QShortcut::activated, this,
            &PromptPanel::dismiss);
    stack->addLayout(row);

    window->setFixedWidth(Style::scaled(windowWidth));
    window->adjustSize();
    window->setFixedHeight(window->heightForWidth(window->width()));
    place(window);
    window_ = window;
    if (prepareWindow_)
        prepareWindow_(*window);
    window->show();
    window->raise();
}

bool PromptPanel::bringToFront() {
    if (!window_)
        return false;
    place(window_);
    window_->show();
    window_->raise();
    return true;
}

void PromptPanel::place(QWidget* window) {
    const QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (screen == nullptr)
        screen = QGuiApplication::primaryScreen();
    if (screen == nullptr)
        return;
    const QRect visible = screen->availableGeometry();
    const QSize size = window->frameGeometry().size(); // the title bar too, once the window has one
    window->move(visible.center() - QPoint(size.width() / 2, size.height() / 2));
}

void PromptPanel::pressed(qsizetype index) {
    if (index < 0 || index >= actions_.size())
        return;
    const auto run = actions_.at(index).run;
    close();
    if (run)
        run();
}

void PromptPanel::dismiss() {
    close();
}

void PromptPanel::close() {
    if (window_)
        window_->close(); // ends in windowWillClose()
}

bool PromptPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_ && event->type() == QEvent::Close)
        windowWillClose();
    return QObject::eventFilter(watched, event);
}

void PromptPanel::windowWillClose() {
    QWidget* closing = window_;
    window_.clear();
    closing->removeEventFilter(this);
    closing->deleteLater();
    actions_.clear();
    const auto finish = std::exchange(onFinish_, [] {});
    finish();
}

} // namespace vellumline
