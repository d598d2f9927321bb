#include "VellumlineService/Service/HttpMessage.h"

#include <QStringDecoder>
#include <algorithm>

namespace vellumline {

namespace {

bool isTokenCharacter(char c) {
    // RFC 9110 section 5.6.2
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           (c != 0 && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

bool isToken(const QByteArray& text) {
    return !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), isTokenCharacter);
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::optional<QString> decodeFormText(const QByteArray& text) {
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (c == '+') {
            bytes += ' ';
        } else if (c == '%') {
            if (i + 2 >= text.size()) {
                return {};
            }
            const int high = hexDigit(text.at(i + 1));
            const int low = hexDigit(text.at(i + 2));
            if (high < 0 || low < 0) {
                return {};
            }
            bytes += static_cast<char>(high * 16 + low);
            i += 2;
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            return {};
        } else {
            bytes += c;
        }
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString decoded = decoder.decode(bytes);
    if (decoder.hasError()) {
        return {};
    }
    return decoded;
}

} // namespace

QByteArray HttpRequest::header(const QByteArray& name) const {
    for (const auto& [key, value] : headers) {
        if (key == name) {
            return value;
        }
    }
    return {};
}

bool HttpRequest::hasHeader(const QByteArray& name) const {
    return std::any_of(headers.cbegin(), headers.cend(),
                       [&](const auto& item) { return item.first == name; });
}

QByteArray HttpRequest::mediaType() const {
    const QByteArray value = header("content-type");
    const qsizetype semicolon = value.indexOf(';');
    return (semicolon < 0 ? value : value.left(semicolon)).trimmed().toLower();
}

HttpParser::State HttpParser::fail(int status) {
    failure_ = status;
    buffer_.clear();
    return state_ = State::failed;
}

HttpParser::State HttpParser::feed(const QByteArray& bytes) {
    if (state_ == State::failed) {
        return state_;
    }
    buffer_ += bytes;
    return proceed();
}

HttpParser::State HttpParser::proceed() {
    if (state_ == State::idle || state_ == State::inHeaders) {
        // RFC 9112 section 2.2: empty lines before a request line are ignored.
        qsizetype blank = 0;
        while (state_ == State::idle && blank + 1 < buffer_.size() && buffer_.at(blank) == '\r' &&
               buffer_.at(blank + 1) == '\n') {
            blank += 2;
        }
        buffer_.remove(0, blank);
        if (buffer_.isEmpty() || buffer_ == "\r") {
            return state_;
        }
        state_ = State::inHeaders;
        const qsizetype end = buffer_.indexOf("\r\n\r\n", std::max<qsizetype>(0, searched_ - 3));
        searched_ = buffer_.size();
        if ((end < 0 ? buffer_.size() : end + 4) > limits_.headerBytes) {
            return fail(431);
        }
        if (end < 0) {
            if (buffer_.indexOf("\r\n") < 0 && buffer_.size() > limits_.requestLine) {
                return fail(414);
            }
            return state_;
        }
        if (parseHead(end) == State::failed) {
            return state_;
        }
        buffer_.remove(0, end + 4);
        searched_ = 0;
        state_ = State::inBody;
    }
    if (state_ == State::inBody && buffer_.size() >= bodyLength_) {
        request_.body = buffer_.left(bodyLength_);
        buffer_.remove(0, bodyLength_);
        state_ = State::complete;
    }
    return state_;
}

HttpParser::State HttpParser::parseHead(qsizetype end) {
    request_ = HttpRequest();
    const QList<QByteArray> lines = buffer_.left(end).replace("\r\n", "\n").split('\n');
    if (buffer_.left(end).count('\r') != lines.size() - 1 || buffer_.left(end).contains('\0')) {
        return fail(400);
    }
    const QByteArray& requestLine = lines.first();
    if (requestLine.size() > limits_.requestLine) {
        return fail(414);
    }
    if (lines.size() - 1 > limits_.headerCount) {
        return fail(431);
    }
    const QList<QByteArray> words = requestLine.split(' ');
    if (words.size() != 3 || !isToken(words.at(0)) || !words.at(1).startsWith('/') ||
        std::any_of(words.at(1).cbegin(), words.at(1).cend(), [](char c) { return c < 0x21 || c > 0x7E; })) {
        return fail(400);
    }
    if (words.at(2) != "HTTP/1.1" && words.at(2) != "HTTP/1.0") {
        return fail(words.at(2).startsWith("HTTP/") ? 505 : 400);
    }
    const bool modern = words.at(2) == "HTTP/1.1";
    request_.method = words.at(0);
    const qsizetype question = words.at(1).indexOf('?');
    request_.path = question < 0 ? words.at(1) : words.at(1).left(question);
    request_.query = question < 0 ? QByteArray() : words.at(1).mid(question + 1);
    request_.keepAlive = modern;
    bodyLength_ = 0;
    bool hasLength = false;
    int hosts = 0;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray& line = lines.at(i);
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0 || !isToken(line.left(colon))) {
            return fail(400);
        }
        const QByteArray name = line.left(colon).toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "transfer-encoding") {
            // RFC 9112 section 6.1 lets a server refuse what it does not implement; a length is asked for.
            return fail(411);
        }
        if (name == "content-length") {
            const bool digits =
                !value.isEmpty() && value.size() <= 18 &&
                std::all_of(value.cbegin(), value.cend(), [](char c) { return c >= '0' && c <= '9'; });
            if (hasLength || !digits) {
                return fail(400);
            }
            hasLength = true;
            bodyLength_ = value.toLongLong();
        } else if (name == "host") {
            ++hosts;
        } else if (name == "connection") {
            const QByteArray lower = value.toLower();
            if (lower.contains("close")) {
                request_.keepAlive = false;
            } else if (lower.contains("keep-alive")) {
                request_.keepAlive = true;
            }
        } else if (name == "expect") {
            if (value.toLower() != "100-continue") {
                return fail(417);
            }
            request_.expectsContinue = modern;
        }
        request_.headers.append({name, value});
    }
    // RFC 9112 section 3.2: exactly one Host in HTTP/1.1.
    if (hosts > 1 || (modern && hosts == 0)) {
        return fail(400);
    }
    if (!hasLength && (request_.method == "POST" || request_.method == "PUT" || request_.method == "PATCH")) {
        return fail(411);
    }
    if (bodyLength_ > limits_.body) {
        return fail(413);
    }
    return State::inBody;
}

HttpRequest HttpParser::take() {
    HttpRequest taken = std::move(request_);
    request_ = HttpRequest();
    state_ = State::idle;
    bodyLength_ = 0;
    searched_ = 0;
    return taken;
}

QByteArray httpReason(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 303:
        return "See Other";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 402:
        return "Payment Required";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 408:
        return "Request Timeout";
    case 410:
        return "Gone";
    case 411:
        return "Length Required";
    case 413:
        return "Content Too Large";
    case 414:
        return "URI Too Long";
    case 415:
        return "Unsupported Media Type";
    case 417:
        return "Expectation Failed";
    case 421:
        return "Misdirected Request";
    case 429:
        return "Too Many Requests";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    case 504:
        return "Gateway Timeout";
    case 505:
        return "HTTP Version Not Supported";
    default:
        return "Status";
    }
}

std::optional<QList<QPair<QString, QString>>> parseForm(const QByteArray& text) {
    QList<QPair<QString, QString>> items;
    if (text.isEmpty()) {
        return items;
    }
    const QList<QByteArray> pieces = text.split('&');
    if (pieces.size() > 64) {
        return {};
    }
    for (const QByteArray& piece : pieces) {
        if (piece.isEmpty()) {
            continue;
        }
        const qsizetype equals = piece.indexOf('=');
        const auto name = decodeFormText(equals < 0 ? piece : piece.left(equals));
        const auto value = decodeFormText(equals < 0 ? QByteArray() : piece.mid(equals + 1));
        if (!name || !value) {
            return {};
        }
        items.append({*name, *value});
    }
    return items;
}

std::optional<QString> formValue(const QList<QPair<QString, QString>>& items, const QString& name) {
    std::optional<QString> found;
    for (const auto& [key, value] : items) {
        if (key == name) {
            if (found) {
                return {};
            }
            found = value;
        }
    }
    return found;
}

} // namespace vellumline
