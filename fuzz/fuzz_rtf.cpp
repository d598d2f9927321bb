// The RTF of a copied selection; and the RTF that is written is found again.
#include "VellumlineCore/SelectionStyle.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace vellumline;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto found = SelectionStyle::fontInRtf(bytes);
    if (found && found->familyName.isEmpty())
        std::abort();
    SelectionStyle::fontInRtf("{\\rtf1{\\fonttbl{\\f0 F;}{\\f1 G;}}" + bytes);

    const QString text = QString::fromUtf8(bytes);
    const QByteArray written =
        SelectionStyle::rtf(QStringLiteral("x") + text, {QStringLiteral("F"), {}, 10.5, true, false});
    if (std::ranges::any_of(written, [](char c) { return static_cast<unsigned char>(c) > 127; }))
        std::abort();
    if (SelectionStyle::fontInRtf(written) !=
        Font{QStringLiteral("F"), QStringLiteral("F"), 10.5, true, false})
        std::abort();
    if (!SelectionStyle::sameSelection(text, text))
        std::abort();
    return 0;
}
