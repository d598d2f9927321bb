#pragma once

#include <QString>
#include <QUrl>
#include <optional>

namespace vellumline {

/// The three origins that the program talks to, fixed when it is built. Immutable.
struct AuthConfig {
    QUrl landingURL;  ///< product web site origin, no path
    QUrl authBaseURL; ///< authentication service origin with its "auth" segment
    QUrl backendURL;  ///< service API origin, no path

    /// The build's origins, or, when the environment variable VELLUMLINE_ORIGIN is set, a local service's. An
    /// origin that is not acceptable ends the process.
    static const AuthConfig& shared();
    /// The origins for three texts. When `localOrigin` is not empty it stands in for all three (itself,
    /// itself with "auth", itself) and must be on a loopback host. Nothing when an origin is not acceptable.
    static std::optional<AuthConfig> resolve(const QString& landing, const QString& auth,
                                             const QString& backend, const QString& localOrigin = {});
    /// A URL with a host and without user information that is HTTPS, or HTTP on a loopback host.
    static bool isAcceptable(const QUrl& origin);
    /// "localhost", or an address of 127.0.0.0/8 or ::1.
    static bool isLoopback(const QUrl& origin);

    /// The login page for a PKCE challenge: "login/" with the query item "app_challenge".
    QUrl loginURL(const QString& challenge) const;
    /// The account page: "account/".
    QUrl accountURL() const;
    /// The account page with the query item "plan".
    QUrl checkoutURL(const QString& plan) const;

    /// Appends a path to an origin; a trailing "/" of `path` stays.
    static QUrl appending(const QUrl& origin, const QString& path);
};

} // namespace vellumline
