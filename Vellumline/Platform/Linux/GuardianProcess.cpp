#include "Vellumline/Platform/Linux/GuardianProcess.h"

#include "Vellumline/AsyncResult.h"

#include <QCoreApplication>
#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTimer>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vellumline {

using guardianMessages::Message;

namespace {

/// A memory file with these items, or -1.
int memoryFile(const QList<PasteboardItem>& items) {
    const int file = memfd_create("vellumline-clipboard", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0)
        return -1;
    // Straight into the file: the correction waits for this, and what was copied may be a hundred megabytes.
    QFile writer;
    const bool written =
        writer.open(file, QIODevice::WriteOnly) && guardianMessages::encode(items, writer) && writer.flush();
    writer.close();
    if (!written) {
        close(file);
        return -1;
    }
    fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    return file;
}

} // namespace

struct GuardianProcess::Answer {
    AsyncResult<bool> result;
};

QString GuardianProcess::find() {
    const QString own = QCoreApplication::applicationDirPath();
    return QStandardPaths::findExecutable(QStringLiteral("vellumline-guardian"),
                                          {own, own + QStringLiteral("/../libexec/vellumline")});
}

GuardianProcess::GuardianProcess(QString program, QObject* parent)
    : QObject(parent), program_(std::move(program)) {}

GuardianProcess::~GuardianProcess() {
    lose();
}

bool GuardianProcess::start() {
    std::array<int, 2> ends{-1, -1};
    // Sequenced packets: a message is read whole, and the end of the program is seen as the end of input.
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Takes the close-on-exec flag off, also where the number is the same already (glibc 2.29).
    posix_spawn_file_actions_adddup2(&actions, ends[1], guardianMessages::socketDescriptor);
    // It outlives this process: whoever reads what this one says would wait for the guardian's end too.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    const QByteArray path = program_.toLocal8Bit();
    std::array<char*, 2> arguments{const_cast<char*>(path.constData()), nullptr};
    pid_t process = 0;
    const int failure = posix_spawn(&process, path.constData(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0) {
        close(ends[0]);
        return false;
    }
    processIdentifier_ = process;
    socket_ = ends[0];
    fcntl(socket_, F_SETFL, O_NONBLOCK);
    notifier_ = new QSocketNotifier(socket_, QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &GuardianProcess::answered);
    return true;
}

QCoro::Task<void> GuardianProcess::hold(QList<PasteboardItem> items) {
    if (!isRunning())
        co_return;
    const int file = memoryFile(items);
    if (file < 0)
        co_return;
    const AsyncResult<bool> answer;
    answer_ = std::make_unique<Answer>(Answer{answer});
    send(Message::hold, file);
    close(file);
    QTimer::singleShot(answerTimeoutMs, this, [waiting = answer]() mutable { waiting.set(false); });
    const bool taken = co_await answer;
    Q_UNUSED(taken) // without a guardian the correction goes on all the same
}

void GuardianProcess::borrow() {
    send(Message::borrow);
}

void GuardianProcess::settle() {
    send(Message::settle);
}

void GuardianProcess::forget() {
    send(Message::forget);
}

void GuardianProcess::send(Message message, int descriptor) {
    if (!isRunning())
        return;
    char byte = static_cast<char>(message);
    iovec part{&byte, 1};
    msghdr header = {};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    if (descriptor >= 0) {
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        cmsghdr* attached = CMSG_FIRSTHDR(&header);
        attached->cmsg_level = SOL_SOCKET;
        attached->cmsg_type = SCM_RIGHTS;
        attached->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(attached), &descriptor, sizeof descriptor);
    }
    // A guardian that hangs leaves its queue full; one that has ended is an error. Neither may hold us up.
    if (sendmsg(socket_, &header, MSG_NOSIGNAL) < 0 && errno != EINTR)
        lose();
}

void GuardianProcess::answered() {
    char byte = 0;
    const auto count = recv(socket_, &byte, 1, 0);
    if (count == 1 && byte == guardianMessages::taken) {
        if (const auto answer = std::exchange(answer_, nullptr))
            answer->result.set(true);
    } else if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
        lose();
    }
}

void GuardianProcess::lose() {
    if (!isRunning())
        return;
    delete notifier_;
    notifier_ = nullptr;
    close(socket_);
    socket_ = -1;
    // One that has ended is reaped here; one that now holds the clipboard is not waited for.
    waitpid(static_cast<pid_t>(processIdentifier_), nullptr, WNOHANG);
    if (const auto answer = std::exchange(answer_, nullptr))
        answer->result.set(false);
}

} // namespace vellumline
