#include "Vellumline/OnboardingWindow.h"

#include "Vellumline/LaunchAtLoginToggle.h"
#include "Vellumline/Style.h"

#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QScreen>
#include <QVBoxLayout>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr int windowWidth = 460;
constexpr int padding = 24;
constexpr int partSpacing = 18;
constexpr int iconSpacing = 12;
constexpr int iconSide = 20;
constexpr int lineSpacing = 6;
constexpr int practiceHeight = 56;
const QString practiceSentence = QStringLiteral("i has went to the shop yesterday and buyed three apple.");

} // namespace

OnboardingView::OnboardingView(AppModel& model, std::function<void()> onDone, QWidget* parent)
    : QWidget(parent), model_(model), parts_(new QVBoxLayout(this)) {
    setFixedWidth(Style::scaled(windowWidth));
    parts_->setContentsMargins(padding, padding, padding, padding);
    parts_->setSpacing(partSpacing);
    parts_->addWidget(Style::title(QStringLiteral("Correct the sentence where you wrote it"), this));
    addAccessibilityStep();
    addShortcutStep();
    addSignInStep();
    addPracticeStep();
    Style::Button* done = Style::prominentButton(QStringLiteral("Done"), this);
    connect(done, &QPushButton::clicked, this, std::move(onDone));
    parts_->addWidget(done, 0, Qt::AlignRight);

    for (const auto changed :
         {&AppModel::trustedChanged, &AppModel::accountChanged, &AppModel::hotkeyLabelChanged,
          &AppModel::recordingHotkeyChanged, &AppModel::hotkeyNoteChanged, &AppModel::statusChanged})
        connect(&model_, changed, this, &OnboardingView::refresh);
    refresh();
    practice_->setFocus();
}

OnboardingView::Step OnboardingView::step(int number, const QString& title) {
    auto* row = new QHBoxLayout;
    row->setSpacing(iconSpacing);
    Step made{new Style::Symbol(iconSide, this), Style::headline(title, this), new QVBoxLayout};
    setDone(made, number, false);
    row->addWidget(made.icon, 0, Qt::AlignTop);
    made.content->setSpacing(lineSpacing);
    made.content->addWidget(made.title);
    row->addLayout(made.content, 1);
    parts_->addLayout(row);
    return made;
}

void OnboardingView::setDone(const Step& step, int number, bool done) {
    if (done)
        step.icon->setSymbol(QStringLiteral("check"), Style::Tone::good, QStringLiteral("Done"));
    else
        step.icon->setSymbol(QStringLiteral("step-%1").arg(number), Style::Tone::secondary,
                             QStringLiteral("Step %1").arg(number));
}

void OnboardingView::addAccessibilityStep() {
    accessibility_ = step(1, QStringLiteral("Allow Accessibility"));
    accessibility_.content->addWidget(Style::callout(
        QStringLiteral(
            "Vellumline copies your selection and pastes the correction. macOS asks you to allow that once."),
        this));
    openSettings_ = Style::button(QStringLiteral("Open System Settings"), this);
    connect(openSettings_, &QPushButton::clicked, this, [this] {
        model_.allowAccessibility();
        model_.openAccessibilitySettings();
    });
    accessibility_.content->addWidget(openSettings_, 0, Qt::AlignLeft);
}

void OnboardingView::addShortcutStep() {
    shortcut_ = step(2, {});
    record_ = Style::button({}, this);
    connect(record_, &QPushButton::clicked, &model_, &AppModel::toggleRecording);
    shortcut_.content->addWidget(record_, 0, Qt::AlignLeft);
    hotkeyNote_ = Style::caption(this);
    hotkeyNote_->setTone(Style::Tone::primary);
    shortcut_.content->addWidget(hotkeyNote_);
    auto* launch = new Style::Toggle(QStringLiteral("Open at login"), this);
    bindLaunchAtLogin(launch, model_);
    shortcut_.content->addWidget(launch);
}

void OnboardingView::addSignInStep() {
    signInStep_ = step(3, QStringLiteral("Sign in"));
    signInStep_.content->addWidget(Style::callout(
        QStringLiteral("The first 30 rewrites are free. You sign in on the Vellumline site."), this));
    signIn_ = Style::button(QStringLiteral("Sign in"), this);
    connect(signIn_, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    signInStep_.content->addWidget(signIn_, 0, Qt::AlignLeft);
}

void OnboardingView::addPracticeStep() {
    practiceStep_ = step(4, QStringLiteral("Try it"));
    practiceHint_ = Style::callout({}, this);
    practiceStep_.content->addWidget(practiceHint_);
    auto* field = new Style::Field(this);
    practice_ = new QPlainTextEdit(practiceSentence, field);
    practice_->setAccessibleName(QStringLiteral("Practice sentence"));
    practice_->setTabChangesFocus(true);
    field->setEditor(practice_);
    field->setFixedHeight(Style::scaled(practiceHeight));
    practiceStep_.content->addWidget(field);
    status_ = Style::caption(this);
    practiceStep_.content->addWidget(status_);
}

void OnboardingView::refresh() {
    setDone(accessibility_, 1, model_.trusted());
    openSettings_->setVisible(!model_.trusted());
    shortcut_.title->setText(QStringLiteral("Your shortcut is ") + model_.hotkeyLabel());
    record_->setText(model_.recordingHotkey() ? QStringLiteral("Press keys…") : QStringLiteral("Change"));
    hotkeyNote_->setText(model_.hotkeyNote().value_or(QString()));
    hotkeyNote_->setVisible(model_.hotkeyNote().has_value());
    setDone(signInStep_, 3, model_.account().isSignedIn());
    signIn_->setVisible(!model_.account().isSignedIn());
    setDone(practiceStep_, 4, model_.status().kind == MenuStatus::Kind::rewrote);
    practiceHint_->setText(QStringLiteral("Select the sentence below and press ") + model_.hotkeyLabel() +
                           QLatin1Char('.'));
    status_->setText(model_.statusText().value_or(QString()));
    status_->setVisible(model_.statusText().has_value());
}

const QString OnboardingWindow::doneKey = QStringLiteral("vellumline.onboardingDone");

OnboardingWindow::OnboardingWindow(AppModel& model, UserDefaults& defaults, Clock& clock)
    : model_(model), defaults_(defaults), clock_(clock) {}

OnboardingWindow::~OnboardingWindow() {
    if (window_) {
        window_->removeEventFilter(this);
        delete window_;
    }
}

void OnboardingWindow::show() {
    if (!window_) {
        model_.clearHotkeyNote();
        window_ = buildWindow();
        window_->installEventFilter(this);
        window_->adjustSize();
        if (const QScreen* screen = QGuiApplication::primaryScreen())
            window_->move(screen->availableGeometry().center() - window_->rect().center());
        window_->show();
        pollTrust();
    }
    window_->raise();
    window_->activateWindow();
}

QCoro::Task<void> OnboardingWindow::pollTrust() {
    const QPointer<QWidget> shown = window_;
    const QPointer<OnboardingWindow> self(this);
    Clock& clock = clock_;
    while (self && shown && shown->isVisible()) {
        model_.refreshTrust();
        co_await clock.sleepFor(1s);
    }
}

QWidget* OnboardingWindow::buildWindow() {
    auto* window = new QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                            Qt::WindowCloseButtonHint);
    window->setWindowTitle(QStringLiteral("Welcome to Vellumline"));
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize); // the window follows its rows
    layout->addWidget(new OnboardingView(
        model_, [window] { window->close(); }, window));
    return window;
}

bool OnboardingWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_ && event->type() == QEvent::Close) {
        // The close button counts as finished, as "Done" does.
        defaults_.set(doneKey, true);
        model_.stopRecording();
        window_->removeEventFilter(this);
        window_->deleteLater();
        window_.clear();
    }
    return QObject::eventFilter(watched, event);
}

} // namespace vellumline
