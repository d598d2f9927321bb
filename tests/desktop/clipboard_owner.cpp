// Owns the clipboard with whatever targets and bytes a test has put into a folder.
//
//   vellumline-clipboard-owner
//
// It reads commands from its standard input, one a line, and says "ready" after each. "own FOLDER" offers
// what is in that folder: a file "targets" with a name in each line, and the bytes of each in files 0, 1, and
// so on. "clear" leaves the clipboard without an owner. "insist FOLDER" offers it, and takes the clipboard
// back each time that another program takes it. "watch FILE" reads each text that comes onto the clipboard at
// once, as a clipboard manager does, and adds it to that file as a line.

#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QSocketNotifier>
#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void own(const QString& folder) {
    auto* data = new QMimeData; // the clipboard takes it
    int number = 0;
    for (const QByteArray& target : contents(folder + QStringLiteral("/targets")).split('\n')) {
        if (!target.isEmpty())
            data->setData(QString::fromUtf8(target), contents(folder + QStringLiteral("/%1").arg(number++)));
    }
    QGuiApplication::clipboard()->setMimeData(data);
}

void insist(const QString& folder) {
    own(folder);
    QObject::connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, [folder] {
        if (!QGuiApplication::clipboard()->ownsClipboard())
            own(folder);
    });
}

void watch(const QString& path) {
    QObject::connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, [path] {
        QFile file(path);
        if (file.open(QIODevice::Append))
            file.write(QGuiApplication::clipboard()->text().toUtf8() + '\n');
    });
}

void obey(const std::string& command) {
    if (command == "clear")
        QGuiApplication::clipboard()->clear();
    else if (command.rfind("own ", 0) == 0)
        own(QString::fromStdString(command.substr(4)));
    else if (command.rfind("insist ", 0) == 0)
        insist(QString::fromStdString(command.substr(7)));
    else if (command.rfind("watch ", 0) == 0)
        watch(QString::fromStdString(command.substr(6)));
    std::puts("ready");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    QGuiApplication application(argc, argv);
    QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
    // Each command waits for its answer, so that there is never more than one line to read.
    QObject::connect(&notifier, &QSocketNotifier::activated, &application, [] {
        std::string command;
        if (std::getline(std::cin, command))
            obey(command);
        else
            QGuiApplication::quit();
    });
    return QGuiApplication::exec();
}
