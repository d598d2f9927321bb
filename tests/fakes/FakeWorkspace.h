#pragma once

#include "Vellumline/Platform/Workspace.h"
#include "tests/fakes/CallLog.h"

#include <QList>

namespace vellumline {

/// A desktop whose front application the test chooses. In the call log: "frontmostApplication",
/// "activate(42)", "openURL(https://…)", "beep".
class FakeWorkspace final : public Workspace {
  public:
    explicit FakeWorkspace(QStringList* sharedLog = nullptr) : log_(sharedLog) {}

    std::optional<Application> frontmostApplication() const override {
        log_.add(QStringLiteral("frontmostApplication"));
        return front;
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
