#include "Vellumline/MenuContent.h"

#include "Vellumline/Style.h"

#include <QCheckBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

namespace vellumline {

namespace {

constexpr int panelWidth = 300;
constexpr int padding = 16;
constexpr int mainSpacing = 10;
constexpr int settingsSpacing = 12;
constexpr int aboutLabelWidth = 64;
constexpr int aboutSpacing = 8;

QVBoxLayout* pageLayout(QWidget* page, int spacing) {
    page->setFixedWidth(panelWidth);
    auto* stack = new QVBoxLayout(page);
    stack->setContentsMargins(padding, padding, padding, padding);
    stack->setSpacing(spacing);
    return stack;
}

void setShown(QWidget* widget, bool shown) {
    widget->setVisible(shown);
}

} // namespace

MenuContent::MenuContent(AppModel& model, Actions actions, QWidget* parent)
    : QWidget(parent), model_(model), actions_(std::move(actions)) {
    auto* pages = new QVBoxLayout(this);
    pages->setContentsMargins(0, 0, 0, 0);
    pages->setSizeConstraint(QLayout::SetFixedSize);
    main_ = mainPage();
    settings_ = settingsPage();
    about_ = aboutPage();
    for (QWidget* page : {main_, settings_, about_})
        pages->addWidget(page);

    for (const auto changed :
         {&AppModel::accountChanged, &AppModel::statusChanged, &AppModel::accountInfoChanged,
          &AppModel::hotkeyLabelChanged, &AppModel::recordingHotkeyChanged, &AppModel::hotkeyNoteChanged,
          &AppModel::trustedChanged, &AppModel::launchAtLoginChanged, &AppModel::busyChanged,
          &AppModel::pendingSignInChanged})
        connect(&model_, changed, this, &MenuContent::refresh);
    showPage(Page::main);
    refresh();
}

void MenuContent::willShow() {
    if (!main_->isHidden()) {
        model_.refreshTrust();
        model_.refreshAccount();
    }
}

void MenuContent::showPage(Page page) {
    main_->setHidden(page != Page::main);
    settings_->setHidden(page != Page::settings);
    about_->setHidden(page != Page::about);
    if (page == Page::main && isVisible())
        willShow();
    Q_EMIT sizeMayHaveChanged();
}

QWidget* MenuContent::mainPage() {
    auto* page = new QWidget(this);
    auto* stack = pageLayout(page, mainSpacing);

    auto* header = new QHBoxLayout;
    header->addWidget(Style::headline(QStringLiteral("Vellumline"), page), 1);
    auto* info = Style::iconButton(QStringLiteral("info"), QStringLiteral("About Vellumline"), page);
    connect(info, &QToolButton::clicked, this, [this] { showPage(Page::about); });
    header->addWidget(info);
    auto* gear = Style::iconButton(QStringLiteral("gear"), QStringLiteral("Settings"), page);
    connect(gear, &QToolButton::clicked, this, [this] { showPage(Page::settings); });
    header->addWidget(gear);
    stack->addLayout(header);

    account_ = Style::caption(page);
    plan_ = Style::caption(page);
    notice_ = Style::caption(page);
    Style::setMedium(notice_);
    for (QLabel* row : {account_, plan_, notice_})
        stack->addWidget(row);

    signInAgain_ = Style::button(QStringLiteral("Open the sign-in page again"), page);
    connect(signInAgain_, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    stack->addWidget(signInAgain_, 0, Qt::AlignLeft);
    signIn_ = Style::prominentButton(QStringLiteral("Sign in"), page);
    connect(signIn_, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    stack->addWidget(signIn_, 0, Qt::AlignLeft);

    status_ = Style::caption(page);
    stack->addWidget(status_);

    plans_ = new QWidget(page);
    auto* plansRow = new QHBoxLayout(plans_);
    plansRow->setContentsMargins(0, 0, 0, 0);
    QPushButton* monthly = Style::button(QStringLiteral("Monthly"), plans_);
    connect(monthly, &QPushButton::clicked, this,
            [this] { model_.openCheckout(std::nullopt, QStringLiteral("monthly")); });
    plansRow->addWidget(monthly);
    QPushButton* yearly = Style::button(QStringLiteral("Yearly"), plans_);
    connect(yearly, &QPushButton::clicked, this,
            [this] { model_.openCheckout(std::nullopt, QStringLiteral("yearly")); });
    plansRow->addWidget(yearly);
    plansRow->addStretch();
    stack->addWidget(plans_);

    allowAccessibility_ = Style::button(QStringLiteral("Allow Accessibility…"), page);
    connect(allowAccessibility_, &QPushButton::clicked, &model_, &AppModel::allowAccessibility);
    stack->addWidget(allowAccessibility_, 0, Qt::AlignLeft);

    QPushButton* updates = Style::button(QStringLiteral("Check for Updates…"), page);
    connect(updates, &QPushButton::clicked, this, [this] {
        if (actions_.checkForUpdates)
            actions_.checkForUpdates();
    });
    stack->addWidget(updates, 0, Qt::AlignLeft);
    stack->addWidget(Style::divider(page));

    auto* bottom = new QHBoxLayout;
    accountPage_ = Style::button(QStringLiteral("Account"), page);
    connect(accountPage_, &QPushButton::clicked, &model_, &AppModel::openAccountPage);
    bottom->addWidget(accountPage_);
    signOut_ = Style::button(QStringLiteral("Sign out"), page);
    connect(signOut_, &QPushButton::clicked, &model_, &AppModel::signOut);
    bottom->addWidget(signOut_);
    bottom->addStretch();
    QPushButton* quit = Style::button(QStringLiteral("Quit"), page);
    connect(quit, &QPushButton::clicked, this, [this] {
        if (actions_.quit)
            actions_.quit();
    });
    bottom->addWidget(quit);
    stack->addLayout(bottom);
    return page;
}

QWidget* MenuContent::settingsPage() {
    auto* page = new QWidget(this);
    auto* stack = pageLayout(page, settingsSpacing);
    stack->addWidget(Style::headline(QStringLiteral("Settings"), page));

    auto* shortcut = new QHBoxLayout;
    shortcut->addWidget(Style::callout(QStringLiteral("Hotkey"), page));
    shortcut->addStretch();
    hotkey_ = new QLabel(page);
    hotkey_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    shortcut->addWidget(hotkey_);
    record_ = Style::button({}, page);
    connect(record_, &QPushButton::clicked, &model_, &AppModel::toggleRecording);
    shortcut->addWidget(record_);
    stack->addLayout(shortcut);
    hotkeyNote_ = Style::caption(page);
    stack->addWidget(hotkeyNote_);
    stack->addWidget(Style::divider(page));

    auto* accessibility = new QHBoxLayout;
    accessibility->addWidget(Style::callout(QStringLiteral("Accessibility"), page), 1);
    trust_ = Style::caption(page);
    trust_->setWordWrap(false);
    accessibility->addWidget(trust_);
    stack->addLayout(accessibility);
    openSettings_ = Style::button(QStringLiteral("Open System Settings"), page);
    connect(openSettings_, &QPushButton::clicked, this, [this] {
        model_.allowAccessibility();
        model_.openAccessibilitySettings();
    });
    stack->addWidget(openSettings_, 0, Qt::AlignLeft);

    launchAtLogin_ = new QCheckBox(QStringLiteral("Open at login"), page);
    connect(launchAtLogin_, &QCheckBox::toggled, &model_, [this](bool on) {
        model_.setLaunchAtLogin(on);
        // The switch shows what is, which may not be what was wished.
        const QSignalBlocker quiet(launchAtLogin_);
        launchAtLogin_->setChecked(model_.launchAtLogin());
    });
    stack->addWidget(launchAtLogin_, 0, Qt::AlignLeft);
    QPushButton* welcome = Style::button(QStringLiteral("Show the welcome window"), page);
    connect(welcome, &QPushButton::clicked, this, [this] {
        if (actions_.showWelcomeWindow)
            actions_.showWelcomeWindow();
    });
    stack->addWidget(welcome, 0, Qt::AlignLeft);
    stack->addWidget(Style::divider(page));

    QPushButton* done = Style::prominentButton(QStringLiteral("Done"), page);
    connect(done, &QPushButton::clicked, this, [this] {
        model_.stopRecording();
        showPage(Page::main);
    });
    stack->addWidget(done, 0, Qt::AlignLeft);
    return page;
}

QWidget* MenuContent::aboutPage() {
    auto* page = new QWidget(this);
    auto* stack = pageLayout(page, settingsSpacing);

    auto* header = new QHBoxLayout;
    auto* mark = new QLabel(page);
    mark->setPixmap(
        Style::icon(QStringLiteral("mark"), palette().color(QPalette::WindowText)).pixmap(16, 16));
    header->addWidget(mark);
    auto* names = new QVBoxLayout;
    names->setSpacing(0);
    names->addWidget(Style::headline(QStringLiteral("Vellumline"), page));
    QLabel* version = Style::caption(page);
    version->setText(QStringLiteral("Version ") + QStringLiteral(VELLUMLINE_VERSION));
    names->addWidget(version);
    header->addLayout(names, 1);
    stack->addLayout(header);
    stack->addWidget(Style::divider(page));

    auto* facts = new QVBoxLayout;
    facts->setSpacing(aboutSpacing);
    const auto addFact = [&](const QString& name, const QString& value, const QString& link) {
        auto* row = new QHBoxLayout;
        row->setSpacing(aboutSpacing);
        QLabel* label = Style::caption(page);
        label->setText(name);
        label->setFixedWidth(aboutLabelWidth);
        row->addWidget(label);
        QLabel* shown = Style::caption(page);
        Style::setSecondary(shown, false);
        if (link.isEmpty()) {
            shown->setText(value);
        } else {
            shown->setTextFormat(Qt::RichText);
            shown->setText(
                QStringLiteral("<a href=\"%1\">%2</a>").arg(link.toHtmlEscaped(), value.toHtmlEscaped()));
            shown->setOpenExternalLinks(true);
        }
        row->addWidget(shown, 1);
        facts->addLayout(row);
    };
    const QUrl site = model_.config().landingURL;
    addFact(QStringLiteral("Developer"), QStringLiteral("The Vellumline team"), {});
    addFact(QStringLiteral("Website"), site.host(), site.toString());
    stack->addLayout(facts);
    stack->addWidget(Style::divider(page));

    QPushButton* done = Style::prominentButton(QStringLiteral("Done"), page);
    connect(done, &QPushButton::clicked, this, [this] { showPage(Page::main); });
    stack->addWidget(done, 0, Qt::AlignLeft);
    return page;
}

void MenuContent::refresh() {
    const bool signedIn = model_.account().isSignedIn();
    const auto& info = model_.accountInfo();

    account_->setText(model_.account().label());
    setShown(plan_, signedIn && info);
    setShown(notice_, signedIn && info && info->notice());
    if (info) {
        plan_->setText(info->menuLabel());
        notice_->setText(info->notice().value_or(QString()));
    }
    setShown(signInAgain_, !signedIn && model_.hasPendingSignIn());
    setShown(signIn_, !signedIn && !model_.hasPendingSignIn());

    const auto statusText = model_.statusText();
    if (model_.busy())
        status_->setText(QStringLiteral("Correcting…"));
    else
        status_->setText(statusText ? *statusText : model_.readyHint());
    setShown(status_, model_.busy() || statusText || signedIn);

    setShown(plans_, signedIn && info && info->plan == Plan::free &&
                         info->freeRewrites - info->rewritesUsed <= AccountInfo::warnWhenLeft);
    setShown(allowAccessibility_, !model_.trusted());
    setShown(accountPage_, signedIn);
    setShown(signOut_, signedIn);

    hotkey_->setText(model_.hotkeyLabel());
    record_->setText(model_.recordingHotkey() ? QStringLiteral("Press keys…") : QStringLiteral("Change"));
    hotkeyNote_->setText(
        model_.hotkeyNote().value_or(QStringLiteral("Include Control, Option, or Command. Escape cancels.")));
    Style::setSecondary(hotkeyNote_, !model_.hotkeyNote());
    trust_->setText(model_.trusted() ? QStringLiteral("✓ Allowed") : QStringLiteral("Not allowed"));
    setShown(openSettings_, !model_.trusted());
    const QSignalBlocker quiet(launchAtLogin_);
    launchAtLogin_->setChecked(model_.launchAtLogin());
    Q_EMIT sizeMayHaveChanged();
}

} // namespace vellumline
