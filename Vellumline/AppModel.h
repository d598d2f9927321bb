#pragma once

#include "Vellumline/AccountClient.h"
#include "Vellumline/AuthClient.h"
#include "Vellumline/AuthConfig.h"
#include "Vellumline/HotkeyMonitor.h"
#include "Vellumline/MenuStatus.h"
#include "Vellumline/Platform/Accessibility.h"
#include "Vellumline/Platform/Clock.h"
#include "Vellumline/Platform/KeyMonitor.h"
#include "Vellumline/Platform/LoginService.h"
#include "Vellumline/Platform/Prompts.h"
#include "Vellumline/Platform/Workspace.h"
#include "Vellumline/RewriteOutcome.h"
#include "Vellumline/TokenStore.h"
#include "VellumlineCore/AccountInfo.h"
#include "VellumlineCore/HotkeyBinding.h"
#include "VellumlineCore/Pkce.h"
#include "VellumlineCore/UserDefaults.h"

#include <QCoroTask>
#include <QObject>
#include <QString>
#include <optional>

namespace vellumline {

/// The browser sign-in under way.
struct PendingSignIn {
    Pkce pkce;
    double started; ///< wall clock, seconds since 1970-01-01 UTC
};

/// The one observable object that holds the application's state and performs every user action. Main thread
/// only; the long operations are tasks of the main loop, so that changes are serialised. Destroying the model
/// ends them quietly.
class AppModel : public QObject {
    Q_OBJECT
  public:
    /// What the model needs from outside; all of it outlives the model.
    struct Dependencies {
        TokenStore& store;
        AccountClient& accountClient;
        AuthClient& authClient;
        SelectionRewriter& rewriter;
        HotkeyMonitor& hotkeyMonitor;
        KeyMonitor& keyMonitor;
        Accessibility& accessibility;
        LoginService& loginService;
        Workspace& workspace;
        Prompts& prompts;
        UserDefaults& defaults;
        Clock& clock;
        AuthConfig config;
    };

    explicit AppModel(Dependencies dependencies, QObject* parent = nullptr);
    ~AppModel() override;

    const AccountState& account() const { return account_; }
    const MenuStatus& status() const { return status_; }
    const std::optional<AccountInfo>& accountInfo() const { return accountInfo_; }
    const QString& hotkeyLabel() const { return hotkeyLabel_; }
    bool recordingHotkey() const { return recordingHotkey_; }
    const std::optional<QString>& hotkeyNote() const { return hotkeyNote_; }
    bool trusted() const { return trusted_; }
    bool launchAtLogin() const { return launchAtLogin_; }
    bool busy() const { return busy_; }
    bool hasPendingSignIn() const { return pendingSignIn_.has_value(); }
    const AuthConfig& config() const { return dependencies_.config; }

    std::optional<QString> statusText() const { return status_.statusText(hotkeyLabel_); }
    /// What to do next, shown while there is no status.
    QString readyHint() const;

    /// The global shortcut's action.
    void rewrite();
    /// Reloads the account in the background.
    void refreshAccount();
    /// Adopts a stored session; once at start-up.
    QCoro::Task<void> restoreAccount();
    void signOut();
    /// Reads the accessibility trust and the login item's state again.
    void refreshTrust();
    void allowAccessibility();
    void openAccessibilitySettings();
    void startSignIn();
    /// Handles a link of this program's scheme, its text exactly as it arrived.
    QCoro::Task<void> open(QString link);
    void toggleRecording();
    void stopRecording();
    void setLaunchAtLogin(bool on);
    void setStatus(MenuStatus status);
    void clearHotkeyNote();
    /// A renewed session carries this name: shown if the account is signed in now.
    void adoptRenewedName(const QString& displayName);
    void openAccountPage();
    /// Opens the checkout link, or without one the account page for that plan ("monthly" or "yearly").
    void openCheckout(const std::optional<QUrl>& url, const QString& plan);

  Q_SIGNALS:
    // Each announces a change only when the new value differs from the old, except pendingSignInChanged and
    // keyMonitorChanged, which announce every assignment.
    void accountChanged();
    void statusChanged();
    void accountInfoChanged();
    void hotkeyLabelChanged();
    void recordingHotkeyChanged();
    void hotkeyNoteChanged();
    void trustedChanged();
    void launchAtLoginChanged();
    void busyChanged();
    void pendingSignInChanged();
    void keyMonitorChanged();

  private:
    QCoro::Task<void> runRewrite();
    QCoro::Task<void> runRefreshAccount();
    void adoptSession(const AuthSession& stored);
    QCoro::Task<void> finishSignIn(QString code);
    QCoro::Task<void> openStartSignIn();
    void handle(const RewriteOutcome& outcome);
    void captureHotkey(const KeyPress& capture);
    void apply(const HotkeyBinding& binding);

    void presentSignIn();
    void presentClosed();
    void presentQuota(const std::optional<QUrl>& monthly, const std::optional<QUrl>& yearly);
    qint64 freeRewrites() const;

    template<class T> void assign(T& member, T value, void (AppModel::*changed)());
    void setAccount(AccountState account);
    void setAccountInfo(std::optional<AccountInfo> info);
    void setPendingSignIn(std::optional<PendingSignIn> pending);

    Dependencies dependencies_;
    AccountState account_ = AccountState::signedOut();
    MenuStatus status_ = MenuStatus::ready();
    std::optional<AccountInfo> accountInfo_;
    QString hotkeyLabel_;
    bool recordingHotkey_ = false;
    std::optional<QString> hotkeyNote_;
    bool trusted_ = false;
    bool launchAtLogin_ = false;
    bool busy_ = false;
    std::optional<PendingSignIn> pendingSignIn_;
    std::optional<KeyMonitor::Token> keyMonitorToken_;
    /// From the press until the outcome: the session is read asynchronously, so that a second press could
    /// otherwise slip in before `busy` is set.
    bool rewriteStarted_ = false;
};

} // namespace vellumline
