// The bodies of sign-in and renewal replies, and the session's stored form.
#include "VellumlineCore/AuthSession.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace vellumline;

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto session = AuthSession::fromHandoff(body)) {
        require(!session->accessToken.isEmpty() && !session->refreshToken.isEmpty());
        require(AuthSession::displayEmail(session->email) == session->email);
    }
    const AuthSession current{QStringLiteral("a"), QStringLiteral("r"), 1, std::nullopt};
    if (const auto renewed = current.refreshed(body))
        require(!renewed->accessToken.isEmpty() && !renewed->refreshToken.isEmpty() && renewed->userId == 1);
    if (const auto stored = AuthSession::fromStoredJson(body)) {
        require(AuthSession::fromStoredJson(stored->toStoredJson()) == stored);
        stored->withEmailFromToken().displayName();
    }
    return 0;
}
