// The service's own parsing of outside bytes: requests, forms, JSON bodies, access tokens.
#include "VellumlineCore/Text.h"
#include "VellumlineService/Service/CorrectionService.h"
#include "VellumlineService/Service/Tokens.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vellumline;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    HttpParser parser;
    parser.feed(bytes.left(bytes.size() / 2));
    if (parser.state() != HttpParser::State::complete) {
        parser.feed(bytes.mid(bytes.size() / 2));
    }
    while (parser.state() == HttpParser::State::complete) {
        const HttpRequest request = parser.take();
        if (request.body.size() > HttpLimits().body || request.headers.size() > HttpLimits().headerCount) {
            std::abort();
        }
        parseForm(request.query);
        parser.proceed();
    }
    if (const auto items = parseForm(bytes)) {
        formValue(*items, QStringLiteral("a"));
    }
    parseRedeemBody(bytes);
    if (const auto text = parseRewriteBody(bytes)) {
        hasMoreCharactersThan(*text, 4);
    }
    if (verifyAccessToken(bytes, {accessTokenKeyId(bytes), "another key than any token was signed with"},
                          0)) {
        std::abort();
    }
    return 0;
}
