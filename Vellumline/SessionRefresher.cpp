#include "Vellumline/SessionRefresher.h"

#include "Vellumline/API.h"
#include "Vellumline/AsyncResult.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <optional>

namespace vellumline {

struct SessionRefresher::State {
    HTTPTransport& transport;
    TokenStore& store;
    AuthConfig config;
    SessionRefresher* owner; ///< Null once the refresher is gone.
    std::optional<AsyncResult<Outcome>> running;

    static QCoro::Task<Outcome> run(std::shared_ptr<State> state, AuthSession session);
    static QCoro::Task<void> exchange(std::shared_ptr<State> state, AuthSession session,
                                      AsyncResult<Outcome> result);
    static void announceLater(const std::shared_ptr<State>& state, const QString& displayName);
};

SessionRefresher::SessionRefresher(HTTPTransport& transport, TokenStore& store, AuthConfig config)
    : state_(new State{transport, store, std::move(config), this, std::nullopt}) {}

SessionRefresher::~SessionRefresher() {
    state_->owner = nullptr;
}

QCoro::Task<SessionRefresher::Outcome> SessionRefresher::refresh(QString rejected) {
    // A task outlives the object that it was started on when its caller drops it: hold on to the state.
    const std::shared_ptr<State> state = state_;
    const std::optional<AuthSession> session = co_await state->store.session();
    if (!session)
        co_return Outcome::signedOut();
    if (session->accessToken != rejected)
        co_return Outcome::refreshed(session->accessToken);

    if (state->running) {
        AsyncResult<Outcome> joined = *state->running;
        Outcome outcome = co_await joined;
        co_return std::move(outcome);
    }
    AsyncResult<Outcome> result;
    state->running = result;
    State::exchange(state, *session, result);
    // The creator waits first and is resumed first: whoever joined finds no exchange running any more.
    Outcome outcome = co_await result;
    state->running.reset();
    co_return std::move(outcome);
}

QCoro::Task<void> SessionRefresher::State::exchange(std::shared_ptr<State> state, AuthSession session,
                                                    AsyncResult<Outcome> result) {
    Outcome outcome = co_await run(state, session);
    result.set(outcome);
}

QCoro::Task<SessionRefresher::Outcome> SessionRefresher::State::run(std::shared_ptr<State> state,
                                                                    AuthSession session) {
    HTTPRequest request;
    request.url = AuthConfig::appending(state->config.authBaseURL, QStringLiteral("oauth/token"));
    request.method = "POST";
    request.timeout = std::chrono::seconds(10);
    request.headers.append(
        {QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/x-www-form-urlencoded")});
    // What a query may hold by RFC 3986 section 3.4, except the three characters that a form gives a meaning.
    request.body = "grant_type=refresh_token&refresh_token=" +
                   QUrl::toPercentEncoding(session.refreshToken, QByteArrayLiteral("!$'()*,;:@/?"));

    const APIResult<HTTPResponse> answer = co_await API::perform(state->transport, std::move(request));
    if (!answer)
        co_return Outcome::unreachable();
    if (answer->status == 400 || answer->status == 401 || answer->status == 403) {
        state->store.setSession(std::nullopt);
        co_return Outcome::signedOut();
    }
    if (answer->status != 200)
        co_return Outcome::unreachable();
    const std::optional<AuthSession> renewed = session.refreshed(answer->body);
    if (!renewed)
        co_return Outcome::unreachable();
    // The store answers with the new session from here on; no call waits for the secret store to take it.
    state->store.setSession(renewed);
    if (renewed->email)
        announceLater(state, renewed->displayName());
    co_return Outcome::refreshed(renewed->accessToken);
}

void SessionRefresher::State::announceLater(const std::shared_ptr<State>& state, const QString& displayName) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [state, displayName]() {
            if (state->owner && state->owner->onRenewed)
                state->owner->onRenewed(displayName);
        },
        Qt::QueuedConnection);
}

} // namespace vellumline
