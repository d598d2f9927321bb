#include "Vellumline/Platform/X11/X11ClipboardFormats.h"

#include <QSet>
#include <QStringDecoder>
#include <algorithm>
#include <array>
#include <cstring>

namespace vellumline::clipboardFormats {

namespace {

std::uint32_t unitAt(const QByteArray& bytes, qsizetype index) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.constData() + index * 4, 4); // the server put it into our byte order
    return value;
}

bool isLatin1(const QString& text) {
    return std::ranges::all_of(text, [](QChar each) { return each.unicode() < 0x100; });
}

QString baseType(const QString& target) {
    return target.section(QLatin1Char(';'), 0, 0).toLower();
}

enum class Kind { text, richText, image, other };

Kind kindOf(const QString& target) {
    static const QSet<QString> richText = {QStringLiteral("text/rtf"), QStringLiteral("application/rtf"),
                                           QStringLiteral("text/richtext"), QStringLiteral("text/html"),
                                           QStringLiteral("text/uri-list")};
    if (target == QStringLiteral("UTF8_STRING") || target == QStringLiteral("STRING") ||
        target == QStringLiteral("TEXT") || baseType(target) == QStringLiteral("text/plain"))
        return Kind::text;
    if (richText.contains(baseType(target)))
        return Kind::richText;
    if (target.startsWith(QStringLiteral("image/")))
        return Kind::image;
    return Kind::other;
}

} // namespace

QList<std::uint32_t> decodeAtoms(const QByteArray& bytes, int format) {
    QList<std::uint32_t> atoms;
    if (format != 32)
        return atoms;
    QSet<std::uint32_t> seen;
    for (qsizetype i = 0; i < bytes.size() / 4 && atoms.size() < maximumTargets; ++i) {
        const auto atom = unitAt(bytes, i);
        if (atom == 0 || seen.contains(atom))
            continue;
        seen.insert(atom);
        atoms.append(atom);
    }
    return atoms;
}

QList<std::pair<std::uint32_t, std::uint32_t>> decodeAtomPairs(const QByteArray& bytes, int format) {
    QList<std::pair<std::uint32_t, std::uint32_t>> pairs;
    if (format != 32)
        return pairs;
    for (qsizetype i = 0; i + 1 < bytes.size() / 4 && pairs.size() < maximumTargets; i += 2)
        pairs.append({unitAt(bytes, i), unitAt(bytes, i + 1)});
    return pairs;
}

std::uint32_t decodeIncrementalSize(const QByteArray& bytes, int format) {
    return format == 32 && bytes.size() >= 4 ? unitAt(bytes, 0) : 0;
}

bool isProcessLocal(const QString& target) {
    static const QSet<QString> names = {QStringLiteral("TARGETS"),
                                        QStringLiteral("MULTIPLE"),
                                        QStringLiteral("TIMESTAMP"),
                                        QStringLiteral("SAVE_TARGETS"),
                                        QStringLiteral("DELETE"),
                                        QStringLiteral("INCR"),
                                        QStringLiteral("GTK_TEXT_BUFFER_CONTENTS"),
                                        QStringLiteral("chromium/x-internal-source-rfh-token")};
    return names.contains(target) || target.startsWith(QStringLiteral("INSERT_")) ||
           target.startsWith(QStringLiteral("application/x-libreoffice-internal-id-"));
}

QStringList targetsForType(const QString& type) {
    if (type == PasteboardType::string) {
        return {QStringLiteral("UTF8_STRING"), QStringLiteral("text/plain;charset=utf-8"),
                QStringLiteral("text/plain;charset=UTF-8"), QStringLiteral("STRING")};
    }
    if (type == PasteboardType::rtf) {
        return {QStringLiteral("text/rtf"), QStringLiteral("application/rtf"),
                QStringLiteral("text/richtext")};
    }
    if (type == PasteboardType::html)
        return {QStringLiteral("text/html")};
    return {type};
}

QString decodeText(QByteArray bytes, const QString& target, const QString& encoding) {
    while (bytes.endsWith('\0'))
        bytes.chop(1);
    const bool latin1 =
        encoding == QStringLiteral("STRING") || (encoding.isEmpty() && target == QStringLiteral("STRING"));
    if (latin1)
        return QString::fromLatin1(bytes);
    // Clipboard text has no mark of its encoding (ICCCM's UTF8_STRING): what looks like one is a character
    // of the text, which QString::fromUtf8 would drop. Nothing follows either: half a character at the end is
    // an error, which is shown, and not waited for, which would hide it.
    return QStringDecoder(QStringDecoder::Utf8,
                          QStringDecoder::Flag::ConvertInitialBom | QStringDecoder::Flag::Stateless)
        .decode(bytes);
}

QByteArray htmlAsUtf8(const QByteArray& bytes) {
    if (bytes.size() < 2)
        return bytes;
    const auto first = static_cast<unsigned char>(bytes.at(0));
    const auto second = static_cast<unsigned char>(bytes.at(1));
    std::optional<QStringConverter::Encoding> encoding;
    if (first == 0xFF && second == 0xFE)
        encoding = QStringConverter::Utf16LE;
    else if (first == 0xFE && second == 0xFF)
        encoding = QStringConverter::Utf16BE;
    else if (first != 0 && second == 0) // markup starts with ASCII: its high byte is zero
        encoding = QStringConverter::Utf16LE;
    else if (first == 0 && second != 0)
        encoding = QStringConverter::Utf16BE;
    QByteArray result = bytes;
    if (encoding) {
        QStringDecoder decoder(*encoding);
        const QString text = decoder.decode(bytes);
        result = text.toUtf8();
    }
    if (result.startsWith("\xEF\xBB\xBF"))
        result.remove(0, 3);
    while (result.endsWith('\0'))
        result.chop(1);
    return result;
}

QByteArray normalized(const QByteArray& bytes, const QString& type, const QString& target,
                      const QString& encoding) {
    if (type == PasteboardType::string && target != type)
        return decodeText(bytes, target, encoding).toUtf8();
    if (type == PasteboardType::html && target != type)
        return htmlAsUtf8(bytes);
    return bytes;
}

ReadingOrder readingOrder(const QStringList& targets) {
    ReadingOrder order;
    const auto take = [&](qsizetype index) {
        if (!order.indices.contains(index))
            order.indices.append(index);
    };
    const auto takeNamed = [&](const QString& name) {
        if (const auto index = targets.indexOf(name); index >= 0)
            take(index);
    };
    takeNamed(QStringLiteral("UTF8_STRING"));
    for (const auto kind : {Kind::text, Kind::richText}) {
        for (qsizetype i = 0; i < targets.size(); ++i) {
            if (kindOf(targets.at(i)) == kind)
                take(i);
        }
    }
    // PNG is lossless and every reader of images takes it; another format only when there is none.
    takeNamed(QStringLiteral("image/png"));
    if (!targets.contains(QStringLiteral("image/png"))) {
        for (qsizetype i = 0; i < targets.size(); ++i) {
            if (kindOf(targets.at(i)) == Kind::image) {
                take(i);
                break;
            }
        }
    }
    order.essential = order.indices.size();
    for (qsizetype i = 0; i < targets.size(); ++i)
        take(i);
    return order;
}

QList<ServedTarget> servedTargets(const QList<PasteboardItem>& items) {
    QList<ServedTarget> richText;
    QList<ServedTarget> others;
    QList<ServedTarget> markers;
    bool isTransient = false;
    for (const auto& item : items) {
        for (const auto& each : item.representations) {
            if (each.type == PasteboardType::rtf) {
                for (const auto& target : targetsForType(each.type))
                    richText.append({target, {}, 8, each.data});
            } else if (each.type == PasteboardType::html) {
                others.append({QStringLiteral("text/html"), {}, 8, each.data});
            } else if (each.type == PasteboardType::string) {
                const auto utf8String = QStringLiteral("UTF8_STRING");
                const auto text = decodeText(each.data, utf8String, {});
                const auto string = QStringLiteral("STRING");
                const bool latin1 = isLatin1(text);
                others.append({utf8String, {}, 8, each.data});
                others.append({QStringLiteral("text/plain;charset=utf-8"), {}, 8, each.data});
                others.append({QStringLiteral("text/plain"), {}, 8, each.data});
                if (latin1)
                    others.append({string, {}, 8, text.toLatin1()});
                others.append({QStringLiteral("TEXT"), latin1 ? string : utf8String, 8,
                               latin1 ? text.toLatin1() : each.data});
            } else if (each.type == PasteboardType::transientMarker ||
                       each.type == PasteboardType::autoGeneratedMarker) {
                isTransient = isTransient || each.type == PasteboardType::transientMarker;
                markers.append({each.type, each.encoding, each.format, each.data});
            } else if (!isProcessLocal(each.type)) {
                others.append({each.type, each.encoding, each.format, each.data});
            }
        }
    }
    // The marker that desktops really look at: Klipper and others leave out what carries it.
    if (isTransient)
        markers.append({QStringLiteral("x-kde-passwordManagerHint"), {}, 8, "secret"});

    QList<ServedTarget> served;
    QSet<QString> names;
    for (const auto& list : {richText, others, markers}) {
        for (const auto& each : list) {
            if (names.contains(each.target))
                continue;
            names.insert(each.target);
            served.append(each);
        }
    }
    return served;
}

} // namespace vellumline::clipboardFormats
