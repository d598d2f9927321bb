#include "Vellumline/Platform/X11/X11Workspace.h"
#include "desktop/X11TestClient.h"
#include "fakes/FakeWorkspace.h"

#include <QTest>
#include <unistd.h>

using namespace vellumline;
using namespace std::chrono_literals;

namespace {

QCoro::Task<void> keep(QCoro::Task<bool> asked, std::optional<bool>* answer) {
    *answer = co_await asked;
}

/// A desktop with other programs on it.
class Bench {
  public:
    virtual ~Bench() = default;
    virtual Workspace& workspace() = 0;
    virtual void bringToFront(qint64 processIdentifier) = 0;
    virtual void leaveNobodyInFront() = 0;
    /// That program's window is there, with another one in front of it.
    virtual void putBehind(qint64 processIdentifier, qint64 inFront) = 0;
    virtual QList<QUrl> openedURLs() = 0;
    virtual int beeps() = 0;
    /// The program in front works off what it was sent.
    virtual void takeInput() = 0;
};

class FakeBench final : public Bench {
  public:
    Workspace& workspace() override { return workspace_; }
    void bringToFront(qint64 processIdentifier) override {
        workspace_.front = Workspace::Application{processIdentifier};
        workspace_.takesInput.emplace();
    }
    void leaveNobodyInFront() override {
        workspace_.front.reset();
        if (workspace_.takesInput)
            workspace_.takesInput->set(false);
    }
    void putBehind(qint64 processIdentifier, qint64 inFront) override {
        workspace_.behind = {Workspace::Application{processIdentifier}};
        bringToFront(inFront);
    }
    QList<QUrl> openedURLs() override { return workspace_.openedURLs(); }
    int beeps() override { return workspace_.beeps(); }
    void takeInput() override { workspace_.takesInput->set(true); }

  private:
    FakeWorkspace workspace_;
};

class X11Bench final : public Bench {
  public:
    X11Bench()
        : connection_(X11Connection::open()),
          workspace_(*connection_, [this](const QString& program, const QStringList& arguments) {
              if (program == QLatin1String("xdg-open"))
                  opened_.append(QUrl(arguments.value(0)));
              return true;
          }) {
        constexpr std::uint16_t bell = XCB_XKB_EVENT_TYPE_BELL_NOTIFY;
        xcb_xkb_select_events(listener_.raw(), XCB_XKB_ID_USE_CORE_KBD, bell, 0, bell, 0, 0, nullptr);
        listener_.sync();
        bellEvent_ = xcb_get_extension_data(listener_.raw(), &xcb_xkb_id)->first_event;
    }
    Workspace& workspace() override { return workspace_; }
    void bringToFront(qint64 processIdentifier) override {
        program_ = std::make_unique<X11TestClient>();
        const xcb_window_t window = xcb_generate_id(program_->raw());
        xcb_create_window(program_->raw(), XCB_COPY_FROM_PARENT, window, program_->root(), 0, 0, 100, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        const auto pid = static_cast<std::uint32_t>(processIdentifier);
        xcb_change_property(program_->raw(), XCB_PROP_MODE_REPLACE, window, program_->atom("_NET_WM_PID"),
                            XCB_ATOM_CARDINAL, 32, 1, &pid);
        const xcb_atom_t ping = program_->atom("_NET_WM_PING");
        xcb_change_property(program_->raw(), XCB_PROP_MODE_REPLACE, window, program_->atom("WM_PROTOCOLS"),
                            XCB_ATOM_ATOM, 32, 1, &ping);
        xcb_map_window(program_->raw(), window);
        program_->sync();
        QTRY_COMPARE(workspace_.activeWindow(), window); // the window manager has made it the active one
    }
    void putBehind(qint64 processIdentifier, qint64 inFront) override {
        bringToFront(processIdentifier);
        behind_ = std::move(program_);
        bringToFront(inFront);
    }
    void leaveNobodyInFront() override {
        program_.reset();
        QTRY_COMPARE(workspace_.activeWindow(), xcb_window_t{XCB_WINDOW_NONE});
    }
    QList<QUrl> openedURLs() override { return opened_; }
    void takeInput() override {
        // EWMH, _NET_WM_PING: the question goes back as it came, to the root window.
        program_->sync();
        while (auto* event = xcb_poll_for_event(program_->raw())) {
            const XcbReply<xcb_generic_event_t> owned(event);
            if (eventType(*event) != XCB_CLIENT_MESSAGE)
                continue;
            auto answer = reinterpret_cast<const xcb_client_message_event_t&>(*event);
            answer.window = program_->root();
            xcb_send_event(program_->raw(), 0, program_->root(),
                           XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                           reinterpret_cast<const char*>(&answer));
        }
        program_->sync();
    }
    int beeps() override {
        const XcbReply<xcb_get_input_focus_reply_t> done(
            xcb_get_input_focus_reply(connection_->raw(), xcb_get_input_focus(connection_->raw()), nullptr));
        listener_.sync();
        while (auto* event = xcb_poll_for_event(listener_.raw())) {
            const XcbReply<xcb_generic_event_t> owned(event);
            if ((event->response_type & 0x7f) == bellEvent_ && event->pad0 == XCB_XKB_BELL_NOTIFY)
                ++beeps_;
        }
        return beeps_;
    }

  private:
    QList<QUrl> opened_;
    std::unique_ptr<X11Connection> connection_;
    X11Workspace workspace_;
    std::unique_ptr<X11TestClient> program_;
    std::unique_ptr<X11TestClient> behind_;
    X11TestClient listener_;
    int bellEvent_ = 0;
    int beeps_ = 0;
};

} // namespace

/// What every workspace does, the real one and the one of the tests.
class WorkspaceContract : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Bench> bench_;

  private Q_SLOTS:
    void initTestCase_data() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake") << false;
        QTest::newRow("X11") << true;
    }
    void init() {
        QFETCH_GLOBAL(bool, real);
        bench_.reset();
        if (real)
            bench_ = std::make_unique<X11Bench>();
        else
            bench_ = std::make_unique<FakeBench>();
    }
    void cleanup() { bench_.reset(); }

    void theProgramInFrontIsNamedByItsProcess() {
        bench_->bringToFront(getppid());
        QCOMPARE(bench_->workspace().frontmostApplication(), Workspace::Application{getppid()});
        bench_->bringToFront(getpid());
        QCOMPARE(bench_->workspace().frontmostApplication(), Workspace::Application{getpid()});
    }
    void nobodyInFrontIsNothing() {
        bench_->bringToFront(getpid());
        bench_->leaveNobodyInFront();
        QVERIFY(!bench_->workspace().frontmostApplication());
    }
    void aProgramBehindGetsTheInputBack() {
        bench_->putBehind(getppid(), getpid());
        bench_->workspace().activate({getppid()});
        QTRY_COMPARE(bench_->workspace().frontmostApplication(), Workspace::Application{getppid()});
    }
    void aProgramWithoutAWindowGetsNothing() {
        bench_->bringToFront(getpid());
        bench_->workspace().activate({1});
        QTest::qWait(100);
        QCOMPARE(bench_->workspace().frontmostApplication(), Workspace::Application{getpid()});
    }
    void aProgramHasTakenItsInputOnceItSaysSo() {
        bench_->bringToFront(getpid());
        std::optional<bool> taken;
        auto task =
            keep(bench_->workspace().hasTakenInput(*bench_->workspace().frontmostApplication(), 10s), &taken);
        QTest::qWait(100);
        QVERIFY(!taken);
        bench_->takeInput();
        QTRY_COMPARE(taken, true);
    }
    void linksAreOpenedAsTheyAre() {
        const QUrl url(QStringLiteral("https://example.com/login/?app_challenge=a%20b&x=1#part"));
        bench_->workspace().openURL(url);
        QTRY_COMPARE(bench_->openedURLs(), QList<QUrl>({url}));
    }
    void aProgramWhoseWindowGoesHasTakenNothing() {
        bench_->bringToFront(getpid());
        std::optional<bool> taken;
        auto task =
            keep(bench_->workspace().hasTakenInput(*bench_->workspace().frontmostApplication(), 10s), &taken);
        QTest::qWait(50);
        QVERIFY(!taken);
        bench_->leaveNobodyInFront();
        QTRY_COMPARE(taken, false);
    }
    void oneBeepIsOneBeep() {
        QCOMPARE(bench_->beeps(), 0);
        bench_->workspace().beep();
        QCOMPARE(bench_->beeps(), 1);
    }
};

QTEST_GUILESS_MAIN(WorkspaceContract)
#include "tst_workspacecontract.moc"
