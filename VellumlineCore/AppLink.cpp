#include "VellumlineCore/AppLink.h"

#include "VellumlineCore/Text.h"

#include <QUrl>
#include <QUrlQuery>
#include <algorithm>

namespace vellumline {

namespace {

constexpr qsizetype shortestCode = 16;
constexpr qsizetype longestCode = 128;

bool isCodeUnit(QChar unit) {
    const char16_t c = unit.unicode();
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' ||
           c == u'_';
}

bool validCode(const QString& code) {
    // Every accepted character is one ASCII unit, so that units are characters once all are accepted.
    return std::ranges::all_of(code, isCodeUnit) && code.size() >= shortestCode && code.size() <= longestCode;
}

/// The first query item of that name; nothing when there is none, or it has no "=".
std::optional<QString> queryValue(const QString& name, const QString& query) {
    for (const QString& item : query.split(QLatin1Char('&'))) {
        const qsizetype equals = item.indexOf(QLatin1Char('='));
        const QString key = equals < 0 ? item : item.first(equals);
        if (QUrl::fromPercentEncoding(key.toUtf8()) != name)
            continue;
        if (equals < 0)
            return std::nullopt;
        return QUrl::fromPercentEncoding(item.sliced(equals + 1).toUtf8());
    }
    return std::nullopt;
}

} // namespace

std::optional<AppLink> AppLink::parse(const QString& url) {
    static const QString scheme = QStringLiteral("vellumline://");
    // The exact text first: QUrl would lower-case the scheme and the host before they could be compared.
    if (!url.startsWith(scheme) || !QUrl(url, QUrl::StrictMode).isValid())
        return std::nullopt;
    QString rest = url.sliced(scheme.size());
    rest.truncate(std::min(rest.indexOf(QLatin1Char('#')) < 0 ? rest.size() : rest.indexOf(QLatin1Char('#')),
                           rest.size()));
    const qsizetype question = rest.indexOf(QLatin1Char('?'));
    const QString query = question < 0 ? QString() : rest.sliced(question + 1);
    QString authority = question < 0 ? rest : rest.first(question);
    if (const qsizetype slash = authority.indexOf(QLatin1Char('/')); slash >= 0)
        authority.truncate(slash);
    if (const qsizetype at = authority.lastIndexOf(QLatin1Char('@')); at >= 0)
        authority = authority.sliced(at + 1);
    if (const qsizetype colon = authority.lastIndexOf(QLatin1Char(':')); colon >= 0)
        authority.truncate(colon);

    if (authority == QStringLiteral("auth")) {
        const auto code = queryValue(QStringLiteral("handoff"), query);
        if (!code || !validCode(*code))
            return std::nullopt;
        return handoff(*code);
    }
    if (authority == QStringLiteral("sign-in"))
        return startSignIn();
    return std::nullopt;
}

} // namespace vellumline
