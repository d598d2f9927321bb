// A window that reads the clipboard late, as a program does that is busy when the key comes.
//
//   vellumline-late-reader TEXT MILLISECONDS
//
// Ctrl+C puts the text on the clipboard. Ctrl+V reads the clipboard so many milliseconds later, and says
// "pasted " and what it read, in one line.

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QRasterWindow>
#include <QTimer>
#include <cstdio>

namespace {

class LateReader : public QRasterWindow {
  public:
    LateReader(QString text, int milliseconds) : text_(std::move(text)), milliseconds_(milliseconds) {}

  protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->matches(QKeySequence::Copy))
            QGuiApplication::clipboard()->setText(text_);
        else if (event->matches(QKeySequence::Paste))
            QTimer::singleShot(milliseconds_, this, [] {
                std::printf("pasted %s\n", qPrintable(QGuiApplication::clipboard()->text()));
                std::fflush(stdout);
            });
    }

  private:
    QString text_;
    int milliseconds_;
};

} // namespace

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    LateReader reader(arguments.value(1), arguments.value(2).toInt());
    reader.resize(300, 200);
    reader.show();
    return QGuiApplication::exec();
}
