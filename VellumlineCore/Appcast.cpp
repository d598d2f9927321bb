#include "VellumlineCore/Appcast.h"

#include "VellumlineCore/Base64.h"

#include <QXmlStreamReader>

namespace vellumline {

namespace {

constexpr qsizetype signatureSize = 64;
constexpr qint64 largestFile = qint64(1) << 40;
constexpr qsizetype longestType = 127; // RFC 6838 section 4.2: the longest name of a type

QString cut(QString text, qsizetype longest) {
    if (text.size() <= longest)
        return text;
    text.truncate(text.at(longest - 1).isHighSurrogate() ? longest - 1 : longest);
    return text;
}

/// Without the indentation that a text in XML has, and without empty lines around it.
QString dedented(const QString& text) {
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = line.trimmed();
    return lines.join(QLatin1Char('\n')).trimmed();
}

/// Reads the document once, never nested deeper than its grammar. What is wrong becomes an error of the XML
/// reader, which ends every loop.
class Reader {
  public:
    Reader(const QByteArray& document, const Appcast::LinkRule& acceptsLink)
        : xml_(document), acceptsLink_(acceptsLink) {}

    std::optional<Appcast> read() {
        while (!xml_.atEnd() && !xml_.isStartElement()) {
            xml_.readNext();
            // A document type could declare entities that grow without bound; a feed needs none.
            if (xml_.isDTD())
                refuse();
        }
        if (!isElement(QLatin1String("rss")) ||
            xml_.attributes().value(QLatin1String("version")) != QLatin1String("2.0"))
            return std::nullopt;
        bool channelSeen = false;
        while (xml_.readNextStartElement()) {
            if (!isElement(QLatin1String("channel"))) {
                xml_.skipCurrentElement();
            } else if (std::exchange(channelSeen, true)) {
                refuse();
            } else {
                readChannel();
            }
        }
        while (!xml_.atEnd())
            xml_.readNext();
        if (xml_.hasError() || !channelSeen)
            return std::nullopt;
        return std::move(feed_);
    }

  private:
    void refuse() { xml_.raiseError(QStringLiteral("not a feed")); }

    bool isElement(QLatin1String name) const {
        return xml_.isStartElement() && xml_.namespaceUri().isEmpty() && xml_.name() == name;
    }

    void readChannel() {
        qsizetype count = 0;
        while (xml_.readNextStartElement()) {
            if (!isElement(QLatin1String("item")))
                xml_.skipCurrentElement();
            else if (++count > Appcast::mostItems)
                refuse();
            else
                readItem();
        }
    }

    void readItem() {
        AppcastItem item;
        std::optional<QString> version;
        while (xml_.readNextStartElement()) {
            if (isElement(QLatin1String("title"))) {
                item.title = cut(xml_.readElementText().simplified(), Appcast::longestTitle);
            } else if (isElement(QLatin1String("description"))) {
                item.notes = cut(dedented(xml_.readElementText()), Appcast::longestNotes);
            } else if (isElement(QLatin1String("link"))) {
                item.link = link(xml_.readElementText().trimmed());
            } else if (isElement(QLatin1String("pubDate"))) {
                item.published = QDateTime::fromString(xml_.readElementText().simplified(), Qt::RFC2822Date);
            } else if (isElement(QLatin1String("enclosure"))) {
                if (version)
                    refuse();
                version = readEnclosure(item.enclosure);
            } else {
                xml_.skipCurrentElement();
            }
        }
        if (!version)
            refuse();
        if (xml_.hasError())
            return;
        if (const auto readable = SoftwareVersion::parse(*version)) {
            item.version = *readable;
            feed_.items.append(item);
        }
    }

    /// Answers the version that the enclosure is.
    QString readEnclosure(AppcastItem::Enclosure& enclosure) {
        const QXmlStreamAttributes attributes = xml_.attributes();
        enclosure.url = link(attributes.value(QLatin1String("url")).toString());
        bool isNumber = false;
        enclosure.length = attributes.value(QLatin1String("length")).toLongLong(&isNumber);
        enclosure.type = attributes.value(QLatin1String("type")).toString();
        const QByteArray signature =
            attributes.value(Appcast::xmlNamespace, QLatin1String("signature")).toUtf8();
        const std::optional<QByteArray> bytes = decodeBase64(signature, signatureSize);
        if (!isNumber || enclosure.length <= 0 || enclosure.length > largestFile ||
            enclosure.type.isEmpty() || enclosure.type.size() > longestType || !bytes)
            refuse();
        enclosure.signature = bytes.value_or(QByteArray());
        QString version = attributes.value(Appcast::xmlNamespace, QLatin1String("version")).toString();
        if (version.isEmpty())
            refuse();
        xml_.skipCurrentElement();
        return version;
    }

    QUrl link(const QString& text) {
        QUrl url(text, QUrl::StrictMode);
        if (text.size() > Appcast::longestLink || !acceptsLink_(url))
            refuse();
        return url;
    }

    QXmlStreamReader xml_;
    const Appcast::LinkRule& acceptsLink_;
    Appcast feed_;
};

} // namespace

const QString Appcast::xmlNamespace = QStringLiteral("https://vellumline.kelthorne.com/xml/appcast");

std::optional<Appcast> Appcast::parse(const QByteArray& document, const LinkRule& acceptsLink) {
    if (document.size() > largestDocument)
        return std::nullopt;
    return Reader(document, acceptsLink).read();
}

const AppcastItem* Appcast::newestAfter(const SoftwareVersion& version) const {
    const AppcastItem* newest = nullptr;
    for (const AppcastItem& item : items) {
        if (item.version > (newest ? newest->version : version))
            newest = &item;
    }
    return newest;
}

} // namespace vellumline
