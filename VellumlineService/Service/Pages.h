#pragma once

#include "VellumlineService/Service/HttpMessage.h"
#include "VellumlineService/Service/Storage.h"

namespace vellumline::pages {

/// Server-rendered pages: no script, no external resource, light and dark by the browser's preference.
HttpAnswer signIn(const QString& challenge, const QByteArray& formToken, const Account& account);
/// Opens the program's link at once, with a button for browsers that do not.
HttpAnswer signedIn(const QByteArray& code);
HttpAnswer account(const Account& account, const QString& plan, const QByteArray& formToken);
HttpAnswer message(int status, const QString& title, const QString& text);

} // namespace vellumline::pages
