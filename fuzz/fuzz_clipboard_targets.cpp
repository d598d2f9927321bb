// What other programs send through the clipboard: lists of targets, property bytes under any target name and
// type.

#include "Vellumline/Platform/X11/X11ClipboardFormats.h"

#include <cstdint>
#include <cstdlib>

using namespace vellumline;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

QString nextName(QByteArray& bytes) {
    const auto end = bytes.indexOf('\n');
    const auto name = QString::fromUtf8(end < 0 ? bytes : bytes.left(end));
    bytes = end < 0 ? QByteArray() : bytes.mid(end + 1);
    return name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const int format = 8 << (data[0] % 3);
    const auto typeIndex = data[1] % 4;
    QByteArray bytes(reinterpret_cast<const char*>(data + 2), static_cast<qsizetype>(size) - 2);

    require(clipboardFormats::decodeAtoms(bytes, format).size() <= clipboardFormats::maximumTargets);
    require(clipboardFormats::decodeAtomPairs(bytes, format).size() <= clipboardFormats::maximumTargets);
    clipboardFormats::decodeIncrementalSize(bytes, format);

    const auto html = clipboardFormats::htmlAsUtf8(bytes);
    require(html.size() <= bytes.size() * 3 + 3); // a UTF-16 unit is at most three bytes of UTF-8

    const auto target = nextName(bytes);
    const auto encoding = nextName(bytes);
    const QString types[] = {PasteboardType::string, PasteboardType::rtf, PasteboardType::html, target};
    clipboardFormats::isProcessLocal(target);
    clipboardFormats::targetsForType(types[typeIndex]);
    const auto text = clipboardFormats::decodeText(bytes, target, encoding);
    require(text.size() <= bytes.size());
    clipboardFormats::normalized(bytes, types[typeIndex], target, encoding);

    // The rest as the names of targets, each with bytes of its own.
    QStringList targets;
    QList<PasteboardItem> items(1 + typeIndex);
    for (qsizetype i = 0; !bytes.isEmpty() && i < 64; ++i) {
        const auto name = nextName(bytes);
        targets.append(name);
        items[i % items.size()].representations.append({name, bytes.left(16), encoding, format});
    }
    items.first().set(types[typeIndex], bytes);
    const auto order = clipboardFormats::readingOrder(targets);
    require(order.indices.size() == targets.size() && order.essential <= targets.size());
    const auto served = clipboardFormats::servedTargets(items);
    for (qsizetype i = 0; i < served.size(); ++i) {
        for (qsizetype j = 0; j < i; ++j)
            require(served.at(i).target != served.at(j).target);
    }
    return 0;
}
