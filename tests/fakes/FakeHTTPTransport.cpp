#include "fakes/FakeHTTPTransport.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace vellumline {

QCoro::Task<FakeHTTPTransport::Answer> FakeHTTPTransport::send(HTTPRequest request) {
    requests.append(request);
    AsyncResult<Answer> result;
    answers_.append(result);
    std::optional<Answer> answer;
    if (!queue_.isEmpty())
        answer = queue_.takeFirst();
    else if (handler)
        answer = handler(request);
    if (answer) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [result, answer]() mutable { result.set(*answer); },
            Qt::QueuedConnection);
    }
    Answer received = co_await result;
    co_return received;
}

void FakeHTTPTransport::queue(int status, QByteArray body) {
    queue_.append(Answer(HTTPResponse{status, std::move(body)}));
}

void FakeHTTPTransport::queue(TransportError error) {
    queue_.append(Answer(tl::unexpected(error)));
}

void FakeHTTPTransport::queueHeld() {
    queue_.append(std::nullopt);
}

int FakeHTTPTransport::pending() const {
    int count = 0;
    for (const AsyncResult<Answer>& answer : answers_)
        count += answer.isSet() ? 0 : 1;
    return count;
}

bool FakeHTTPTransport::answer(qsizetype index, int status, QByteArray body) {
    return settle(index, HTTPResponse{status, std::move(body)});
}

bool FakeHTTPTransport::answer(qsizetype index, TransportError error) {
    return settle(index, tl::unexpected(error));
}

bool FakeHTTPTransport::settle(qsizetype index, Answer answer) {
    if (index < 0 || index >= answers_.size() || answers_.at(index).isSet())
        return false;
    AsyncResult<Answer> result = answers_.at(index);
    result.set(std::move(answer));
    return true;
}

std::optional<QByteArray> FakeHTTPTransport::header(const HTTPRequest& request, const QByteArray& name) {
    for (const auto& [key, value] : request.headers) {
        if (key == name)
            return value;
    }
    return std::nullopt;
}

} // namespace vellumline
