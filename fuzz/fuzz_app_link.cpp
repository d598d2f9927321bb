// Links of this program's scheme, as any program of the desktop may hand them over.
#include "VellumlineCore/AppLink.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace vellumline;

namespace {

void check(const QString& text) {
    const auto link = AppLink::parse(text);
    if (!link || link->kind != AppLink::Kind::handoff)
        return;
    if (link->code.size() < 16 || link->code.size() > 128)
        std::abort();
    for (const QChar unit : link->code) {
        const char16_t c = unit.unicode();
        if (!((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' ||
              c == u'_'))
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    check(text);
    check(QStringLiteral("vellumline://auth?") + text);
    check(QStringLiteral("vellumline://auth?handoff=") + text);
    return 0;
}
