#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/Platform/Workspace.h"
#include "tests/fakes/CallLog.h"

#include <QList>

namespace vellumline {

/// A desktop whose front application the test chooses. In the call log: "frontmostApplication",
/// "hasTakenInput(42)", "activate(42)", "openURL(https://…)", "beep".
class FakeWorkspace final : public Workspace {
  public:
    explicit FakeWorkspace(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    std::optional<Application> frontmostApplication() const override {
        log_.add(QStringLiteral("frontmostApplication"));
        return front;
    }
    QCoro::Task<bool> hasTakenInput(Application application, std::chrono::milliseconds /*limit*/) override {
        log_.add(QStringLiteral("hasTakenInput(%1)").arg(application.processIdentifier));
        if (!takesInput)
            co_return false;
        const AsyncResult<bool> answer = *takesInput;
        co_return co_await answer;
    }
    void activate(const Application& application) override {
        log_.add(QStringLiteral("activate(%1)").arg(application.processIdentifier));
        if (behind.contains(application))
            front = application;
    }
    void openURL(const QUrl& url) override {
        log_.add(QStringLiteral("openURL(%1)").arg(url.toString(QUrl::FullyEncoded)));
        opened_.append(url);
    }
    void beep() override {
        log_.add(QStringLiteral("beep"));
        ++beeps_;
    }

    std::optional<Application> front;
    /// Set when the program in front has taken its input; without it no program can be asked.
    std::optional<AsyncResult<bool>> takesInput;
    QList<Application> behind; ///< programs with a window that is not in front

    const QList<QUrl>& openedURLs() const { return opened_; }
    int beeps() const { return beeps_; }
    const QStringList& calls() const { return log_.calls(); }
    void clearCalls() { log_.clear(); }

  private:
    mutable CallLog log_;
    QList<QUrl> opened_;
    int beeps_ = 0;
};

} // namespace vellumline
