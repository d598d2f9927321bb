// The access token: any text has a payload or none.
#include "VellumlineCore/AuthSession.h"

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(size));
    const QString token = QString::fromUtf8(input);
    JWT::payload(token);
    JWT::expiration(token);
    JWT::claim(QStringLiteral("email"), token);
    return 0;
}
