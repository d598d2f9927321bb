// The answer of the correction endpoint: any body under every status that is told apart.
#include "VellumlineCore/RewriteReply.h"

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(size));
    for (const int status : {200, 400, 401, 402, 429, 500, 502, 504})
        RewriteReply::from(status, input);
    return 0;
}
