#include "Vellumline/OnboardingWindow.h"

#include "Vellumline/Style.h"

#include <QCheckBox>
#include <QEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr int windowWidth = 460;
constexpr int padding = 24;
constexpr int partSpacing = 18;
constexpr int iconSpacing = 12;
constexpr int lineSpacing = 6;
constexpr int practiceHeight = 56;
const QString practiceSentence = QStringLiteral("i has went to the shop yesterday and buyed three apple.");

struct Step {
    QLabel* icon;
    QVBoxLayout* content;
};

Step addStep(QVBoxLayout* parts, const QString& title, QWidget* window) {
    auto* row = new QHBoxLayout;
    row->setSpacing(iconSpacing);
    QLabel* icon = Style::title({}, window);
    icon->setWordWrap(false);
    icon->setFixedWidth(icon->fontMetrics().horizontalAdvance(QStringLiteral("②")));
    row->addWidget(icon, 0, Qt::AlignTop);
    auto* content = new QVBoxLayout;
    content->setSpacing(lineSpacing);
    QLabel* headline = Style::headline(title, window);
    headline->setObjectName(QStringLiteral("stepTitle"));
    content->addWidget(headline);
    row->addLayout(content, 1);
    parts->addLayout(row);
    return {icon, content};
}

void setStepIcon(QLabel* icon, int number, bool done) {
    static const QString digits = QStringLiteral("①②③④");
    icon->setText(done ? QStringLiteral("✓") : QString(digits.at(number - 1)));
    QPalette palette = icon->palette();
    palette.setColor(QPalette::WindowText, done
                                               ? QColor(0x2f, 0x9e, 0x44)
                                               : QGuiApplication::palette().color(QPalette::PlaceholderText));
    icon->setPalette(palette);
}

} // namespace

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
    window->setFixedWidth(windowWidth);
    auto* parts = new QVBoxLayout(window);
    parts->setContentsMargins(padding, padding, padding, padding);
    parts->setSpacing(partSpacing);
    parts->addWidget(Style::title(QStringLiteral("Correct the sentence where you wrote it"), window));

    const Step allow = addStep(parts, QStringLiteral("Allow Accessibility"), window);
    allow.content->addWidget(Style::callout(
        QStringLiteral(
            "Vellumline copies your selection and pastes the correction. macOS asks you to allow that once."),
        window));
    QPushButton* openSettings = Style::button(QStringLiteral("Open System Settings"), window);
    connect(openSettings, &QPushButton::clicked, &model_, [this] {
        model_.allowAccessibility();
        model_.openAccessibilitySettings();
    });
    allow.content->addWidget(openSettings, 0, Qt::AlignLeft);

    const Step shortcut = addStep(parts, QString(), window);
    auto* shortcutTitle = qobject_cast<QLabel*>(shortcut.content->itemAt(0)->widget());
    QPushButton* record = Style::button({}, window);
    connect(record, &QPushButton::clicked, &model_, &AppModel::toggleRecording);
    shortcut.content->addWidget(record, 0, Qt::AlignLeft);
    QLabel* note = Style::caption(window);
    Style::setSecondary(note, false);
    shortcut.content->addWidget(note);
    auto* launch = new QCheckBox(QStringLiteral("Open at login"), window);
    connect(launch, &QCheckBox::toggled, &model_, [this, launch](bool on) {
        model_.setLaunchAtLogin(on);
        // The switch shows what is, which may not be what was wished.
        const QSignalBlocker quiet(launch);
        launch->setChecked(model_.launchAtLogin());
    });
    shortcut.content->addWidget(launch);

    const Step account = addStep(parts, QStringLiteral("Sign in"), window);
    account.content->addWidget(Style::callout(
        QStringLiteral("The first 30 rewrites are free. You sign in on the Vellumline site."), window));
    QPushButton* signIn = Style::button(QStringLiteral("Sign in"), window);
    connect(signIn, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    account.content->addWidget(signIn, 0, Qt::AlignLeft);

    const Step practice = addStep(parts, QStringLiteral("Try it"), window);
    QLabel* practiceHint = Style::callout({}, window);
    practice.content->addWidget(practiceHint);
    auto* editor = new QPlainTextEdit(practiceSentence, window);
    editor->setFixedHeight(practiceHeight);
    editor->setAccessibleName(QStringLiteral("Practice sentence"));
    editor->setTabChangesFocus(true);
    practice.content->addWidget(editor);
    QLabel* status = Style::caption(window);
    practice.content->addWidget(status);

    parts->addStretch(); // rows that disappear leave their height to nobody
    auto* bottom = new QHBoxLayout;
    bottom->addStretch();
    QPushButton* done = Style::prominentButton(QStringLiteral("Done"), window);
    connect(done, &QPushButton::clicked, window, &QWidget::close);
    bottom->addWidget(done);
    parts->addLayout(bottom);

    const auto refresh = [=, this] {
        setStepIcon(allow.icon, 1, model_.trusted());
        openSettings->setVisible(!model_.trusted());
        setStepIcon(shortcut.icon, 2, false);
        shortcutTitle->setText(QStringLiteral("Your shortcut is ") + model_.hotkeyLabel());
        record->setText(model_.recordingHotkey() ? QStringLiteral("Press keys…") : QStringLiteral("Change"));
        note->setText(model_.hotkeyNote().value_or(QString()));
        note->setVisible(model_.hotkeyNote().has_value());
        const QSignalBlocker quiet(launch);
        launch->setChecked(model_.launchAtLogin());
        setStepIcon(account.icon, 3, model_.account().isSignedIn());
        signIn->setVisible(!model_.account().isSignedIn());
        setStepIcon(practice.icon, 4, model_.status().kind == MenuStatus::Kind::rewrote);
        practiceHint->setText(QStringLiteral("Select the sentence below and press ") + model_.hotkeyLabel() +
                              QLatin1Char('.'));
        status->setText(model_.statusText().value_or(QString()));
        status->setVisible(model_.statusText().has_value());
    };
    for (const auto changed :
         {&AppModel::trustedChanged, &AppModel::accountChanged, &AppModel::hotkeyLabelChanged,
          &AppModel::recordingHotkeyChanged, &AppModel::hotkeyNoteChanged, &AppModel::launchAtLoginChanged,
          &AppModel::statusChanged})
        connect(&model_, changed, window, refresh);
    refresh();
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
