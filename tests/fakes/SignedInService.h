#pragma once

#include "Vellumline/API.h"
#include "Vellumline/AuthConfig.h"
#include "Vellumline/SessionRefresher.h"
#include "Vellumline/TokenStore.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeHTTPTransport.h"
#include "fakes/FakeKeychain.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace vellumline {

/// A token whose payload is that JSON; nobody checks its signature.
inline QString tokenWith(const QJsonObject& payload) {
    const QByteArray json = QJsonDocument(payload).toJson(QJsonDocument::Compact);
    return QStringLiteral("e30.") +
           QString::fromLatin1(
               json.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)) +
           QStringLiteral(".signature");
}

/// A token that expires at that moment, in seconds since 1970-01-01 UTC. `serial` makes it unlike others.
inline QString tokenExpiring(double moment, int serial = 0) {
    return tokenWith({{QStringLiteral("exp"), moment}, {QStringLiteral("jti"), serial}});
}

inline AuthSession sessionWith(const QString& accessToken,
                               const QString& refreshToken = QStringLiteral("refresh-1")) {
    AuthSession session;
    session.accessToken = accessToken;
    session.refreshToken = refreshToken;
    session.userId = 4182;
    session.email = QStringLiteral("ada@example.org");
    return session;
}

/// The body of a refresh reply.
inline QByteArray refreshReply(const QString& accessToken,
                               const QString& refreshToken = QStringLiteral("refresh-2")) {
    return QJsonDocument(QJsonObject{{QStringLiteral("access_token"), accessToken},
                                     {QStringLiteral("refresh_token"), refreshToken}})
        .toJson(QJsonDocument::Compact);
}

inline AuthConfig exampleConfig() {
    return *AuthConfig::resolve(QStringLiteral("https://www.example.org"),
                                QStringLiteral("https://id.example.org/auth"),
                                QStringLiteral("https://api.example.org"));
}

/// The service client on fakes, with a stored session.
struct SignedInService {
    explicit SignedInService(const std::optional<AuthSession>& stored) {
        if (stored)
            keychain.items.insert(item, {stored->toStoredJson()});
    }
    ~SignedInService() {
        // What nobody waits for is finished all the same.
        keychain.release();
        while (store.isWriting())
            QTest::qWait(0);
    }
    SignedInService(const SignedInService&) = delete;
    SignedInService& operator=(const SignedInService&) = delete;

    /// The session that the keychain holds.
    std::optional<AuthSession> kept() const {
        const auto found = keychain.items.constFind(item);
        if (found == keychain.items.constEnd())
            return std::nullopt;
        return AuthSession::fromStoredJson(found->data);
    }

    const FakeKeychain::Name item{QStringLiteral("com.kelthorne.vellumline.session"),
                                  QStringLiteral("session")};
    FakeClock clock;
    FakeHTTPTransport transport;
    FakeKeychain keychain;
    TokenStore store{keychain, QStringLiteral("/nonexistent/session.json")};
    SessionRefresher refresher{transport, store, exampleConfig()};
    API api{transport, store, refresher, clock};
};

} // namespace vellumline
