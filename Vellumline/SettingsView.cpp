#include "Vellumline/SettingsView.h"

#include "Vellumline/LaunchAtLoginToggle.h"
#include "Vellumline/PageLayout.h"
#include "Vellumline/Style.h"

#include <QHBoxLayout>

namespace vellumline {

namespace {

constexpr int rowSpacing = 12;
constexpr int symbolSide = 14;
constexpr int symbolSpacing = 6;

} // namespace

SettingsView::SettingsView(AppModel& model, Actions actions, QWidget* parent)
    : QWidget(parent), model_(model), actions_(std::move(actions)) {
    QVBoxLayout* rows = PageLayout::install(this, rowSpacing);
    rows->addWidget(Style::headline(QStringLiteral("Settings"), this));
    rows->addLayout(shortcutRow());
    hotkeyNote_ = Style::caption(this);
    rows->addWidget(hotkeyNote_);
    rows->addWidget(Style::divider(this));

    rows->addLayout(accessibilityRow());
    openSettings_ = Style::captionButton(QStringLiteral("Open System Settings"), this);
    connect(openSettings_, &QPushButton::clicked, this, [this] {
        model_.allowAccessibility();
        model_.openAccessibilitySettings();
    });
    rows->addWidget(openSettings_, 0, Qt::AlignLeft);
    launchAtLogin_ = new Style::Toggle(QStringLiteral("Open at login"), this);
    bindLaunchAtLogin(launchAtLogin_, model_);
    rows->addWidget(launchAtLogin_);
    Style::Button* welcome = Style::captionButton(QStringLiteral("Show the welcome window"), this);
    connect(welcome, &QPushButton::clicked, this, [this] {
        if (actions_.showWelcomeWindow)
            actions_.showWelcomeWindow();
    });
    rows->addWidget(welcome, 0, Qt::AlignLeft);
    rows->addWidget(Style::divider(this));

    Style::Button* done = Style::prominentButton(QStringLiteral("Done"), this);
    connect(done, &QPushButton::clicked, this, [this] {
        if (actions_.onDone)
            actions_.onDone();
    });
    rows->addWidget(done, 0, Qt::AlignLeft);

    for (const auto changed : {&AppModel::hotkeyLabelChanged, &AppModel::recordingHotkeyChanged,
                               &AppModel::hotkeyNoteChanged, &AppModel::trustedChanged})
        connect(&model_, changed, this, &SettingsView::refresh);
    refresh();
}

QLayout* SettingsView::shortcutRow() {
    auto* row = new QHBoxLayout;
    row->addWidget(Style::callout(QStringLiteral("Hotkey"), this), 1);
    hotkey_ = Style::monospaced(this);
    row->addWidget(hotkey_);
    record_ = Style::button({}, this);
    connect(record_, &QPushButton::clicked, &model_, &AppModel::toggleRecording);
    row->addWidget(record_);
    return row;
}

QLayout* SettingsView::accessibilityRow() {
    auto* row = new QHBoxLayout;
    row->setSpacing(symbolSpacing);
    row->addWidget(Style::callout(QStringLiteral("Accessibility"), this), 1);
    trustSymbol_ = new Style::Symbol(symbolSide, this);
    row->addWidget(trustSymbol_);
    trust_ = Style::caption(this);
    trust_->setWordWrap(false);
    row->addWidget(trust_);
    return row;
}

void SettingsView::refresh() {
    hotkey_->setText(model_.hotkeyLabel());
    record_->setText(model_.recordingHotkey() ? QStringLiteral("Press keys…") : QStringLiteral("Change"));
    hotkeyNote_->setText(
        model_.hotkeyNote().value_or(QStringLiteral("Include Control, Option, or Command. Escape cancels.")));
    hotkeyNote_->setTone(model_.hotkeyNote() ? Style::Tone::primary : Style::Tone::secondary);
    trustSymbol_->setSymbol(model_.trusted() ? QStringLiteral("check") : QStringLiteral("cross"),
                            model_.trusted() ? Style::Tone::good : Style::Tone::secondary);
    trust_->setText(model_.trusted() ? QStringLiteral("Allowed") : QStringLiteral("Not allowed"));
    openSettings_->setVisible(!model_.trusted());
}

} // namespace vellumline
