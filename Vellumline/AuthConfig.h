#pragma once

#include <QString>
#include <QUrl>

namespace vellumline {

/// The three origins that the program talks to, fixed when it is built. Immutable.
struct AuthConfig {
    QUrl landingURL;  ///< product web site origin, no path
    QUrl authBaseURL; ///< authentication service origin with its "auth" segment
    QUrl backendURL;  ///< service API origin, no path

    /// The build's origins. An origin that is not a URL, or neither HTTPS nor on a loopback host, ends the
    /// process.
    static const AuthConfig& shared();
    /// HTTPS, or any scheme of HTTP on a loopback host.
    static bool isAcceptable(const QUrl& origin);

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
