#pragma once

#include "Vellumline/AsyncResult.h"
#include "Vellumline/Platform/HTTPTransport.h"

#include <QList>
#include <functional>
#include <optional>

namespace vellumline {

/// A network of one's own: records every request and answers as the test says. A request for which nothing is
/// queued, and which the handler does not answer, stays pending until the test answers it.
class FakeHTTPTransport : public HTTPTransport {
  public:
    using Answer = tl::expected<HTTPResponse, TransportError>;

    QCoro::Task<Answer> send(HTTPRequest request) override;

    /// Queued answers are given in order, each on a later turn of the main loop.
    void queue(int status, QByteArray body = {});
    void queue(TransportError error);
    /// The request that takes this place in the queue stays pending.
    void queueHeld();

    /// Asked when the queue is empty; nothing leaves the request pending.
    std::function<std::optional<Answer>(const HTTPRequest& request)> handler;

    QList<HTTPRequest> requests;
    /// Forgets the requests that were answered; none may be pending.
    void clearCalls() {
        requests.clear();
        answers_.clear();
    }
    /// How many requests are unanswered.
    int pending() const;
    /// Answers the request with that index in `requests`; the waiting task runs before this returns. False
    /// when it was answered before.
    bool answer(qsizetype index, int status, QByteArray body = {});
    bool answer(qsizetype index, TransportError error);

    /// First value of a header of a request, by its exact name; nothing when it has none.
    static std::optional<QByteArray> header(const HTTPRequest& request, const QByteArray& name);

  private:
    bool settle(qsizetype index, Answer answer);

    QList<std::optional<Answer>> queue_;
    QList<AsyncResult<Answer>> answers_;
};

} // namespace vellumline
