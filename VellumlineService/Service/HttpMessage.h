#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <atomic>
#include <memory>
#include <optional>

namespace vellumline {

/// Decides once whether a request is answered by its handler or given up by the server (too slow, or the
/// client went away). Thread-safe.
class RequestClaim {
  public:
    /// True when the handler may commit its effects and answer. Only one of the two calls ever returns true.
    bool claim() {
        int expected = 0;
        return state_.compare_exchange_strong(expected, 1);
    }
    bool giveUp() {
        int expected = 0;
        return state_.compare_exchange_strong(expected, 2);
    }
    bool givenUp() const { return state_.load() == 2; }

  private:
    std::atomic<int> state_ = 0;
};

struct HttpRequest {
    QByteArray method;
    QByteArray path;                              ///< Without the query, still percent-encoded.
    QByteArray query;                             ///< Without the question mark, still percent-encoded.
    QList<QPair<QByteArray, QByteArray>> headers; ///< Names in lower case.
    QByteArray body;
    QByteArray peer; ///< The address of the other end, without its port.
    bool keepAlive = true;
    bool expectsContinue = false;
    std::shared_ptr<RequestClaim> claim = std::make_shared<RequestClaim>();

    /// The first header of that (lower-case) name; empty when there is none.
    QByteArray header(const QByteArray& name) const;
    bool hasHeader(const QByteArray& name) const;
    /// The media type without parameters, in lower case.
    QByteArray mediaType() const;
};

struct HttpAnswer {
    int status = 200;
    QByteArray contentType = "application/json";
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
};

struct HttpLimits {
    qsizetype requestLine = 8 * 1024;
    qsizetype headerBytes = 16 * 1024; ///< Request line and all headers together.
    int headerCount = 100;
    qsizetype body = 256 * 1024;
    int headerMilliseconds = 10'000; ///< From a request's first byte to its last header byte.
    int bodyMilliseconds = 10'000;   ///< From the last header byte to the last body byte.
    int answerMilliseconds = 12'000; ///< For the handler; below the 15 s for which the program waits.
    int idleMilliseconds = 60'000;   ///< For an open connection without a request.
    int partingMilliseconds = 100;   ///< The same when the server stops.
    int connections = 512;
    /// Beyond this many waiting corrections an honest "unavailable" is better than an answer after the
    /// client's patience: two cores make about 1000 in a second.
    int waitingCorrections = 256;
    /// How many corrections are worked on at once. A worker mostly waits: for a database on a network to have
    /// written the count, or for an engine that is elsewhere.
    int parallelCorrections = 16;
    /// A password's check takes 64 MiB and a tenth of a second; an attacker may not fill a queue with them.
    int waitingPasswords = 16;
    /// A client that does not take its answers gets no further ones.
    qint64 unsentBytes = 64 * 1024;
};

/// Reads HTTP/1.0 and HTTP/1.1 requests out of a byte stream (RFC 9112). Strict where leniency lets two
/// readers disagree: no folded headers, no space before a colon, one Content-Length, no transfer codings.
class HttpParser {
  public:
    explicit HttpParser(HttpLimits limits = {}) : limits_(limits) {}

    enum class State { idle, inHeaders, inBody, complete, failed };

    /// Adds bytes; parses as far as they go.
    State feed(const QByteArray& bytes);
    State state() const { return state_; }
    /// The status to refuse with when the state is `failed`.
    int failure() const { return failure_; }
    const HttpRequest& current() const { return request_; }
    /// Takes a complete request; bytes of a following one stay.
    HttpRequest take();
    /// Parses what a previous request left behind.
    State proceed();

  private:
    State fail(int status);
    State parseHead(qsizetype end);

    HttpLimits limits_;
    QByteArray buffer_;
    HttpRequest request_;
    qsizetype bodyLength_ = 0;
    qsizetype searched_ = 0;
    State state_ = State::idle;
    int failure_ = 0;
};

QByteArray httpReason(int status);

/// Items of an application/x-www-form-urlencoded text, "+" read as a space. Nothing when the text is not such
/// a form: invalid percent-encoding, a control character, or more than 64 items.
std::optional<QList<QPair<QString, QString>>> parseForm(const QByteArray& text);
/// The single value of a name; nothing when it is absent or appears twice (a repeated credential is a trick).
std::optional<QString> formValue(const QList<QPair<QString, QString>>& items, const QString& name);

} // namespace vellumline
