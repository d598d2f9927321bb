// One suite for the fake and for the adapter in front of a small Qt program; then the adapter alone in front
// of a program that means harm. Started with "--field KIND" or "--hostile KIND" this program is one of the
// two.

#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"
#include "Vellumline/Platform/SystemClock.h"
#include "fakes/FakeAccessibility.h"

#include <QApplication>
#include <QCoroTask>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QProcess>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <limits>

using namespace vellumline;
using namespace std::chrono_literals;
namespace Attribute = AccessibilityAttribute;

namespace {

const QString words = QStringLiteral("i has went");
const QString rootPath = QStringLiteral("/org/a11y/atspi/accessible/root");
const QString registryName = QStringLiteral("org.a11y.atspi.Registry");

int showField(const QString& kind) {
    int count = 1;
    char name[] = "field";
    char* arguments[] = {name, nullptr};
    QApplication application(count, arguments);
    QLineEdit line(words);
    if (kind == QStringLiteral("password"))
        line.setEchoMode(QLineEdit::Password);
    line.setReadOnly(kind == QStringLiteral("readonly"));
    line.show();
    line.setFocus();
    if (kind == QStringLiteral("caret"))
        line.deselect();
    else
        line.selectAll();
    return QApplication::exec();
}

/// (so)
struct WireReference {
    QString bus;
    QDBusObjectPath path;
};
QDBusArgument& operator<<(QDBusArgument& argument, const WireReference& reference) {
    argument.beginStructure();
    argument << reference.bus << reference.path;
    argument.endStructure();
    return argument;
}
const QDBusArgument& operator>>(const QDBusArgument& argument, WireReference& reference) {
    argument.beginStructure();
    argument >> reference.bus >> reference.path;
    argument.endStructure();
    return argument;
}

} // namespace
Q_DECLARE_METATYPE(WireReference)

namespace {

/// Answers every question of an assistive tool with what would break a trusting one.
class HostileProgram final : public QDBusVirtualObject {
  public:
    HostileProgram(QDBusConnection bus, QString kind) : bus_(std::move(bus)), kind_(std::move(kind)) {}
    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) override {
        const QString method = message.member();
        if (kind_ == QStringLiteral("silent"))
            return true;
        if (kind_ == QStringLiteral("wrong types")) {
            bus_.send(message.createReply(QVariantList{QStringLiteral("surprise"), 7, true}));
            return true;
        }
        QVariantList answer;
        if (method == QStringLiteral("GetChildren"))
            answer = {QVariant::fromValue(children(message.path()))};
        else if (method == QStringLiteral("GetState"))
            answer = {QVariant::fromValue(states(message.path()))};
        else if (method == QStringLiteral("GetRole"))
            answer = {61U};
        else if (method == QStringLiteral("GetInterfaces"))
            answer = {QStringList{QStringLiteral("org.a11y.atspi.Accessible")}};
        else if (method == QStringLiteral("Get"))
            answer = {QVariant::fromValue(QDBusVariant(
                message.arguments().value(1).toString() == QStringLiteral("ChildCount")
                    ? QVariant(kind_ == QStringLiteral("wide") ? std::numeric_limits<int>::max() : 2)
                    : QVariant(QStringLiteral("Evil"))))};
        else if (method == QStringLiteral("GetNSelections"))
            answer = {kind_ == QStringLiteral("countless selections") ? std::numeric_limits<int>::max()
                      : kind_ == QStringLiteral("negative selection") ? -5
                                                                      : 1};
        else if (method == QStringLiteral("GetSelection"))
            answer = kind_ == QStringLiteral("absurd selection")
                         ? QVariantList{-3, std::numeric_limits<int>::max()}
                         : QVariantList{0, 5};
        else if (method == QStringLiteral("GetText"))
            answer = {QString(kind_ == QStringLiteral("huge text") ? 20'000'000 : 5, QLatin1Char('x'))};
        else
            return false;
        bus_.send(message.createReply(answer));
        return true;
    }

  private:
    bool hasFocusedField() const {
        return kind_.endsWith(QStringLiteral("selection")) || kind_.endsWith(QStringLiteral("selections")) ||
               kind_.endsWith(QStringLiteral("text"));
    }
    QList<WireReference> children(const QString& path) const {
        const QString self = bus_.baseService();
        const auto at = [&self](const QString& node) { return WireReference{self, QDBusObjectPath(node)}; };
        if (path == rootPath)
            return {at(QStringLiteral("/org/a11y/atspi/accessible/frame"))};
        if (kind_ == QStringLiteral("cycle"))
            return {at(rootPath), at(path), at(QStringLiteral("/org/a11y/atspi/accessible/frame"))};
        if (kind_ == QStringLiteral("endless"))
            return {at(path + QStringLiteral("/a")), at(path + QStringLiteral("/b"))};
        if (kind_ == QStringLiteral("wide"))
            return QList<WireReference>(50'000, at(QStringLiteral("/org/a11y/atspi/accessible/child")));
        if (kind_ == QStringLiteral("strange names"))
            return {{QStringLiteral("not a name"), QDBusObjectPath(path)},
                    {QString(), QDBusObjectPath(path)},
                    {QStringLiteral("org.freedesktop.DBus"), QDBusObjectPath(path)}};
        return {};
    }
    QList<uint> states(const QString& path) const {
        // ACTIVE, SHOWING; and for the focused field FOCUSED, FOCUSABLE and EDITABLE
        uint bits = 1U << 1U | 1U << 25U;
        if (hasFocusedField() && path != rootPath)
            bits |= 1U << 12U | 1U << 11U | 1U << 7U;
        return {bits, 0};
    }

    QDBusConnection bus_;
    QString kind_;
};

QDBusConnection accessibilityBus() {
    const QDBusReply<QString> address = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
    return QDBusConnection::connectToBus(address.value(), QStringLiteral("hostile"));
}

int beHostile(int argc, char** argv, const QString& kind) {
    QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<WireReference>();
    qDBusRegisterMetaType<QList<WireReference>>();
    qDBusRegisterMetaType<QList<uint>>();
    QDBusConnection bus = accessibilityBus();
    HostileProgram program(bus, kind);
    bus.registerVirtualObject(QStringLiteral("/org/a11y/atspi"), &program, QDBusConnection::SubPath);
    QDBusMessage embed = QDBusMessage::createMethodCall(
        registryName, rootPath, QStringLiteral("org.a11y.atspi.Socket"), QStringLiteral("Embed"));
    embed << QVariant::fromValue(WireReference{bus.baseService(), QDBusObjectPath(rootPath)});
    bus.asyncCall(embed);
    return QCoreApplication::exec();
}

/// This program once more, in another role.
class Child {
  public:
    Child(const char* role, const QString& kind) {
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(role), kind});
        process_.waitForStarted();
    }
    ~Child() {
        process_.kill();
        process_.waitForFinished(5000);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    qint64 pid() const { return process_.processId(); }

  private:
    QProcess process_;
};

/// A program with one focused field, scripted or real.
class Subject {
  public:
    virtual ~Subject() = default;
    virtual Accessibility& port() = 0;
    virtual qint64 show(const QString& kind) = 0;
    virtual void hang() = 0;
};

class FakeSubject final : public Subject {
  public:
    Accessibility& port() override { return fake_; }
    qint64 show(const QString& kind) override {
        FakeElement& field = fake_.focus(pid, QStringLiteral("field"));
        const bool secure = kind == QStringLiteral("password");
        const bool writable = kind != QStringLiteral("readonly");
        field.set(Attribute::role, secure ? Attribute::secureTextField : QStringLiteral("AXTextField"));
        field.set(Attribute::selectedTextRange,
                  TextRange{0, kind == QStringLiteral("caret") ? 0 : words.size()});
        if (!secure && kind != QStringLiteral("caret"))
            field.set(Attribute::selectedText, words);
        field.setSettable(Attribute::selectedText, writable).setSettable(Attribute::value, writable);
        return pid;
    }
    void hang() override { fake_.delay = 60s; }

  private:
    static constexpr qint64 pid = 42;
    SystemClock clock_;
    FakeAccessibility fake_{nullptr, &clock_};
};

class RealSubject final : public Subject {
  public:
    RealSubject() {
        if (!QCoro::waitFor(port_.ready()))
            qFatal("no accessibility bus");
    }
    Accessibility& port() override { return port_; }
    qint64 show(const QString& kind) override {
        child_ = std::make_unique<Child>("--field", kind);
        return child_->pid();
    }
    void hang() override { kill(static_cast<pid_t>(child_->pid()), SIGSTOP); }

  private:
    AtSpiAccessibility port_{[] { return QStringList(); }};
    std::unique_ptr<Child> child_;
};

class ForeignNode final : public AccessibilityNode {};

} // namespace

class AccessibilityContractTest : public QObject {
    Q_OBJECT

  private:
    std::unique_ptr<Subject> subject_;

    void rows() {
        QTest::addColumn<bool>("real");
        QTest::newRow("the fake keeps its promise") << false;
        QTest::newRow("AT-SPI keeps its promise") << true;
    }
    void makeSubject() {
        QFETCH(bool, real);
        if (real)
            subject_ = std::make_unique<RealSubject>();
        else
            subject_ = std::make_unique<FakeSubject>();
    }
    using Value = AccessibilityResult<AccessibilityValue>;
    Value copy(const AccessibilityElement& element, const QString& attribute) {
        return QCoro::waitFor(subject_->port().copyAttribute(element, attribute));
    }
    AccessibilityResult<bool> settable(const AccessibilityElement& element, const QString& attribute) {
        return QCoro::waitFor(subject_->port().isAttributeSettable(element, attribute));
    }
    /// Waits until the program has started.
    AccessibilityElement focused(qint64 pid) {
        const AccessibilityElement root = subject_->port().applicationElement(pid);
        AccessibilityElement element;
        const auto isFocused = [&] {
            const Value value = copy(root, Attribute::focusedElement);
            if (value.isValue())
                element = std::get<AccessibilityElement>(value.value());
            return element != nullptr;
        };
        return QTest::qWaitFor(isFocused, 10000) ? element : nullptr;
    }
    template<class T> std::optional<T> get(const AccessibilityElement& element, const QString& attribute) {
        const Value value = copy(element, attribute);
        return value.isValue() && std::holds_alternative<T>(value.value())
                   ? std::optional(std::get<T>(value.value()))
                   : std::nullopt;
    }

  private Q_SLOTS:
    void cleanup() { subject_.reset(); }

    void aFieldTellsItsSelection_data() { rows(); }
    void aFieldTellsItsSelection() {
        makeSubject();
        const auto field = focused(subject_->show(QStringLiteral("line")));
        QVERIFY(field);
        QVERIFY(subject_->port().isProcessTrusted());
        QVERIFY(get<QString>(field, Attribute::role));
        QVERIFY(get<QString>(field, Attribute::role) != Attribute::secureTextField);
        const auto range = get<TextRange>(field, Attribute::selectedTextRange);
        QVERIFY(range);
        QCOMPARE(range->length, qint64(words.size()));
        QCOMPARE(get<QString>(field, Attribute::selectedText), std::optional(words));
        const auto answer = settable(field, Attribute::selectedText);
        QVERIFY(answer.isValue() && answer.value());
    }

    void aCaretIsARangeOfNoLength_data() { rows(); }
    void aCaretIsARangeOfNoLength() {
        makeSubject();
        const auto field = focused(subject_->show(QStringLiteral("caret")));
        QVERIFY(field);
        const auto range = get<TextRange>(field, Attribute::selectedTextRange);
        QVERIFY(range);
        QCOMPARE(range->length, qint64(0));
        QVERIFY(!get<QString>(field, Attribute::selectedText));
    }

    void aPasswordSaysSoAndKeepsItsText_data() { rows(); }
    void aPasswordSaysSoAndKeepsItsText() {
        makeSubject();
        const auto field = focused(subject_->show(QStringLiteral("password")));
        QVERIFY(field);
        QCOMPARE(get<QString>(field, Attribute::role), std::optional(Attribute::secureTextField));
        QVERIFY(!get<QString>(field, Attribute::selectedText));
    }

    void aReadOnlyFieldCannotBeSet_data() { rows(); }
    void aReadOnlyFieldCannotBeSet() {
        makeSubject();
        const auto field = focused(subject_->show(QStringLiteral("readonly")));
        QVERIFY(field);
        for (const QString& attribute : {Attribute::selectedText, Attribute::value}) {
            const auto answer = settable(field, attribute);
            QVERIFY(answer.isValue() && !answer.value());
        }
    }

    void nothingAndForeignNodesAreErrors_data() { rows(); }
    void nothingAndForeignNodesAreErrors() {
        makeSubject();
        for (const AccessibilityElement& element :
             {AccessibilityElement(), AccessibilityElement(std::make_shared<const ForeignNode>())}) {
            subject_->port().setMessagingTimeout(element, 250ms);
            QVERIFY(!copy(element, Attribute::role).isValue());
            QVERIFY(!copy(element, Attribute::focusedElement).isValue());
            QVERIFY(!settable(element, Attribute::value).isValue());
            QVERIFY(!QCoro::waitFor(
                subject_->port().setAttribute(element, Attribute::manualAccessibility, true)));
        }
    }

    void aProgramWithoutATreeAnswersWithErrors_data() { rows(); }
    void aProgramWithoutATreeAnswersWithErrors() {
        makeSubject();
        const auto root = subject_->port().applicationElement(1);
        QVERIFY(root);
        QVERIFY(!copy(root, Attribute::focusedElement).isValue());
        QVERIFY(!copy(root, QStringLiteral("AXNoSuchThing")).isValue());
    }

    void aHungProgramCostsItsTimeoutAndTheLoopGoesOn_data() { rows(); }
    void aHungProgramCostsItsTimeoutAndTheLoopGoesOn() {
        makeSubject();
        const qint64 pid = subject_->show(QStringLiteral("line"));
        const auto field = focused(pid);
        QVERIFY(field);
        subject_->port().setMessagingTimeout(subject_->port().applicationElement(pid), 200ms);
        subject_->port().setMessagingTimeout(field, 200ms);
        subject_->hang();
        int turns = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, this, [&turns] { ++turns; });
        ticker.start(10);
        QElapsedTimer timer;
        timer.start();
        const Value range = copy(field, Attribute::selectedTextRange);
        QVERIFY(!range.isValue());
        QCOMPARE(range.error(), AccessibilityError::cannotComplete);
        const auto answer = settable(field, Attribute::value);
        QVERIFY(!answer.isValue());
        QCOMPARE(answer.error(), AccessibilityError::cannotComplete);
        const auto root = subject_->port().applicationElement(pid);
        QVERIFY(!copy(root, Attribute::focusedElement).isValue());
        QVERIFY(turns > 10);
        QVERIFY2(timer.elapsed() < 3000, QByteArray::number(timer.elapsed()).constData());
    }

    void aHostileProgramIsBoundedAndRefused_data() {
        QTest::addColumn<bool>("hasField");
        QTest::addColumn<bool>("hasRange");
        QTest::newRow("silent") << false << false;
        QTest::newRow("wrong types") << false << false;
        QTest::newRow("cycle") << false << false;
        QTest::newRow("endless") << false << false;
        QTest::newRow("wide") << false << false;
        QTest::newRow("strange names") << false << false;
        QTest::newRow("absurd selection") << true << false;
        QTest::newRow("negative selection") << true << true; // as none
        QTest::newRow("countless selections") << true << true;
        QTest::newRow("huge text") << true << true;
    }
    void aHostileProgramIsBoundedAndRefused() {
        QFETCH(bool, hasField);
        QFETCH(bool, hasRange);
        subject_ = std::make_unique<RealSubject>();
        const QString kind = QString::fromLatin1(QTest::currentDataTag());
        const Child hostile("--hostile", kind);
        const auto root = subject_->port().applicationElement(hostile.pid());
        // Only a located program takes the switch, or times out over it.
        const auto isThere = [&] {
            const Value value = copy(root, Attribute::focusedElement);
            return value.isValue() || value.error() != AccessibilityError::failed;
        };
        QVERIFY(QTest::qWaitFor(isThere, 10000));
        QElapsedTimer timer;
        timer.start();
        const Value value = copy(root, Attribute::focusedElement);
        QVERIFY2(timer.elapsed() < 1000, QByteArray::number(timer.elapsed()).constData());
        QCOMPARE(value.isValue(), hasField);
        if (!hasField)
            return;
        const auto field = std::get<AccessibilityElement>(value.value());
        const auto range = get<TextRange>(field, Attribute::selectedTextRange);
        QCOMPARE(range.has_value(), hasRange);
        QVERIFY(!range || range->length >= 0);
        QVERIFY(!get<QString>(field, Attribute::selectedText));
        QVERIFY2(timer.elapsed() < 3000, QByteArray::number(timer.elapsed()).constData());
    }

    void windowClassesOfTerminalsAreKnown() {
        QVERIFY(AtSpiAccessibility::isTerminalClass({QStringLiteral("xterm"), QStringLiteral("XTerm")}));
        QVERIFY(AtSpiAccessibility::isTerminalClass({QStringLiteral("x"), QStringLiteral("UXTerm")}));
        QVERIFY(AtSpiAccessibility::isTerminalClass({QStringLiteral("Alacritty"), QString()}));
        QVERIFY(!AtSpiAccessibility::isTerminalClass({QStringLiteral("mousepad"), QString()}));
        QVERIFY(!AtSpiAccessibility::isTerminalClass({}));
    }
};

int main(int argc, char** argv) {
    if (argc == 3 && QByteArray(argv[1]) == "--field")
        return showField(QString::fromLatin1(argv[2]));
    if (argc == 3 && QByteArray(argv[1]) == "--hostile")
        return beHostile(argc, argv, QString::fromLatin1(argv[2]));
    QCoreApplication application(argc, argv);
    AccessibilityContractTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_accessibility_contract.moc"
