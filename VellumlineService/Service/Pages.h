#pragma once

#include "VellumlineService/Service/HttpMessage.h"
#include "VellumlineService/Service/Storage.h"

namespace vellumline::pages {

/// Server-rendered pages: no script, no external resource, light and dark by the browser's preference.

/// The one button for the program that asks. `isLocal`: the account of a service for one person.
struct Confirmation {
    QString challenge;
    QByteArray formToken;
    QByteArray logoutToken;
    Account account;
    bool isLocal = true;
};
HttpAnswer confirmSignIn(const Confirmation& page);

struct LoginForm {
    QString challenge; ///< Empty: for the account page, not for a program.
    QByteArray formToken;
    QString email;
    QString problem;
    bool mayRegister = false;
};
HttpAnswer login(int status, const LoginForm& page);

struct RegisterForm {
    QString challenge;
    QString invitation;
    QByteArray formToken;
    QString email;
    bool emailFixed = false;
    QString problem;
};
HttpAnswer registration(int status, const RegisterForm& page);
HttpAnswer passwordReset(int status, const QString& code, const QByteArray& formToken,
                         const QString& problem);

/// Opens the program's link at once, with a button for browsers that do not.
HttpAnswer signedIn(const QByteArray& code);

struct Plans {
    QString wanted; ///< "monthly", "yearly" or empty.
    QString monthlyCheckoutUrl;
    QString yearlyCheckoutUrl;
};
struct AccountPage {
    Account account;
    QString thisMonth;
    Plans plans;
    bool isLocal = true;
    QList<Storage::Session> sessions;
    QString ownSession;
    QByteArray formToken;
    QString problem;
};
HttpAnswer account(int status, const AccountPage& page);
HttpAnswer plan(const Account& account, const Plans& plans, bool isLocal);
HttpAnswer message(int status, const QString& title, const QString& text);

} // namespace vellumline::pages
