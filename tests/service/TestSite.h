#pragma once

#include "TestDatabase.h"

#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/Tokens.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>
#include <QUrl>
#include <atomic>
#include <thread>

namespace vellumline::test {

inline const QByteArray verifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
inline const QByteArray challenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
inline const QByteArray password = "correct horse battery";

class EchoEngine : public CorrectionEngine {
  public:
    CorrectionResult correct(QString text) override { return {CorrectionResult::Status::corrected, text}; }
};

inline QByteArray headerOf(const HttpAnswer& answer, const QByteArray& name) {
    for (const auto& [key, value] : answer.headers) {
        if (key == name) {
            return value;
        }
    }
    return {};
}

inline QByteArray fieldOf(const HttpAnswer& answer, const char* name) {
    return QJsonDocument::fromJson(answer.body).object().value(QLatin1String(name)).toString().toLatin1();
}

/// The hidden token of the form with that action.
inline QByteArray tokenOf(const HttpAnswer& answer, const QByteArray& action) {
    const QRegularExpression form(QStringLiteral("action=\"%1\">.*?name=\"form_token\" value=\"([^\"]*)\"")
                                      .arg(QString::fromLatin1(action)),
                                  QRegularExpression::DotMatchesEverythingOption);
    return form.match(QString::fromUtf8(answer.body)).captured(1).toLatin1();
}

inline QByteArray encoded(const QByteArray& text) {
    return QUrl::toPercentEncoding(QString::fromUtf8(text));
}

/// A service with accounts, and browsers that use it, without sockets, on either database.
struct Site {
    /// A browser: it keeps cookies and says where a form comes from.
    struct Browser {
        Site& test;
        QByteArray address = "192.0.2.1";
        QMap<QByteArray, QByteArray> cookies = {};
        QByteArray origin = "https://corrections.example.org";

        HttpAnswer send(HttpRequest request) {
            request.headers.prepend({"host", "corrections.example.org"});
            request.peer = address;
            QByteArray line;
            for (auto cookie = cookies.begin(); cookie != cookies.end(); ++cookie) {
                line += (line.isEmpty() ? "" : "; ") + cookie.key() + '=' + cookie.value();
            }
            if (!line.isEmpty()) {
                request.headers.emplace_back("cookie", line);
            }
            const HttpAnswer answer = test.service_->handle(request);
            for (const auto& [name, value] : answer.headers) {
                if (name == "Set-Cookie") {
                    const QByteArray item = value.left(value.indexOf(';'));
                    const QByteArray key = item.left(item.indexOf('='));
                    if (value.contains("Max-Age=0")) {
                        cookies.remove(key);
                    } else {
                        cookies.insert(key, item.mid(key.size() + 1));
                    }
                }
            }
            return answer;
        }
        HttpAnswer get(const QByteArray& target) {
            HttpRequest request;
            request.method = "GET";
            const qsizetype question = target.indexOf('?');
            request.path = question < 0 ? target : target.left(question);
            request.query = question < 0 ? QByteArray() : target.mid(question + 1);
            return send(request);
        }
        HttpAnswer post(const QByteArray& path, const QByteArray& body) {
            HttpRequest request;
            request.method = "POST";
            request.path = path;
            request.headers = {{"content-type", "application/x-www-form-urlencoded"}, {"origin", origin}};
            request.body = body;
            return send(request);
        }
        HttpAnswer signIn(const QByteArray& email, const QByteArray& with = password,
                          const QByteArray& appChallenge = {}) {
            const QByteArray query = appChallenge.isEmpty() ? QByteArray() : "?app_challenge=" + appChallenge;
            const QByteArray token = tokenOf(get("/login/" + query), "/login/");
            return post("/login/", "email=" + encoded(email) + "&password=" + encoded(with) +
                                       "&form_token=" + token +
                                       (query.isEmpty() ? QByteArray() : "&app_challenge=" + appChallenge));
        }
        HttpAnswer registerWith(const QByteArray& email, const QByteArray& with = password,
                                const QByteArray& invitation = {}) {
            const QByteArray query = invitation.isEmpty() ? QByteArray() : "?invitation=" + invitation;
            const QByteArray token = tokenOf(get("/register/" + query), "/register/");
            return post("/register/", "email=" + encoded(email) + "&password=" + encoded(with) +
                                          "&form_token=" + token +
                                          (query.isEmpty() ? QByteArray() : "&invitation=" + invitation));
        }
        /// Presses a button of the account page.
        HttpAnswer press(const QByteArray& action, const QByteArray& more = {}) {
            return post(action, "form_token=" + tokenOf(get("/account/"), "/account/close") + more);
        }
    };
    QTemporaryDir folder_;
    QString address_;
    std::unique_ptr<Storage> storage_;
    EchoEngine engine_;
    ServiceSettings settings_;
    std::unique_ptr<CorrectionService> service_;
    std::atomic<qint64> now_ = 1'800'000'000'000;

    void serve() {
        service_ = std::make_unique<CorrectionService>(settings_, *storage_, engine_,
                                                       [this] { return now_.load(); });
    }
    HttpAnswer api(const QByteArray& method, const QByteArray& path, const QByteArray& body,
                   const QByteArray& token = {}) {
        HttpRequest request;
        request.method = method;
        request.path = path;
        request.headers = {{"host", "corrections.example.org"},
                           {"content-type", path.contains("oauth") ? "application/x-www-form-urlencoded"
                                                                   : "application/json"}};
        if (!token.isEmpty()) {
            request.headers.emplace_back("authorization", "Bearer " + token);
        }
        request.body = body;
        return service_->handle(request);
    }
    HttpAnswer redeem(const HttpAnswer& page) {
        const QByteArray code = QRegularExpression(QStringLiteral("handoff=([A-Za-z0-9_-]+)\""))
                                    .match(QString::fromUtf8(page.body))
                                    .captured(1)
                                    .toLatin1();
        return api("POST", "/v1/auth/handoff/redeem",
                   R"({"code":")" + code + R"(","code_verifier":")" + verifier + R"("})");
    }
    HttpAnswer rewrite(const QByteArray& token) {
        return api("POST", "/v1/rewrite", R"({"text":"a"})", token);
    }
    void addAccount(const QByteArray& email) {
        const auto made = storage_->registerAccount(
            QString::fromLatin1(email), Passwords(Passwords::Cost::least).hash(QString::fromLatin1(password)),
            settings_.newAccount, std::nullopt, now_ / 1000);
        QCOMPARE(made.outcome, Storage::Registered::done);
    }
    /// Whether there is a database to test with.
    bool begin() {
        address_ = freshDatabase(folder_.path());
        storage_ = std::make_unique<Storage>(databaseAddress(address_));
        if (address_.isEmpty() || storage_->open()) {
            return false;
        }
        now_ = 1'800'000'000'000;
        settings_ = ServiceSettings();
        settings_.hosts = {QStringLiteral("corrections.example.org")};
        settings_.publicUrl = QUrl(QStringLiteral("https://corrections.example.org"));
        settings_.accounts = Accounts::password;
        settings_.registration = Registration::open;
        settings_.passwordCost = Passwords::Cost::least;
        serve();
        return true;
    }
    void end() {
        service_.reset();
        storage_.reset();
    }
};

} // namespace vellumline::test
