// The update feed: whatever its bytes are, what is read keeps the rules that the program relies on.
#include "Vellumline/AuthConfig.h"
#include "VellumlineCore/Appcast.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace vellumline;

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

void check(const QByteArray& document) {
    const std::optional<Appcast> feed = Appcast::parse(document, AuthConfig::isAcceptable);
    if (!feed)
        return;
    require(feed->items.size() <= Appcast::mostItems);
    for (const AppcastItem& item : feed->items) {
        require(item.link.isEmpty() || AuthConfig::isAcceptable(item.link));
        require(AuthConfig::isAcceptable(item.enclosure.url));
        require(item.enclosure.length > 0 && item.enclosure.signature.size() == 64);
        require(item.title.size() <= Appcast::longestTitle && !item.title.contains(QLatin1Char('\n')));
        require(item.notes.size() <= Appcast::longestNotes);
        require(SoftwareVersion::parse(item.version.text()) == item.version);

        const AppcastItem* newer = feed->newestAfter(item.version);
        if (newer == nullptr)
            continue;
        require(newer->version > item.version && item.version < newer->version);
        require(feed->newestAfter(newer->version) == nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    check(bytes);
    // Most bytes are not XML: a feed around them takes them further in.
    static const QByteArray head =
        "<rss version=\"2.0\" xmlns:vellumline=\"https://vellumline.kelthorne.com/xml/appcast\"><channel>";
    check(head + bytes + "</channel></rss>");
    static const QByteArray enclosure = "<enclosure url=\"https://example.org/v\" length=\"1\" type=\"a/b\" "
                                        "vellumline:signature=\"" +
                                        QByteArray(64, 's').toBase64() + "\" vellumline:version=\"";
    check(head + "<item>" + enclosure + bytes + "\"/></item><item>" + enclosure +
          "1.0\"/></item></channel></rss>");
    return 0;
}
