#pragma once

#include "Vellumline/AuthConfig.h"
#include "Vellumline/Platform/HTTPTransport.h"
#include "Vellumline/TokenStore.h"

#include <QCoroTask>
#include <QString>
#include <functional>
#include <memory>

namespace vellumline {

/// Exchanges the stored refresh token for a new access token; concurrent callers share one exchange. Main
/// thread only. Transport and store must outlive every exchange.
class SessionRefresher {
  public:
    struct Outcome {
        enum class Kind { refreshed, signedOut, unreachable };
        Kind kind = Kind::unreachable;
        QString accessToken; ///< refreshed only

        static Outcome refreshed(QString accessToken) { return {Kind::refreshed, std::move(accessToken)}; }
        static Outcome signedOut() { return {Kind::signedOut, {}}; }
        static Outcome unreachable() { return {Kind::unreachable, {}}; }
        bool operator==(const Outcome&) const = default;
    };

    SessionRefresher(HTTPTransport& transport, TokenStore& store, AuthConfig config);
    ~SessionRefresher();

    /// `rejected`: the access token that the caller found expired or was refused with.
    QCoro::Task<Outcome> refresh(QString rejected);

    /// Called, on a later turn of the main loop, with the display name of a renewed session that has an
    /// e-mail address.
    std::function<void(QString displayName)> onRenewed;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace vellumline
