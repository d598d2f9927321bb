#include "Vellumline/Platform/QtHTTPTransport.h"

#include "Vellumline/AsyncResult.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QIODevice>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <algorithm>
#include <cstring>

namespace vellumline {

namespace {

using Answer = tl::expected<HTTPResponse, TransportError>;

constexpr int mostRedirects = 5;

/// A request body that can be read once. Qt Network sends a request again, up to three times, when the server
/// closes the connection before it answers; the service may have acted on the first one, and a refresh token
/// that is used twice ends the session. A body that cannot be rewound makes Qt give up instead.
class OnceBody : public QIODevice {
  public:
    OnceBody(QByteArray bytes, QObject* parent) : QIODevice(parent), bytes_(std::move(bytes)) {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return true; }
    bool reset() override { return false; }
    qint64 bytesAvailable() const override { return bytes_.size() - position_; }
    bool atEnd() const override { return position_ == bytes_.size(); }

  protected:
    qint64 readData(char* data, qint64 maximum) override {
        const qint64 count = std::min<qint64>(maximum, bytes_.size() - position_);
        if (count <= 0)
            return -1;
        std::memcpy(data, bytes_.constData() + position_, static_cast<size_t>(count));
        position_ += count;
        return count;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

  private:
    QByteArray bytes_;
    qint64 position_ = 0;
};

/// The proxies that the environment names (http_proxy, https_proxy, all_proxy, no_proxy). Qt Network's own
/// look-up asks libproxy for every request, on the main thread, which waits for D-Bus, DNS and scripts.
class EnvironmentProxies : public QNetworkProxyFactory {
  public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override {
        const QString host = query.peerHostName();
        if (host == QLatin1String("localhost") || QHostAddress(host).isLoopback() || isExcepted(host))
            return {QNetworkProxy(QNetworkProxy::NoProxy)};
        const bool secure = query.protocolTag() == QLatin1String("https");
        QUrl url(value(secure ? "https_proxy" : "http_proxy"));
        if (url.host().isEmpty())
            url = QUrl(value("all_proxy"));
        if (url.host().isEmpty())
            return {QNetworkProxy(QNetworkProxy::NoProxy)};
        const bool socks = url.scheme().startsWith(QLatin1String("socks"));
        return {QNetworkProxy(socks ? QNetworkProxy::Socks5Proxy : QNetworkProxy::HttpProxy, url.host(),
                              static_cast<quint16>(url.port(socks ? 1080 : 8080)), url.userName(),
                              url.password())};
    }

  private:
    static QString value(const char* name) {
        const QString lower = qEnvironmentVariable(name);
        return lower.isEmpty() ? qEnvironmentVariable(QByteArray(name).toUpper().constData()) : lower;
    }
    static bool isExcepted(const QString& host) {
        const QStringList entries = value("no_proxy").split(QLatin1Char(','), Qt::SkipEmptyParts);
        return std::any_of(entries.begin(), entries.end(), [&host](const QString& entry) {
            QString name = entry.trimmed();
            while (name.startsWith(QLatin1Char('.')) || name.startsWith(QLatin1Char('*')))
                name.remove(0, 1);
            return name.isEmpty() ? entry.contains(QLatin1Char('*'))
                                  : host == name || host.endsWith(QLatin1Char('.') + name);
        });
    }
};

/// One request of an exchange and what became of it.
struct Leg {
    QByteArray body;
    bool timedOut = false;
    bool tooLarge = false;
    AsyncResult<bool> finished;
};

QNetworkRequest toQt(const HTTPRequest& request) {
    QNetworkRequest result(request.url);
    using Attribute = QNetworkRequest::Attribute;
    result.setAttribute(Attribute::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    result.setAttribute(Attribute::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    result.setAttribute(Attribute::CacheSaveControlAttribute, false);
    result.setAttribute(Attribute::CookieLoadControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(Attribute::CookieSaveControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(Attribute::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    result.setAttribute(Attribute::Http2AllowedAttribute, false);
    result.setAttribute(Attribute::DoNotBufferUploadDataAttribute, true);
    result.setHeader(QNetworkRequest::UserAgentHeader,
                     QStringLiteral("Vellumline/") + QStringLiteral(VELLUMLINE_VERSION));
    // The bodies are a few kilobytes, and compressed ones could blow up beyond the limit inside Qt.
    result.setRawHeader("Accept-Encoding", "identity");
    for (const auto& [name, value] : request.headers)
        result.setRawHeader(name, value);
    return result;
}

TransportError classify(QNetworkReply::NetworkError error) {
    switch (error) {
    case QNetworkReply::NoError:
        return TransportError::notHTTP;
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::ProxyConnectionRefusedError:
        return TransportError::cannotConnectToHost;
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::ContentReSendError: // the connection closed and the body could not be sent again
        return TransportError::networkConnectionLost;
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::ProxyNotFoundError:
        return TransportError::cannotFindHost;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::ProxyTimeoutError:
        return TransportError::timedOut;
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError: // what Qt makes of ENETUNREACH, EHOSTUNREACH and ENETDOWN
        return TransportError::notConnectedToInternet;
    case QNetworkReply::BackgroundRequestNotAllowedError:
        return TransportError::dataNotAllowed;
    default:
        return TransportError::other;
    }
}

bool sameOrigin(const QUrl& one, const QUrl& other) {
    const auto port = [](const QUrl& url) {
        return url.port(url.scheme() == QLatin1String("https") ? 443 : 80);
    };
    return one.scheme() == other.scheme() && one.host() == other.host() && port(one) == port(other);
}

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// Whether the answer came whole. Qt calls answers errors: those with status 400 and more, a 307 or 308 after
/// a body that it cannot rewind, and one after which the server closes the connection, when Qt has not yet
/// noticed that nothing is missing.
bool isAnswer(int status, const QNetworkReply& reply, qint64 received) {
    switch (reply.error()) {
    case QNetworkReply::NoError:
        return true;
    case QNetworkReply::ContentReSendError:
        if (status == 307 || status == 308)
            return true;
        if (reply.hasRawHeader("Content-Length"))
            return reply.rawHeader("Content-Length").toLongLong() == received;
        // RFC 9112 section 6.3: without a length and without chunks, the body ends with the connection.
        return status != 0 && !reply.hasRawHeader("Transfer-Encoding");
    case QNetworkReply::ProxyAuthenticationRequiredError:
        return status == 407;
    default:
        return status >= 400 && reply.error() > QNetworkReply::UnknownProxyError;
    }
}

/// Turns the request into the one that follows the redirect (RFC 9110 section 15.4): 307 and 308 repeat it,
/// the others turn a POST into a GET without a body.
void redirect(HTTPRequest& request, int status, const QUrl& target) {
    request.url = target;
    if (status == 307 || status == 308 || request.method == "GET" || request.method == "HEAD")
        return;
    request.method = "GET";
    request.body.clear();
    request.headers.removeIf(
        [](const auto& header) { return header.first.compare("Content-Type", Qt::CaseInsensitive) == 0; });
}

} // namespace

/// A request under way; when the last one is over, the idle time begins.
class QtHTTPTransport::Running {
  public:
    explicit Running(QtHTTPTransport* transport) : transport_(transport) {
        ++transport_->running_;
        transport_->idle_->stop();
    }
    ~Running() {
        if (--transport_->running_ == 0)
            transport_->idle_->start();
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

  private:
    QtHTTPTransport* transport_;
};

QtHTTPTransport::QtHTTPTransport(std::chrono::milliseconds idleTime)
    : manager_(std::make_unique<QNetworkAccessManager>()), idle_(std::make_unique<QTimer>()) {
    manager_->setProxyFactory(new EnvironmentProxies);
    idle_->setSingleShot(true);
    idle_->setInterval(idleTime);
    QObject::connect(idle_.get(), &QTimer::timeout, manager_.get(),
                     &QNetworkAccessManager::clearConnectionCache);
}

QtHTTPTransport::~QtHTTPTransport() = default;

QCoro::Task<Answer> QtHTTPTransport::send(HTTPRequest request) {
    const Running running(this);
    const QDeadlineTimer deadline(request.timeout, Qt::PreciseTimer);
    for (int redirects = 0; redirects <= mostRedirects; ++redirects) {
        // Qt Network also reads files and data URLs, whose responses are not HTTP.
        const QString scheme = request.url.scheme();
        if (scheme != QLatin1String("https") && scheme != QLatin1String("http"))
            co_return tl::unexpected(TransportError::notHTTP);

        const auto leg = std::make_shared<Leg>();
        QNetworkRequest qtRequest = toQt(request);
        // A GET has the empty body that cannot be rewound: Qt repeats a GET without a body, too.
        auto* body = new OnceBody(request.body, nullptr);
        qtRequest.setHeader(QNetworkRequest::ContentLengthHeader, request.body.size());
        QNetworkReply* reply = manager_->sendCustomRequest(qtRequest, request.method, body);
        body->setParent(reply);
        QObject::connect(reply, &QNetworkReply::readyRead, reply, [leg, reply]() {
            leg->body += reply->readAll();
            if (leg->body.size() > largestBody) {
                leg->tooLarge = true;
                reply->abort();
            }
        });
        QObject::connect(reply, &QNetworkReply::finished, reply, [leg]() { leg->finished.set(true); });
        auto* timer = new QTimer(reply);
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        QObject::connect(timer, &QTimer::timeout, reply, [leg, reply]() {
            leg->timedOut = true;
            reply->abort();
        });
        timer->start(std::chrono::milliseconds(std::max<qint64>(deadline.remainingTime(), 0)));

        co_await leg->finished;
        timer->stop();
        reply->deleteLater();

        if (leg->timedOut)
            co_return tl::unexpected(TransportError::timedOut);
        if (leg->tooLarge)
            co_return tl::unexpected(TransportError::other);
        leg->body += reply->readAll();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status == 0 || !isAnswer(status, *reply, leg->body.size()))
            co_return tl::unexpected(classify(reply->error()));

        const QByteArray location = reply->rawHeader("Location");
        if (!isRedirect(status) || location.isEmpty()) {
            HTTPResponse response{status, leg->body};
            co_return std::move(response);
        }
        const QUrl target = request.url.resolved(QUrl::fromEncoded(location));
        if (!sameOrigin(request.url, target))
            co_return tl::unexpected(TransportError::other);
        redirect(request, status, target);
    }
    co_return tl::unexpected(TransportError::other);
}

} // namespace vellumline
