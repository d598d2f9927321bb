// Holds a copy of the user's clipboard while Vellumline lives, and gives it back when Vellumline dies without
// having done so. Started by Vellumline, which holds the other end of the socket; never by hand.

#include "Vellumline/Platform/Linux/GuardianMessages.h"
#include "Vellumline/Platform/X11/X11ClipboardFormats.h"
#include "Vellumline/Platform/X11/X11SelectionServer.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

using namespace vellumline;
using guardianMessages::Message;
using guardianMessages::socketDescriptor;

namespace {

using namespace std::chrono_literals;

/// The server takes a moment to notice that a client has died.
constexpr auto serverNoticesDeath = 200ms;

/// A sealed memory file, mapped.
class Held {
  public:
    Held() = default;
    explicit Held(int file) {
        struct stat status = {};
        if (fstat(file, &status) == 0 && status.st_size > 0) {
            void* mapped =
                mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
            if (mapped != MAP_FAILED) {
                data_ = mapped;
                size_ = status.st_size;
            }
        }
        close(file);
    }
    ~Held() {
        if (data_ != nullptr)
            munmap(data_, static_cast<std::size_t>(size_));
    }
    Held(Held&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    Held& operator=(Held&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        return *this;
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    QByteArray bytes() const { return QByteArray::fromRawData(static_cast<const char*>(data_), size_); }

  private:
    void* data_ = nullptr;
    qsizetype size_ = 0;
};

struct Received {
    bool isEnd = false;
    Message message = Message::forget;
    int file = -1;
};

Received receive() {
    char byte = 0;
    iovec part{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    msghdr header = {};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    ssize_t count = 0;
    do
        count = recvmsg(socketDescriptor, &header, MSG_CMSG_CLOEXEC);
    while (count < 0 && errno == EINTR);
    Received result;
    result.isEnd = count <= 0;
    result.message = static_cast<Message>(byte);
    const cmsghdr* attached = CMSG_FIRSTHDR(&header);
    if (attached != nullptr && attached->cmsg_type == SCM_RIGHTS)
        std::memcpy(&result.file, CMSG_DATA(attached), sizeof result.file);
    return result;
}

struct FreeReply {
    void operator()(void* memory) const { std::free(memory); }
};
template<class T> using Reply = std::unique_ptr<T, FreeReply>;

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

xcb_atom_t clipboardAtom(xcb_connection_t* connection) {
    constexpr std::array name{'C', 'L', 'I', 'P', 'B', 'O', 'A', 'R', 'D'};
    const Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, name.size(), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

xcb_window_t ownerOf(xcb_connection_t* connection, xcb_atom_t selection) {
    const Reply<xcb_get_selection_owner_reply_t> reply(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, selection), nullptr));
    return reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
}

/// Offers the items until somebody else takes the clipboard or the X server goes away.
void giveBack(const QList<PasteboardItem>& items, bool onlyIfNobodyHasIt) {
    const std::unique_ptr<xcb_connection_t, Disconnect> owned(xcb_connect(nullptr, nullptr));
    xcb_connection_t* connection = owned.get();
    if (xcb_connection_has_error(connection) != 0)
        return;
    const xcb_atom_t clipboard = clipboardAtom(connection);
    std::this_thread::sleep_for(serverNoticesDeath);
    if (onlyIfNobodyHasIt && ownerOf(connection, clipboard) != XCB_WINDOW_NONE)
        return;

    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const Reply<xcb_xfixes_query_version_reply_t> version(
        xcb_xfixes_query_version_reply(connection, xcb_xfixes_query_version(connection, 5, 0), nullptr));
    xcb_xfixes_select_selection_input(connection, root, clipboard,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
    xcb_flush(connection);

    const auto server = X11SelectionServer::start({}, {}, {});
    if (!server)
        return;
    std::promise<bool> done;
    server->take(clipboardFormats::servedTargets(items), 1,
                 [&done](X11SelectionServer::Taken taken) { done.set_value(taken.success); });
    if (!done.get_future().get())
        return;
    while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection)}) {
        if (ownerOf(connection, clipboard) != server->window())
            break;
    }
}

} // namespace

int main() {
    // Its own session: a Ctrl+C in the terminal that Vellumline was started from is not meant for it. What it
    // holds goes into no core file.
    setsid();
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    prctl(PR_SET_DUMPABLE, 0);

    Held held;
    bool borrowed = false;
    for (;;) {
        const Received received = receive();
        if (received.isEnd)
            break;
        switch (received.message) {
        case Message::hold: {
            held = received.file >= 0 ? Held(received.file) : Held();
            borrowed = true;
            const char answer = guardianMessages::taken;
            [[maybe_unused]] const auto sent = send(socketDescriptor, &answer, 1, MSG_NOSIGNAL);
            break;
        }
        case Message::borrow:
            borrowed = true;
            break;
        case Message::settle:
            borrowed = false;
            break;
        case Message::forget:
            held = Held();
            borrowed = false;
            break;
        }
    }
    const auto items = guardianMessages::decode(held.bytes());
    if (items && !items->isEmpty())
        giveBack(*items, !borrowed);
    return 0;
}
