#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QTest>
#include <csignal>
#include <memory>
#include <unistd.h>

namespace vellumline::test {

/// Runs a command to its end; its standard output.
inline QString commandOutput(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished();
    }
    return QString::fromUtf8(process.readAllStandardOutput());
}

inline void pressKeys(const QStringList& keys) {
    commandOutput(QStringLiteral("xdotool"),
                  QStringList{QStringLiteral("key"), QStringLiteral("--clearmodifiers")} + keys);
}

/// A desktop program with a window, in a process group of its own that ends with this object.
class DesktopProgram {
  public:
    DesktopProgram(const QString& program, const QStringList& arguments) : before_(windows()) {
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.setStandardOutputFile(QProcess::nullDevice());
        process_.setChildProcessModifier([] { setpgid(0, 0); });
        process_.start(program, arguments);
    }
    ~DesktopProgram() {
        if (process_.state() == QProcess::NotRunning)
            return;
        const auto group = static_cast<pid_t>(process_.processId());
        kill(-group, SIGKILL); // the helpers that it started are of its group
        process_.waitForFinished(5000);
    }
    DesktopProgram(const DesktopProgram&) = delete;
    DesktopProgram& operator=(const DesktopProgram&) = delete;

    /// Waits for a new window whose title holds `title`, and gives it the keyboard.
    bool waitForWindow(const QString& title, int milliseconds = 40000) {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < milliseconds) {
            for (const auto& line : windows()) {
                if (before_.contains(line) || !line.contains(title))
                    continue;
                window_ = line.section(QLatin1Char(' '), 0, 0);
                return activate();
            }
            QTest::qWait(100);
        }
        return false;
    }
    bool activate() const {
        for (int i = 0; i < 20; ++i) {
            commandOutput(QStringLiteral("wmctrl"), {QStringLiteral("-i"), QStringLiteral("-a"), window_});
            QTest::qWait(100);
            bool isNumber = false;
            const auto active = commandOutput(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")})
                                    .toULongLong(&isNumber);
            if (isNumber && active == window_.toULongLong(nullptr, 16))
                return true;
        }
        return false;
    }
    static QStringList windows() {
        return commandOutput(QStringLiteral("wmctrl"), {QStringLiteral("-l")})
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

  private:
    QStringList before_;
    QProcess process_;
    QString window_;
};

inline bool isInstalled(const QString& program) {
    return !QStandardPaths::findExecutable(program).isEmpty();
}

} // namespace vellumline::test
