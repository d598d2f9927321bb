#include "Vellumline/Platform/Linux/LocalService.h"

#include <QCoreApplication>
#include <QCoroCore>
#include <QCoroSignal>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTimer>
#include <csignal>
#include <sys/prctl.h>

namespace vellumline {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds connectTimeout = 500ms;
constexpr std::chrono::milliseconds startTimeout = 5s;
constexpr std::chrono::milliseconds stopTimeout = 3s;
constexpr std::chrono::milliseconds pollInterval = 20ms;
constexpr std::chrono::milliseconds restartDelay = 1s;

bool isLoopback(const QUrl& origin) {
    const QString host = origin.host();
    return host == QStringLiteral("localhost") || QHostAddress(host).isLoopback();
}

QCoro::Task<bool> answers(QString host, quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(host, port);
    QElapsedTimer elapsed;
    elapsed.start();
    // A refusal and a connection are both changes of the state, and either may have happened already.
    for (;;) {
        if (socket.state() == QAbstractSocket::ConnectedState)
            co_return true;
        const auto remaining = connectTimeout - std::chrono::milliseconds(elapsed.elapsed());
        if (socket.state() == QAbstractSocket::UnconnectedState || remaining <= 0ms)
            co_return false;
        co_await qCoro(&socket, &QTcpSocket::stateChanged, remaining);
    }
}

} // namespace

LocalService::LocalService(QUrl origin, QString executable, QObject* parent)
    : QObject(parent), origin_(std::move(origin)), executable_(std::move(executable)) {}

LocalService::~LocalService() {
    stopping_ = true;
    if (process_) {
        process_->disconnect(this);
        process_->terminate();
    }
}

QString LocalService::findExecutable() {
    const QString name = QStringLiteral("vellumline-service");
    const QString own = QCoreApplication::applicationDirPath();
    const QString beside =
        QStandardPaths::findExecutable(name, {own, own + QStringLiteral("/../VellumlineService"),
                                              own + QStringLiteral("/../libexec/vellumline")});
    return beside.isEmpty() ? QStandardPaths::findExecutable(name) : beside;
}

QCoro::Task<LocalService::Result> LocalService::ensureRunning() {
    if (!isLoopback(origin_))
        co_return Result::notLocal;
    const QString host = origin_.host();
    const auto port =
        static_cast<quint16>(origin_.port(origin_.scheme() == QStringLiteral("https") ? 443 : 80));

    const QPointer<LocalService> self(this);
    const bool running = co_await answers(host, port);
    if (!self)
        co_return Result::failed;
    if (running)
        co_return Result::alreadyRunning;

    if (executable_.isEmpty())
        executable_ = findExecutable();
    if (executable_.isEmpty() || stopping_)
        co_return Result::failed;

    process_ = std::make_unique<QProcess>();
    process_->setStandardInputFile(QProcess::nullDevice());
    process_->setStandardOutputFile(QProcess::nullDevice());
    process_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // A program that is killed cannot stop its child; the kernel does it then.
    process_->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    process_->start(executable_, {QStringLiteral("--port"), QString::number(port)});

    QElapsedTimer elapsed;
    elapsed.start();
    while (std::chrono::milliseconds(elapsed.elapsed()) < startTimeout) {
        const bool up = co_await answers(host, port);
        if (!self || process_->state() == QProcess::NotRunning)
            co_return Result::failed;
        if (up) {
            watchForUnexpectedEnd();
            co_return Result::started;
        }
        co_await QCoro::sleepFor(pollInterval);
        if (!self)
            co_return Result::failed;
    }
    co_return Result::failed;
}

void LocalService::watchForUnexpectedEnd() {
    connect(process_.get(), &QProcess::finished, this, [this] {
        if (stopping_ || restartsLeft_ == 0)
            return;
        --restartsLeft_;
        QTimer::singleShot(restartDelay, this, [this] {
            if (!stopping_)
                ensureRunning();
        });
    });
}

QCoro::Task<void> LocalService::stop() {
    stopping_ = true;
    if (!process_ || process_->state() == QProcess::NotRunning)
        co_return;
    const QPointer<LocalService> self(this);
    process_->terminate();
    co_await qCoro(process_.get(), &QProcess::finished, stopTimeout);
    if (self && process_->state() != QProcess::NotRunning)
        process_->kill();
}

std::optional<qint64> LocalService::processIdentifier() const {
    if (!process_ || process_->state() != QProcess::Running)
        return std::nullopt;
    return process_->processId();
}

} // namespace vellumline
