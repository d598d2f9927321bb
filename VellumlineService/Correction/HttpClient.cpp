#include "VellumlineService/Correction/HttpClient.h"

#include <QUrl>
#include <arpa/inet.h>
#include <curl/curl.h>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace vellumline {

namespace {

bool nearby(const in_addr& address) {
    const quint32 bits = ntohl(address.s_addr);
    return (bits >> 24) == 127 || (bits >> 24) == 10 || (bits >> 20) == 0xac1 || (bits >> 16) == 0xc0a8 ||
           (bits >> 16) == 0xa9fe; // RFC 1122, RFC 1918, RFC 3927
}

bool nearby(const in6_addr& address) {
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        in_addr inner = {};
        std::memcpy(&inner, address.s6_addr + 12, sizeof inner);
        return nearby(inner);
    }
    return IN6_IS_ADDR_LOOPBACK(&address) || (address.s6_addr[0] & 0xfe) == 0xfc || // RFC 4193
           IN6_IS_ADDR_LINKLOCAL(&address);
}

struct Transfer {
    const HttpClientSettings& settings;
    bool encrypted = false;
    QByteArray body = {};
    qsizetype headerBytes = 0;
    bool tooLarge = false;
    bool tooFar = false;
};

size_t onBody(char* data, size_t, size_t length, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const auto bytes = static_cast<qsizetype>(length);
    if (transfer.body.size() + bytes > transfer.settings.answerBytes) {
        transfer.tooLarge = true;
        return 0;
    }
    transfer.body.append(data, bytes);
    return length;
}

size_t onHeader(char*, size_t, size_t length, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    transfer.headerBytes += static_cast<qsizetype>(length);
    if (transfer.headerBytes > transfer.settings.answerHeaderBytes) {
        transfer.tooLarge = true;
        return 0;
    }
    return length;
}

// Here the name is resolved, so that no second answer of a name server can lead elsewhere.
curl_socket_t onOpenSocket(void* user, curlsocktype, curl_sockaddr* address) {
    auto& transfer = *static_cast<Transfer*>(user);
    if (!transfer.encrypted && transfer.settings.plainHttp == PlainHttp::nearby) {
        const auto* ip4 = reinterpret_cast<const sockaddr_in*>(&address->addr);
        const auto* ip6 = reinterpret_cast<const sockaddr_in6*>(&address->addr);
        const bool allowed = (address->family == AF_INET && nearby(ip4->sin_addr)) ||
                             (address->family == AF_INET6 && nearby(ip6->sin6_addr));
        if (!allowed) {
            transfer.tooFar = true;
            return CURL_SOCKET_BAD;
        }
    }
    return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

HttpReply problem(CURLcode code, const Transfer& transfer) {
    HttpReply reply;
    // The texts of curl are constants without anything of the request.
    reply.problem = QString::fromLatin1(curl_easy_strerror(code));
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        reply.outcome = HttpReply::Outcome::timedOut;
        break;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
        reply.outcome = HttpReply::Outcome::unreachable;
        break;
    default:
        reply.outcome = HttpReply::Outcome::broken;
        break;
    }
    if (transfer.tooFar) {
        reply.outcome = HttpReply::Outcome::unreachable;
        reply.problem = QStringLiteral("unencrypted HTTP to an address that is not private");
    } else if (transfer.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
        reply.problem = QStringLiteral("the answer is too large");
    }
    return reply;
}

struct FreeHandle {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, FreeHandle>;

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

} // namespace

std::optional<QString> httpAddressProblem(const QByteArray& url, PlainHttp plainHttp) {
    const QUrl parsed = QUrl::fromEncoded(url, QUrl::StrictMode);
    const bool plain = parsed.scheme() == QStringLiteral("http");
    if (!parsed.isValid() || parsed.host().isEmpty() ||
        (!plain && parsed.scheme() != QStringLiteral("https"))) {
        return QStringLiteral("needs an https:// or http:// address");
    }
    if (!parsed.userInfo().isEmpty() || parsed.hasQuery() || parsed.hasFragment()) {
        return QStringLiteral("needs an address without a user name, query or fragment");
    }
    if (plain && plainHttp == PlainHttp::nearby) {
        const QByteArray host = parsed.host().toLatin1();
        in_addr ip4 = {};
        in6_addr ip6 = {};
        if ((inet_pton(AF_INET, host.constData(), &ip4) == 1 && !nearby(ip4)) ||
            (inet_pton(AF_INET6, host.constData(), &ip6) == 1 && !nearby(ip6))) {
            return QStringLiteral(
                "needs https:// for an address that is not private; see --allow-plain-http");
        }
    }
    return {};
}

/// Handles that nobody uses now, with the connections that they keep open.
struct HttpClient::Handles {
    std::mutex mutex;
    std::vector<Handle> idle;

    Handle take() {
        const std::scoped_lock lock(mutex);
        if (idle.empty()) {
            return Handle(curl_easy_init());
        }
        Handle handle = std::move(idle.back());
        idle.pop_back();
        return handle;
    }
    void give(Handle handle) {
        curl_easy_reset(handle.get());
        const std::scoped_lock lock(mutex);
        idle.push_back(std::move(handle));
    }
};

HttpClient::HttpClient(HttpClientSettings settings)
    : settings_(std::move(settings)), handles_(std::make_unique<Handles>()) {
    static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    Q_UNUSED(ready);
}

HttpClient::~HttpClient() = default;

HttpReply HttpClient::post(const QByteArray& contentType, const QByteArray& body, const Headers& headers) {
    Handle handle = handles_->take();
    if (!handle) {
        return {HttpReply::Outcome::unreachable, 0, {}, QStringLiteral("no memory for a request")};
    }
    Transfer transfer{settings_, settings_.url.startsWith("https:")};
    std::unique_ptr<curl_slist, FreeList> lines;
    const auto add = [&lines](const QByteArray& line) {
        if (curl_slist* longer = curl_slist_append(lines.get(), line.constData())) {
            static_cast<void>(lines.release());
            lines.reset(longer);
        }
    };
    add("Content-Type: " + contentType);
    add("Accept: application/json");
    add("Expect:"); // Some servers let a client wait a second for their "continue".
    for (const auto& [name, value] : headers) {
        add(name + ": " + value);
    }
    CURL* curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_URL, settings_.url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_PROXY, ""); // Or the texts would go where "http_proxy" points.
    curl_easy_setopt(curl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L); // Needed with threads (libcurl-thread(3)).
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!settings_.authorityFile.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, settings_.authorityFile.constData());
        curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr); // Or the system's authorities would count too.
    }
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings_.connectMilliseconds));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(settings_.answerMilliseconds));
    // Without it a time-out still waits for the resolver's thread.
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(settings_.answerBytes));
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "vellumline-service");
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, lines.get());
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.constData());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_OPENSOCKETFUNCTION, &onOpenSocket);
    curl_easy_setopt(curl, CURLOPT_OPENSOCKETDATA, &transfer);

    const CURLcode code = curl_easy_perform(curl);
    HttpReply reply;
    if (code == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        reply.outcome = HttpReply::Outcome::answered;
        reply.status = static_cast<int>(status);
        reply.body = std::move(transfer.body);
    } else {
        reply = problem(code, transfer);
    }
    handles_->give(std::move(handle));
    return reply;
}

} // namespace vellumline
