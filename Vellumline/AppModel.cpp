#include "Vellumline/AppModel.h"

#include "Vellumline/LoginItem.h"
#include "VellumlineCore/AppLink.h"

#include <QPointer>
#include <QTimer>

namespace vellumline {

namespace {

constexpr qint64 assumedFreeRewrites = 30;
constexpr double signInLifetimeSeconds = 600;

/// Runs an action on the model when it is still there.
template<class Action> std::function<void()> weakly(AppModel* model, Action action) {
    return [model = QPointer<AppModel>(model), action = std::move(action)] {
        if (model)
            action(*model);
    };
}

} // namespace

AppModel::AppModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)),
      hotkeyLabel_(HotkeyBinding::load(dependencies_.defaults).label()),
      trusted_(dependencies_.accessibility.isProcessTrusted()),
      launchAtLogin_(dependencies_.loginService.status() == LoginService::Status::enabled) {}

AppModel::~AppModel() {
    if (keyMonitorToken_)
        dependencies_.keyMonitor.removeMonitor(*keyMonitorToken_);
}

template<class T> void AppModel::assign(T& member, T value, void (AppModel::*changed)()) {
    const bool differs = !(member == value);
    member = std::move(value);
    if (differs)
        Q_EMIT(this->*changed)();
}

void AppModel::setAccount(AccountState account) {
    assign(account_, std::move(account), &AppModel::accountChanged);
}

void AppModel::setAccountInfo(std::optional<AccountInfo> info) {
    assign(accountInfo_, info, &AppModel::accountInfoChanged);
}

void AppModel::setStatus(MenuStatus status) {
    assign(status_, std::move(status), &AppModel::statusChanged);
}

void AppModel::setPendingSignIn(std::optional<PendingSignIn> pending) {
    pendingSignIn_ = std::move(pending);
    Q_EMIT pendingSignInChanged();
}

void AppModel::clearHotkeyNote() {
    assign(hotkeyNote_, std::optional<QString>(), &AppModel::hotkeyNoteChanged);
}

qint64 AppModel::freeRewrites() const {
    return accountInfo_ ? accountInfo_->freeRewrites : assumedFreeRewrites;
}

QString AppModel::readyHint() const {
    if (account_.isSignedIn())
        return QStringLiteral("Select text, then press ") + hotkeyLabel_ + QLatin1Char('.');
    return QStringLiteral("Sign in to rewrite. The first %1 rewrites are free.").arg(freeRewrites());
}

void AppModel::rewrite() {
    if (busy_ || rewriteStarted_) {
        dependencies_.workspace.beep();
        return;
    }
    rewriteStarted_ = true;
    runRewrite();
}

QCoro::Task<void> AppModel::runRewrite() {
    const QPointer<AppModel> self(this);
    const std::optional<AuthSession> session = co_await dependencies_.store.session();
    if (!self)
        co_return;

    if (!session) {
        rewriteStarted_ = false;
        setAccount(AccountState::signedOut());
        setAccountInfo(std::nullopt);
        presentSignIn();
        co_return;
    }
    if (accountInfo_ && accountInfo_->closed) {
        rewriteStarted_ = false;
        setStatus(MenuStatus::problem(RewriteProblem::Kind::accountClosed));
        dependencies_.workspace.beep();
        presentClosed();
        co_return;
    }
    // No beep here, unlike for a closed account: the prompt is an offer, not a refusal.
    if (accountInfo_ && accountInfo_->freeUsedUp()) {
        rewriteStarted_ = false;
        setStatus(MenuStatus::problem(RewriteProblem::Kind::freeLimit));
        presentQuota(std::nullopt, std::nullopt);
        co_return;
    }

    assign(busy_, true, &AppModel::busyChanged);
    const RewriteOutcome outcome = co_await dependencies_.rewriter.rewrite();
    if (!self)
        co_return;
    rewriteStarted_ = false;
    assign(busy_, false, &AppModel::busyChanged);
    assign(trusted_, dependencies_.accessibility.isProcessTrusted(), &AppModel::trustedChanged);
    handle(outcome);
}

void AppModel::handle(const RewriteOutcome& outcome) {
    using Problem = RewriteProblem::Kind;
    switch (outcome.kind) {
    case RewriteOutcome::Kind::problem: {
        const Problem why = outcome.why.kind;
        setStatus(MenuStatus::problem(outcome.why));
        dependencies_.workspace.beep();
        if (why == Problem::accountClosed)
            presentClosed();
        if (why == Problem::monthlyLimit || why == Problem::modelUnavailable || why == Problem::offline ||
            why == Problem::accountClosed)
            refreshAccount();
        break;
    }
    case RewriteOutcome::Kind::freeLimit:
        setStatus(MenuStatus::problem(Problem::freeLimit));
        refreshAccount();
        presentQuota(outcome.monthlyURL, outcome.yearlyURL);
        break;
    case RewriteOutcome::Kind::rewrote:
        setStatus(MenuStatus::rewrote());
        refreshAccount();
        break;
    case RewriteOutcome::Kind::signedOut:
        setAccount(AccountState::signedOut());
        setAccountInfo(std::nullopt);
        setStatus(MenuStatus::ready());
        presentSignIn();
        break;
    }
}

void AppModel::refreshAccount() {
    runRefreshAccount();
}

QCoro::Task<void> AppModel::runRefreshAccount() {
    const QPointer<AppModel> self(this);
    const std::optional<AuthSession> session = co_await dependencies_.store.session();
    if (!self)
        co_return;
    if (!session) {
        setAccountInfo(std::nullopt);
        co_return;
    }
    // A keyring may be unlocked, or answer, only after the start.
    if (account_ == AccountState::signedOut())
        adoptSession(*session);
    const APIResult<AccountInfo> loaded = co_await dependencies_.accountClient.load();
    if (!self)
        co_return;
    if (loaded) {
        setAccountInfo(*loaded);
    } else if (loaded.error() == APIError::signedOut) {
        setAccount(AccountState::signedOut());
        setAccountInfo(std::nullopt);
    }
}

QCoro::Task<void> AppModel::restoreAccount() {
    const QPointer<AppModel> self(this);
    const std::optional<AuthSession> stored = co_await dependencies_.store.session();
    if (!self || !stored)
        co_return;
    adoptSession(*stored);
    refreshAccount();
}

void AppModel::adoptSession(const AuthSession& stored) {
    const AuthSession session = stored.withEmailFromToken();
    if (session != stored) {
        // The cache holds the new value at once; the secret store's answer is not waited for.
        dependencies_.store.setSession(session);
    }
    setAccount(AccountState::signedIn(session.displayName()));
}

void AppModel::adoptRenewedName(const QString& displayName) {
    if (account_.isSignedIn())
        setAccount(AccountState::signedIn(displayName));
}

void AppModel::signOut() {
    dependencies_.store.setSession(std::nullopt);
    setPendingSignIn(std::nullopt);
    setAccount(AccountState::signedOut());
    setAccountInfo(std::nullopt);
    setStatus(MenuStatus::ready());
}

void AppModel::refreshTrust() {
    assign(trusted_, dependencies_.accessibility.isProcessTrusted(), &AppModel::trustedChanged);
    assign(launchAtLogin_, dependencies_.loginService.status() == LoginService::Status::enabled,
           &AppModel::launchAtLoginChanged);
}

void AppModel::allowAccessibility() {
    dependencies_.accessibility.requestTrust();
    assign(trusted_, dependencies_.accessibility.isProcessTrusted(), &AppModel::trustedChanged);
}

void AppModel::openAccessibilitySettings() {
    dependencies_.rewriter.openAccessibilitySettings();
}

void AppModel::startSignIn() {
    const Pkce pkce = Pkce::generate();
    setPendingSignIn(PendingSignIn{pkce, dependencies_.clock.now()});
    setAccount(AccountState::signingIn());
    dependencies_.workspace.openURL(dependencies_.config.loginURL(pkce.challenge()));
}

QCoro::Task<void> AppModel::open(QString link) {
    const std::optional<AppLink> parsed = AppLink::parse(link);
    if (!parsed)
        co_return;
    switch (parsed->kind) {
    case AppLink::Kind::startSignIn:
        co_await openStartSignIn();
        break;
    case AppLink::Kind::handoff: {
        const QString code = parsed->code;
        co_await finishSignIn(code);
        break;
    }
    }
}

QCoro::Task<void> AppModel::openStartSignIn() {
    const QPointer<AppModel> self(this);
    const std::optional<AuthSession> session = co_await dependencies_.store.session();
    if (!self)
        co_return;
    if (!session) {
        startSignIn();
        co_return;
    }
    refreshAccount();
    dependencies_.prompts.show(
        QStringLiteral("Vellumline is signed in"),
        QStringLiteral("Signed in as ") + session->displayName() +
            QStringLiteral(". Select text in any app and press ") + hotkeyLabel_ + QLatin1Char('.'),
        {{QStringLiteral("Switch account"), weakly(this, [](AppModel& model) { model.startSignIn(); })}});
}

QCoro::Task<void> AppModel::finishSignIn(QString code) {
    const bool inTime =
        pendingSignIn_ && dependencies_.clock.now() - pendingSignIn_->started < signInLifetimeSeconds;
    if (!inTime) {
        setPendingSignIn(std::nullopt);
        // A link that starts the program comes before the stored session is known.
        const QPointer<AppModel> self(this);
        co_await dependencies_.store.session();
        if (!self)
            co_return;
        // An expired sign-in gets the same words as a link that this computer never started.
        if (!account_.isSignedIn())
            setAccount(AccountState::failed(
                QStringLiteral("That sign-in link was not started from this Mac. Sign in again.")));
        co_return;
    }
    const QString verifier = pendingSignIn_->pkce.verifier();
    // Before redeeming, so that a code is redeemed at most once.
    setPendingSignIn(std::nullopt);

    const QPointer<AppModel> self(this);
    const APIResult<AuthSession> redeemed = co_await dependencies_.authClient.redeem(code, verifier);
    if (!self)
        co_return;
    if (!redeemed) {
        setAccount(AccountState::failed(QStringLiteral("Sign-in did not finish. Sign in again.")));
        co_return;
    }
    dependencies_.store.setSession(*redeemed);
    setAccount(AccountState::signedIn(redeemed->displayName()));
    setStatus(MenuStatus::ready());
    refreshAccount();
}

void AppModel::toggleRecording() {
    if (recordingHotkey_) {
        stopRecording();
        return;
    }
    assign(recordingHotkey_, true, &AppModel::recordingHotkeyChanged);
    clearHotkeyNote();
    keyMonitorToken_ = dependencies_.keyMonitor.addLocalMonitor([this](const KeyPress& press) {
        // Handled after the monitor has returned: handling may remove the monitor.
        QTimer::singleShot(0, this, [this, press] { captureHotkey(press); });
        return KeyMonitor::Handling::swallow;
    });
    Q_EMIT keyMonitorChanged();
}

void AppModel::stopRecording() {
    if (keyMonitorToken_) {
        dependencies_.keyMonitor.removeMonitor(*keyMonitorToken_);
        keyMonitorToken_.reset();
        Q_EMIT keyMonitorChanged();
    }
    assign(recordingHotkey_, false, &AppModel::recordingHotkeyChanged);
}

void AppModel::captureHotkey(const KeyPress& capture) {
    if (!recordingHotkey_)
        return;
    if (capture.keyCode == KeyCode::escape && capture.modifiers.isEmpty()) {
        stopRecording();
        return;
    }
    const auto check = HotkeyBinding::check(capture.keyCode, capture.modifiers, capture.characters);
    switch (check.kind) {
    case HotkeyBinding::Check::Kind::accepted:
        stopRecording();
        apply(check.binding);
        break;
    case HotkeyBinding::Check::Kind::reserved:
        assign(hotkeyNote_,
               std::optional(check.reservedLabel + QStringLiteral(" is a system shortcut. Pick another.")),
               &AppModel::hotkeyNoteChanged);
        break;
    case HotkeyBinding::Check::Kind::needsModifier:
        assign(hotkeyNote_, std::optional(QStringLiteral("Include Control, Option, or Command.")),
               &AppModel::hotkeyNoteChanged);
        break;
    }
}

void AppModel::apply(const HotkeyBinding& binding) {
    const HotkeyBinding previous = HotkeyBinding::load(dependencies_.defaults);
    if (dependencies_.hotkeyMonitor.registerBinding(binding)) {
        binding.save(dependencies_.defaults);
        assign(hotkeyLabel_, binding.label(), &AppModel::hotkeyLabelChanged);
        clearHotkeyNote();
        return;
    }
    // With both refused there is no working shortcut at all, so the note names the previous one.
    const QString note =
        dependencies_.hotkeyMonitor.registerBinding(previous)
            ? QStringLiteral("Another app already uses ") + binding.label() + QLatin1Char('.')
            : QStringLiteral("Could not register ") + previous.label() + QLatin1Char('.');
    assign(hotkeyNote_, std::optional(note), &AppModel::hotkeyNoteChanged);
}

void AppModel::setLaunchAtLogin(bool on) {
    if (!LoginItem::set(dependencies_.loginService, on))
        setStatus(MenuStatus::message(QStringLiteral(
            "Could not change Open at login. Move Vellumline to Applications and try again.")));
    // The system's real state, also after a refusal or while the user has yet to approve.
    assign(launchAtLogin_, dependencies_.loginService.status() == LoginService::Status::enabled,
           &AppModel::launchAtLoginChanged);
}

void AppModel::presentSignIn() {
    if (dependencies_.prompts.bringToFront())
        return;
    dependencies_.prompts.show(
        QStringLiteral("Sign in to rewrite"),
        QStringLiteral("Sign in or create an account on the Vellumline site. The first %1 rewrites are free.")
            .arg(freeRewrites()),
        {{QStringLiteral("Sign in"), weakly(this, [](AppModel& model) { model.startSignIn(); })}});
}

void AppModel::presentClosed() {
    dependencies_.prompts.show(
        QStringLiteral("This account is closed"),
        QStringLiteral("Reopen it on the account page to rewrite. You stay signed in."),
        {{QStringLiteral("Account"), weakly(this, [](AppModel& model) { model.openAccountPage(); })}});
}

void AppModel::presentQuota(const std::optional<QUrl>& monthly, const std::optional<QUrl>& yearly) {
    // The yearly plan is offered first on purpose.
    dependencies_.prompts.show(
        QStringLiteral("You've used your %1 free rewrites").arg(freeRewrites()),
        QStringLiteral("Pick a plan to keep correcting text where you write it. You can cancel any time."),
        {{QStringLiteral("Yearly"),
          weakly(this, [yearly](AppModel& model) { model.openCheckout(yearly, QStringLiteral("yearly")); })},
         {QStringLiteral("Monthly"), weakly(this, [monthly](AppModel& model) {
              model.openCheckout(monthly, QStringLiteral("monthly"));
          })}});
}

void AppModel::openAccountPage() {
    dependencies_.workspace.openURL(dependencies_.config.accountURL());
}

void AppModel::openCheckout(const std::optional<QUrl>& url, const QString& plan) {
    dependencies_.workspace.openURL(url ? *url : dependencies_.config.checkoutURL(plan));
}

} // namespace vellumline
