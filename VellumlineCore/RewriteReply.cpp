#include "VellumlineCore/RewriteReply.h"

#include "VellumlineCore/Json.h"
#include "VellumlineCore/Text.h"

namespace vellumline {

namespace {

struct ErrorBody {
    std::optional<QString> error;
    std::optional<QString> monthlyCheckoutUrl;
    std::optional<QString> yearlyCheckoutUrl;
};

/// What cannot be decoded is no error body: every field absent.
ErrorBody errorBody(const QByteArray& data) {
    JsonReader reader(data);
    ErrorBody body{reader.optionalString(QStringLiteral("error")),
                   reader.optionalString(QStringLiteral("monthlyCheckoutUrl")),
                   reader.optionalString(QStringLiteral("yearlyCheckoutUrl"))};
    return reader.failed() ? ErrorBody{} : body;
}

RewriteReply success(const QByteArray& data) {
    JsonReader reader(data);
    const QString text = reader.string(QStringLiteral("text"));
    if (reader.failed() || trimmedWhitespace(text).isEmpty())
        return RewriteReply::of(RewriteReply::Kind::failed);
    return RewriteReply::corrected(text);
}

} // namespace

RewriteReply RewriteReply::from(int status, const QByteArray& body) {
    const ErrorBody problem = errorBody(body);
    switch (status) {
    case 200:
        return success(body);
    case 400:
        if (problem.error == QStringLiteral("text is too long"))
            return of(Kind::tooLong);
        if (problem.error == QStringLiteral("text is empty"))
            return of(Kind::nothingToCorrect);
        return of(Kind::failed);
    case 401:
        return of(problem.error == QStringLiteral("account closed") ? Kind::accountClosed
                                                                    : Kind::unauthorized);
    case 402:
        return freeLimit(webURL(problem.monthlyCheckoutUrl), webURL(problem.yearlyCheckoutUrl));
    case 429:
        return of(problem.error == QStringLiteral("monthly limit reached") ? Kind::monthlyLimit
                                                                           : Kind::rateLimited);
    case 502:
    case 503:
        return of(Kind::modelUnavailable);
    case 504:
        return of(Kind::timedOut);
    default:
        return of(Kind::failed);
    }
}

std::optional<QUrl> RewriteReply::webURL(const std::optional<QString>& string) {
    if (!string)
        return std::nullopt;
    // The scheme as it was sent: QUrl would lower-case it.
    if (!string->startsWith(QStringLiteral("https:")) && !string->startsWith(QStringLiteral("http:")))
        return std::nullopt;
    const QUrl url(*string, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return std::nullopt;
    return url;
}

QString RewriteProblem::message(const QString& hotkey) const {
    switch (kind) {
    case Kind::tooLong:
        return QStringLiteral("That selection is too long. Select up to %1 characters.").arg(limit);
    case Kind::noSelection:
        return QStringLiteral("Select some text first, then press ") + hotkey + QLatin1Char('.');
    case Kind::readOnly:
        return QStringLiteral("That text can't be edited here, so nothing was changed.");
    case Kind::secureField:
        return QStringLiteral("Vellumline does not read password fields.");
    case Kind::accessibilityNeeded:
        return QStringLiteral("Allow Accessibility for Vellumline, then press ") + hotkey +
               QStringLiteral(" again.");
    case Kind::offline:
        return QStringLiteral("You're offline. Connect to the internet and try again.");
    case Kind::timedOut:
        return QStringLiteral("The correction took too long. Try again.");
    case Kind::modelUnavailable:
        return QStringLiteral("Corrections are unavailable right now. Try again in a minute.");
    case Kind::rateLimited:
        return QStringLiteral("Too many rewrites in a minute. Wait a moment and try again.");
    case Kind::monthlyLimit:
        return QStringLiteral("You've reached this month's fair-use limit. It resets on the 1st.");
    case Kind::freeLimit:
        return QStringLiteral("You've used your free rewrites. Pick a plan to keep going.");
    case Kind::accountClosed:
        return QStringLiteral("This account is closed. Reopen it on the account page to rewrite.");
    case Kind::failed:
        break;
    }
    return QStringLiteral("The rewrite failed. Try again.");
}

} // namespace vellumline
