#include "Vellumline/Platform/Linux/GuardianMessages.h"

#include <QBuffer>
#include <QDataStream>

namespace vellumline::guardianMessages {

namespace {

constexpr quint32 magic = 0x564c4731; // "VLG1"
constexpr quint32 mostItems = 1 << 16;

void configure(QDataStream& stream) {
    stream.setVersion(QDataStream::Qt_6_0);
    stream.setByteOrder(QDataStream::LittleEndian);
}

} // namespace

QByteArray encode(const QList<PasteboardItem>& items) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    encode(items, buffer);
    return bytes;
}

bool encode(const QList<PasteboardItem>& items, QIODevice& device) {
    QDataStream stream(&device);
    configure(stream);
    stream << magic << static_cast<quint32>(items.size());
    for (const PasteboardItem& item : items) {
        stream << static_cast<quint32>(item.representations.size());
        for (const PasteboardRepresentation& each : item.representations)
            stream << each.type << each.encoding << static_cast<qint32>(each.format) << each.data;
    }
    return stream.status() == QDataStream::Ok;
}

std::optional<QList<PasteboardItem>> decode(const QByteArray& bytes) {
    QDataStream stream(bytes);
    configure(stream);
    quint32 found = 0;
    quint32 count = 0;
    stream >> found >> count;
    if (stream.status() != QDataStream::Ok || found != magic || count > mostItems)
        return std::nullopt;
    QList<PasteboardItem> items;
    for (quint32 i = 0; i < count; ++i) {
        quint32 representations = 0;
        stream >> representations;
        if (stream.status() != QDataStream::Ok || representations > mostItems)
            return std::nullopt;
        PasteboardItem item;
        for (quint32 j = 0; j < representations; ++j) {
            PasteboardRepresentation each;
            qint32 format = 0;
            stream >> each.type >> each.encoding >> format >> each.data;
            if (stream.status() != QDataStream::Ok)
                return std::nullopt;
            each.format = format;
            item.representations.append(each);
        }
        items.append(item);
    }
    return stream.atEnd() ? std::optional(items) : std::nullopt;
}

} // namespace vellumline::guardianMessages
