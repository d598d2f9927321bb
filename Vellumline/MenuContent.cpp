#include "Vellumline/MenuContent.h"

#include "Vellumline/InfoView.h"
#include "Vellumline/PageLayout.h"
#include "Vellumline/SettingsView.h"
#include "Vellumline/Style.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QVBoxLayout>

namespace vellumline {

namespace {

constexpr int rowSpacing = 10;
constexpr int headerSpacing = 2;
constexpr int buttonSpacing = 8;

QHBoxLayout* installRow(QWidget* row) {
    auto* made = new QHBoxLayout(row);
    made->setContentsMargins(0, 0, 0, 0);
    made->setSpacing(buttonSpacing);
    return made;
}

void runIfSet(const std::function<void()>& action) {
    if (action)
        action();
}

} // namespace

MenuContent::MenuContent(AppModel& model, Actions actions, QWidget* parent)
    : QWidget(parent), model_(model), actions_(std::move(actions)) {
    auto* pages = new QVBoxLayout(this);
    pages->setContentsMargins(0, 0, 0, 0);
    pages->setSizeConstraint(QLayout::SetFixedSize);
    main_ = mainPage();
    settings_ = new SettingsView(model_,
                                 {actions_.showWelcomeWindow,
                                  [this] {
                                      model_.stopRecording();
                                      showPage(Page::main);
                                  }},
                                 this);
    info_ = new InfoView(InfoView::facts(model_.config().landingURL),
                         {actions_.openLink, [this] { showPage(Page::main); }}, this);
    for (QWidget* page : {main_, static_cast<QWidget*>(settings_), static_cast<QWidget*>(info_)})
        pages->addWidget(page);

    for (const auto changed :
         {&AppModel::accountChanged, &AppModel::statusChanged, &AppModel::accountInfoChanged,
          &AppModel::hotkeyLabelChanged, &AppModel::trustedChanged, &AppModel::busyChanged,
          &AppModel::pendingSignInChanged})
        connect(&model_, changed, this, &MenuContent::refresh);
    showPage(Page::main);
    refresh();
}

void MenuContent::willShow() {
    if (page_ == Page::main) {
        model_.refreshTrust();
        model_.refreshAccount();
    }
}

void MenuContent::showPage(Page page) {
    page_ = page;
    // Away with the old one first: the two together would be taller than either.
    for (const bool shown : {false, true}) {
        const auto apply = [shown](QWidget* widget, bool isCurrent) {
            if (isCurrent == shown)
                widget->setVisible(shown);
        };
        apply(main_, page == Page::main);
        apply(settings_, page == Page::settings);
        apply(info_, page == Page::info);
    }
    if (isVisible())
        willShow();
    Q_EMIT pageChanged();
}

QWidget* MenuContent::mainPage() {
    auto* page = new QWidget(this);
    QVBoxLayout* rows = PageLayout::install(page, rowSpacing);
    addHeader(rows, page);
    addAccount(rows, page);
    status_ = Style::caption(page);
    rows->addWidget(status_);
    addPlans(rows, page);
    addCommands(rows, page);
    return page;
}

void MenuContent::addHeader(QVBoxLayout* rows, QWidget* page) {
    auto* header = new QHBoxLayout;
    header->setSpacing(headerSpacing);
    header->addWidget(Style::headline(QStringLiteral("Vellumline"), page), 1);
    auto* info = new Style::IconButton(QStringLiteral("info"), QStringLiteral("About Vellumline"), page);
    connect(info, &QToolButton::clicked, this, [this] { showPage(Page::info); });
    header->addWidget(info);
    auto* gear = new Style::IconButton(QStringLiteral("gear"), QStringLiteral("Settings"), page);
    connect(gear, &QToolButton::clicked, this, [this] { showPage(Page::settings); });
    header->addWidget(gear);
    rows->addLayout(header);
}

void MenuContent::addAccount(QVBoxLayout* rows, QWidget* page) {
    account_ = Style::caption(page);
    rows->addWidget(account_);

    plan_ = new QWidget(page);
    QHBoxLayout* plan = installRow(plan_);
    planLabel_ = Style::caption(plan_);
    planLabel_->setWordWrap(false);
    plan->addWidget(planLabel_);
    usage_ = new Style::UsageBar(plan_);
    plan->addWidget(usage_, 1, Qt::AlignVCenter);
    rows->addWidget(plan_);

    notice_ = Style::caption(page);
    Style::setMedium(notice_);
    rows->addWidget(notice_);

    signInAgain_ = Style::button(QStringLiteral("Open the sign-in page again"), page);
    connect(signInAgain_, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    rows->addWidget(signInAgain_, 0, Qt::AlignLeft);
    signIn_ = Style::prominentButton(QStringLiteral("Sign in"), page);
    connect(signIn_, &QPushButton::clicked, &model_, &AppModel::startSignIn);
    rows->addWidget(signIn_, 0, Qt::AlignLeft);
}

void MenuContent::addPlans(QVBoxLayout* rows, QWidget* page) {
    plans_ = new QWidget(page);
    QHBoxLayout* row = installRow(plans_);
    const auto add = [&](const QString& title, const QString& plan) {
        Style::Button* made = Style::button(title, plans_);
        connect(made, &QPushButton::clicked, this, [this, plan] { model_.openCheckout(std::nullopt, plan); });
        row->addWidget(made);
    };
    add(QStringLiteral("Monthly"), QStringLiteral("monthly"));
    add(QStringLiteral("Yearly"), QStringLiteral("yearly"));
    row->addStretch();
    rows->addWidget(plans_);
}

void MenuContent::addCommands(QVBoxLayout* rows, QWidget* page) {
    allowAccessibility_ = Style::button(QStringLiteral("Allow Accessibility…"), page);
    connect(allowAccessibility_, &QPushButton::clicked, &model_, &AppModel::allowAccessibility);
    rows->addWidget(allowAccessibility_, 0, Qt::AlignLeft);

    Style::Button* updates = Style::button(QStringLiteral("Check for Updates…"), page);
    connect(updates, &QPushButton::clicked, this, [this] { runIfSet(actions_.checkForUpdates); });
    rows->addWidget(updates, 0, Qt::AlignLeft);
    rows->addWidget(Style::divider(page));

    auto* bottom = new QHBoxLayout;
    bottom->setSpacing(buttonSpacing);
    accountPage_ = Style::button(QStringLiteral("Account"), page);
    connect(accountPage_, &QPushButton::clicked, &model_, &AppModel::openAccountPage);
    bottom->addWidget(accountPage_);
    signOut_ = Style::button(QStringLiteral("Sign out"), page);
    connect(signOut_, &QPushButton::clicked, &model_, &AppModel::signOut);
    bottom->addWidget(signOut_);
    bottom->addStretch();
    Style::Button* quit = Style::button(QStringLiteral("Quit"), page);
    connect(quit, &QPushButton::clicked, this, [this] { runIfSet(actions_.quit); });
    bottom->addWidget(quit);
    rows->addLayout(bottom);
}

void MenuContent::refresh() {
    const bool signedIn = model_.account().isSignedIn();
    const std::optional<AccountInfo> info = signedIn ? model_.accountInfo() : std::nullopt;

    account_->setText(model_.account().label());
    plan_->setVisible(info.has_value());
    notice_->setVisible(info && info->notice());
    if (info) {
        planLabel_->setText(info->menuLabel());
        usage_->setVisible(info->plan == Plan::free && info->freeRewrites > 0);
        usage_->setUsage(info->rewritesUsed, info->freeRewrites,
                         info->offersPlans() ? Style::Tone::warning : Style::Tone::primary);
        notice_->setText(info->notice().value_or(QString()));
    }
    signInAgain_->setVisible(!signedIn && model_.hasPendingSignIn());
    signIn_->setVisible(!signedIn && !model_.hasPendingSignIn());

    const auto statusText = model_.statusText();
    if (model_.busy())
        status_->setText(QStringLiteral("Correcting…"));
    else
        status_->setText(statusText ? *statusText : model_.readyHint());
    status_->setVisible(model_.busy() || statusText || signedIn);

    plans_->setVisible(info && info->offersPlans());
    allowAccessibility_->setVisible(!model_.trusted());
    accountPage_->setVisible(signedIn);
    signOut_->setVisible(signedIn);
}

bool MenuContent::event(QEvent* event) {
    // Every change of a row on any page ends here, whatever caused it.
    if (event->type() == QEvent::LayoutRequest)
        Q_EMIT sizeMayHaveChanged();
    return QWidget::event(event);
}

} // namespace vellumline
