#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>
#include <sodium.h>

namespace vellumline {

/// A publisher of feeds, for tests.
class Publisher {
  public:
    explicit Publisher(char seed = 'k') {
        if (sodium_init() < 0)
            qFatal("no libsodium");
        const QByteArray seedBytes(crypto_sign_SEEDBYTES, seed);
        crypto_sign_seed_keypair(raw(publicKey_), raw(secretKey_), raw(seedBytes));
    }
    QString publicKey() const { return QString::fromLatin1(publicKey_.toBase64()); }
    QByteArray sign(const QByteArray& document) const {
        QByteArray signature(crypto_sign_BYTES, 0);
        crypto_sign_detached(raw(signature), nullptr, raw(document),
                             static_cast<unsigned long long>(document.size()), raw(secretKey_));
        return signature.toBase64() + '\n';
    }

  private:
    static unsigned char* raw(QByteArray& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }
    static const unsigned char* raw(const QByteArray& bytes) {
        return reinterpret_cast<const unsigned char*>(bytes.constData());
    }
    QByteArray publicKey_ = QByteArray(crypto_sign_PUBLICKEYBYTES, 0);
    QByteArray secretKey_ = QByteArray(crypto_sign_SECRETKEYBYTES, 0);
};

inline const QByteArray feedPage = "<link>https://example.org/download</link>";

/// A feed with one item.
inline QByteArray feedWith(const QByteArray& version, const QByteArray& more = feedPage) {
    return "<rss version=\"2.0\" xmlns:vellumline=\"https://vellumline.kelthorne.com/xml/appcast\"><channel>"
           "<item><title>A calmer panel</title><description>- Faster\n- Quieter</description>"
           "<pubDate>Wed, 03 Mar 2027 09:30:00 +0000</pubDate>" +
           more +
           "<enclosure url=\"https://example.org/vellumline.deb\" length=\"10\" type=\"application/x-deb\" "
           "vellumline:signature=\"" +
           QByteArray(64, 's').toBase64() + "\" vellumline:version=\"" + version +
           "\"/></item></channel></rss>";
}

/// A real server on a loopback port that hands out the files of a folder.
class FileServer : public QTcpServer {
  public:
    explicit FileServer(const QDir& folder) : folder_(folder) {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        if (!listen(QHostAddress::LocalHost))
            qFatal("no port to listen on");
    }
    QString address(const char* file) const {
        return QStringLiteral("http://127.0.0.1:%1/%2").arg(serverPort()).arg(QLatin1String(file));
    }

  private:
    void answer(QTcpSocket* socket) {
        if (!socket->canReadLine() || !socket->peek(4096).contains("\r\n\r\n"))
            return;
        const QByteArray path = socket->readAll().split(' ').value(1);
        QFile file(folder_.filePath(QString::fromLatin1(path.mid(1))));
        const bool found = file.open(QIODevice::ReadOnly);
        const QByteArray body = found ? file.readAll() : QByteArray();
        socket->write((found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                      QByteArray("\r\nContent-Length: ") + QByteArray::number(body.size()) +
                      "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    }
    QDir folder_;
};

} // namespace vellumline
