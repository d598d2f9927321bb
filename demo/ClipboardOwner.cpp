// Owns the clipboard with an image and a text at once, as a drawing program would, until it is told to end.
// xclip and xsel can offer one target only.
//
//   vellumline-demo-clipboard TEXT

#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <cstdio>

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    if (application.arguments().size() != 2) {
        std::fputs("usage: vellumline-demo-clipboard TEXT\n", stderr);
        return 64;
    }

    // Noise does not compress: more than a megabyte as PNG, too large for one piece of an X11 transfer.
    QImage image(900, 600, QImage::Format_RGB32);
    quint32 noise = 2463534242U; // the xorshift generator of Marsaglia
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            noise ^= noise << 13;
            noise ^= noise >> 17;
            noise ^= noise << 5;
            image.setPixel(x, y, noise | 0xff000000U);
        }
    }
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG")) {
        std::fputs("cannot encode the image\n", stderr);
        return 1;
    }

    auto* data = new QMimeData; // the clipboard takes it
    data->setData(QStringLiteral("image/png"), png);
    data->setText(application.arguments().at(1));
    QGuiApplication::clipboard()->setMimeData(data);
    std::puts("ready");
    std::fflush(stdout);
    return QGuiApplication::exec();
}
