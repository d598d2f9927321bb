#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <memory>
#include <optional>

namespace vellumline {

/// Where unencrypted HTTP may go.
enum class PlainHttp {
    nearby,     ///< Loopback, private and link-local addresses.
    everywhere, ///< Any address: whoever is in between can read the texts.
};

struct HttpClientSettings {
    QByteArray url;
    PlainHttp plainHttp = PlainHttp::nearby;
    /// A PEM file of the authorities to believe instead of the system's; empty: the system's.
    QByteArray authorityFile = {};
    int connectMilliseconds = 3'000;
    int answerMilliseconds = 11'000;         ///< From the call to the last byte of the answer.
    qsizetype answerBytes = 1024 * 1024;     ///< Of the body.
    qsizetype answerHeaderBytes = 64 * 1024; ///< Of all headers together.
};

struct HttpReply {
    enum class Outcome {
        answered,    ///< `status` and `body` are what the server said.
        unreachable, ///< No connection that may be used.
        timedOut,
        broken, ///< The connection ended too early, or the answer is no HTTP or too large.
    };
    Outcome outcome = Outcome::broken;
    int status = 0;
    QByteArray body = {};
    QString problem = {}; ///< In words, when there is no answer.
};

/// What an address needs to be usable; nothing when it is. Host names are looked at again once they are
/// resolved.
std::optional<QString> httpAddressProblem(const QByteArray& url, PlainHttp plainHttp);

/// Sends requests to one address. Certificates are verified, redirects are answers like any other, proxies of
/// the environment, cookies and netrc are not used. Thread-safe; a call waits for its answer.
class HttpClient {
  public:
    using Headers = QList<QPair<QByteArray, QByteArray>>;

    explicit HttpClient(HttpClientSettings settings);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    HttpReply post(const QByteArray& contentType, const QByteArray& body, const Headers& headers = {});

  private:
    struct Handles;

    const HttpClientSettings settings_;
    std::unique_ptr<Handles> handles_;
};

} // namespace vellumline
