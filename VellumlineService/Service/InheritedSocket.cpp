#include "VellumlineService/Service/InheritedSocket.h"

#include <QByteArray>
#include <fcntl.h>
#include <unistd.h>

namespace vellumline {

namespace {

constexpr int firstDescriptor = 3; // SD_LISTEN_FDS_START

} // namespace

InheritedSocket InheritedSocket::take() {
    InheritedSocket result;
    bool isNumber = false;
    // Inherited further by accident, the variables name another process.
    if (qgetenv("LISTEN_PID").toLongLong(&isNumber) == ::getpid() && isNumber)
        result.count = qMax(0, qgetenv("LISTEN_FDS").toInt());
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        qunsetenv(name);
    for (int i = 0; i < result.count; ++i)
        ::fcntl(firstDescriptor + i, F_SETFD, FD_CLOEXEC);
    if (result.count == 1)
        result.descriptor = firstDescriptor;
    return result;
}

} // namespace vellumline
