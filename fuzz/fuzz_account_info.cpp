// The body of an account reply.
#include "VellumlineCore/AccountInfo.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto info =
        AccountInfo::fromJson(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    if (info && info->menuLabel().isEmpty())
        std::abort();
    return 0;
}
