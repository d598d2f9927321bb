#pragma once

#include "Vellumline/AppModel.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeHotkeys.h"
#include "fakes/FakeKeyMonitor.h"
#include "fakes/FakeLoginService.h"
#include "fakes/FakePrompts.h"
#include "fakes/FakeSelectionRewriter.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/SignedInService.h"

#include <memory>

namespace vellumline {

/// The application model with every port a fake.
struct ModelOnFakes {
    explicit ModelOnFakes(const std::optional<AuthSession>& stored = std::nullopt) : service(stored) {}

    /// What was asked and is not awaited any more is answered, so that every task comes to its end.
    ~ModelOnFakes() {
        destroyModel();
        rewriter.finishAll();
        for (int turn = 0; turn < 20; ++turn) {
            service.keychain.release();
            for (qsizetype i = 0; i < service.transport.requests.size(); ++i)
                service.transport.answer(i, TransportError::other);
            QTest::qWait(0);
        }
    }
    ModelOnFakes(const ModelOnFakes&) = delete;
    ModelOnFakes& operator=(const ModelOnFakes&) = delete;

    /// A model whose account is signed in and loaded.
    static std::unique_ptr<ModelOnFakes> signedIn(const QByteArray& account) {
        auto made = std::make_unique<ModelOnFakes>(sessionWith(QStringLiteral("opaque")));
        made->service.transport.queue(200, account);
        QCoro::waitFor(made->model().restoreAccount());
        made->waitUntil([&] { return made->model().accountInfo().has_value(); });
        return made;
    }
    static QByteArray accountBody(const char* plan, int used, int allowed, const char* flags = "") {
        return QStringLiteral("{\"plan\":\"%1\",\"rewritesUsed\":%2,\"freeRewrites\":%3%4}")
            .arg(QLatin1String(plan))
            .arg(used)
            .arg(allowed)
            .arg(QLatin1String(flags))
            .toUtf8();
    }

    AppModel& model() {
        if (!model_)
            model_ = std::make_unique<AppModel>(AppModel::Dependencies{
                service.store, accountClient, authClient, rewriter, hotkeyMonitor, keyMonitor, accessibility,
                loginService, workspace, prompts, defaults, service.clock, exampleConfig()});
        return *model_;
    }
    void destroyModel() { model_.reset(); }

    /// Presses the shortcut's action and lets the session be read.
    void rewrite() {
        model().rewrite();
        QTest::qWait(1);
    }
    qsizetype accountRequests() const {
        qsizetype count = 0;
        for (const HTTPRequest& request : service.transport.requests)
            count += request.url.path() == QStringLiteral("/v1/account") ? 1 : 0;
        return count;
    }
    template<class Condition> static void waitUntil(Condition condition) {
        QVERIFY(QTest::qWaitFor(condition, 5000));
    }

    SignedInService service;
    AccountClient accountClient{service.api, exampleConfig()};
    AuthClient authClient{service.transport, exampleConfig()};
    FakeSelectionRewriter rewriter;
    FakeHotkeys hotkeys;
    HotkeyMonitor hotkeyMonitor{hotkeys};
    FakeKeyMonitor keyMonitor;
    FakeAccessibility accessibility;
    FakeLoginService loginService;
    FakeWorkspace workspace;
    FakePrompts prompts;
    FakeUserDefaults defaults;

  private:
    std::unique_ptr<AppModel> model_; // last: goes first
};

} // namespace vellumline
