#pragma once

#include "VellumlineCore/SoftwareVersion.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

namespace vellumline {

/// One version of the program on the feed.
struct AppcastItem {
    /// The file to install. The program never fetches it: length and signature are for who does.
    struct Enclosure {
        QUrl url;
        qint64 length = 0; ///< Bytes, more than 0.
        QString type;
        QByteArray signature; ///< Ed25519, over the file; 64 bytes.
    };

    SoftwareVersion version;
    QString title;       ///< One line; may be empty.
    QString notes;       ///< Plain text; may be empty.
    QUrl link;           ///< The page of this version; may be empty.
    QDateTime published; ///< Invalid when the feed does not say.
    Enclosure enclosure;
};

/// The feed that names the versions of the program: RSS 2.0, with the attributes "version" and "signature" of
/// the enclosure in a namespace of its own. Signed as a whole, so whoever parses it has verified it.
struct Appcast {
    static constexpr qsizetype largestDocument = qsizetype(1) << 20; ///< Bytes.
    static constexpr qsizetype mostItems = 200;
    static constexpr qsizetype longestTitle = 200; ///< UTF-16 units, as the next one; what is longer is cut.
    static constexpr qsizetype longestNotes = 16 * 1024;
    static constexpr qsizetype longestLink = 2048;
    static const QString xmlNamespace;

    /// Whether the program may open that link.
    using LinkRule = std::function<bool(const QUrl&)>;
    /// Nothing when the document breaks a rule of the feed: it is refused as a whole, so that the publisher
    /// notices. Items alone whose version cannot be read are left out, as a later numbering may need them.
    static std::optional<Appcast> parse(const QByteArray& document, const LinkRule& acceptsLink);

    /// The newest item that is newer than that version; nullptr when there is none.
    const AppcastItem* newestAfter(const SoftwareVersion& version) const;

    QList<AppcastItem> items; ///< In the feed's order.
};

} // namespace vellumline
