#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"

#include <QApplication>
#include <QCoreApplication>
#include <QCoroDBusPendingCall>
#include <QCoroSignal>
#include <QCoroTimer>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QSet>
#include <QTextCursor>
#include <QTextEdit>
#include <QThreadPool>
#include <QTimer>

namespace vellumline {

namespace {

using namespace std::chrono_literals;
using atspi::Reference;
using atspi::State;
using Result = AccessibilityResult<AccessibilityValue>;

constexpr std::chrono::milliseconds defaultTimeout = 250ms;
constexpr std::chrono::milliseconds busTimeout = 2s;
// A tree that is built on demand: Chromium's focused field was there 75 ms after its tree was switched on.
constexpr std::chrono::milliseconds treeRetry = 15ms;
constexpr int mostChildren = 2000;
constexpr int mostInterfaces = 64;
constexpr int mostApplications = 512;
constexpr int mostNodes = 6000;
constexpr int nodesAtATime = 64;
constexpr int longestName = 256;
constexpr int mostSelections = 16;
// What is longer is left to the clipboard; 4000 characters are corrected, each of a few code points.
constexpr int longestText = 64 * 1024;

const QString accessibleInterface = QStringLiteral("org.a11y.atspi.Accessible");
const QString textInterface = QStringLiteral("org.a11y.atspi.Text");
const QString collectionInterface = QStringLiteral("org.a11y.atspi.Collection");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString rootPath = QStringLiteral("/org/a11y/atspi/accessible/root");
const Reference desktop{QStringLiteral("org.a11y.atspi.Registry"), rootPath};

Result failure(AccessibilityError error) {
    return {error};
}

Result success(AccessibilityValue value) {
    return {std::move(value)};
}

AccessibilityError errorOf(const QDBusMessage& answer) {
    const QString name = answer.errorName();
    static const QSet<QString> silent = {QStringLiteral("org.freedesktop.DBus.Error.NoReply"),
                                         QStringLiteral("org.freedesktop.DBus.Error.Timeout"),
                                         QStringLiteral("org.freedesktop.DBus.Error.TimedOut"),
                                         QStringLiteral("org.freedesktop.DBus.Error.Disconnected")};
    static const QSet<QString> missing = {QStringLiteral("org.freedesktop.DBus.Error.UnknownInterface"),
                                          QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"),
                                          QStringLiteral("org.freedesktop.DBus.Error.UnknownProperty")};
    if (silent.contains(name))
        return AccessibilityError::cannotComplete;
    return missing.contains(name) ? AccessibilityError::noValue : AccessibilityError::failed;
}

/// Firefox's read-only field is not EDITABLE and not READ_ONLY, that of Qt is both.
bool isEditable(const atspi::StateSet& states) {
    return states.contains(State::editable) && !states.contains(State::readOnly);
}

/// Calls that are under way would never end when their connection is closed; by then their time-outs have
/// ended them.
void closeLater(const QString& connectionName) {
    if (QCoreApplication::instance() != nullptr)
        QTimer::singleShot(busTimeout + 500ms, QCoreApplication::instance(),
                           [connectionName] { QDBusConnection::disconnectFromBus(connectionName); });
}

/// A field of one of our own windows, answered without the bus: a call to ourselves would wait for ourselves.
struct OwnField {
    bool secure = false;
    bool editable = false;
    qint64 start = 0;
    qint64 length = 0;
    QString text;
};

template<class Editor> OwnField ownTextField(const Editor* editor) {
    const QTextCursor cursor = editor->textCursor();
    QString text = cursor.selectedText();
    text.replace(QChar::ParagraphSeparator, QLatin1Char('\n'))
        .replace(QChar::LineSeparator, QLatin1Char('\n'));
    return {false, !editor->isReadOnly(), cursor.selectionStart(),
            cursor.selectionEnd() - cursor.selectionStart(), text};
}

std::optional<OwnField> ownField(const QWidget* widget) {
    if (const auto* line = qobject_cast<const QLineEdit*>(widget))
        return OwnField{line->echoMode() != QLineEdit::Normal, !line->isReadOnly(), line->selectionStart(),
                        line->selectedText().size(),
                        line->echoMode() == QLineEdit::Normal ? line->selectedText() : QString()};
    if (const auto* plain = qobject_cast<const QPlainTextEdit*>(widget))
        return ownTextField(plain);
    if (const auto* rich = qobject_cast<const QTextEdit*>(widget))
        return ownTextField(rich);
    return std::nullopt;
}

} // namespace

struct AtSpiAccessibility::Application final : AccessibilityNode {
    qint64 processIdentifier = 0;
    std::chrono::milliseconds timeout = defaultTimeout;
    QDeadlineTimer deadline;  ///< of the port's call that is being answered
    Reference root;           ///< null until located
    bool treeIsYoung = false; ///< its tree was just asked for and may still be growing

    void beginCall() { deadline = QDeadlineTimer(timeout); }
    /// At least 1 ms: a bus call without a time-out would wait for ever.
    std::chrono::milliseconds remaining() const {
        return std::max<std::chrono::milliseconds>(1ms, std::chrono::milliseconds(deadline.remainingTime()));
    }
};

struct AtSpiAccessibility::Node final : AccessibilityNode {
    enum class Kind { remote, ownWidget, terminalByClass };
    Kind kind = Kind::remote;
    Reference reference;
    uint role = 0;
    std::shared_ptr<Application> application;
    QPointer<QWidget> widget;

    bool isSameAs(const AccessibilityNode& other) const override {
        const auto* node = dynamic_cast<const Node*>(&other);
        return node != nullptr && node->kind == kind && node->reference == reference &&
               node->widget == widget && node->application == application;
    }
};

struct AtSpiAccessibility::Search {
    struct Found {
        Reference reference;
        uint role = 0;
        bool editable = false;

        int rank() const {
            if (role == static_cast<uint>(atspi::Role::passwordText))
                return 3;
            if (role == static_cast<uint>(atspi::Role::terminal))
                return 2;
            return editable ? 1 : 0;
        }
    };
    std::shared_ptr<Application> application;
    int visited = 0;
    bool timedOut = false;
    bool pruneHidden = true;
    QList<Found> found;

    bool isOver() const { return application->deadline.hasExpired() || visited >= mostNodes; }
    std::chrono::milliseconds remaining() const { return application->remaining(); }
    /// Several nodes say that they are focused (Qt: the field and its ancestors; Chromium: address bar and
    /// page). A password field among them decides, then a terminal, then one that can be edited.
    const Found* best() const {
        const Found* chosen = nullptr;
        for (const Found& each : found) {
            if (chosen == nullptr || each.rank() > chosen->rank())
                chosen = &each;
        }
        return chosen;
    }
    /// Nothing that the rest of a growing tree holds could change the choice.
    bool isDecided() const {
        const Found* chosen = best();
        return chosen != nullptr && chosen->rank() > 0;
    }
};

AtSpiAccessibility::AtSpiAccessibility(std::function<QStringList()> activeWindowClass,
                                       QDBusConnection sessionBus, QObject* parent)
    : QObject(parent), activeWindowClass_(std::move(activeWindowClass)), sessionBus_(std::move(sessionBus)) {
    qDBusRegisterMetaType<atspi::MatchRule>();
    qDBusRegisterMetaType<QList<int>>();
    connectToBus();
}

AtSpiAccessibility::~AtSpiAccessibility() {
    if (bus_)
        closeLater(bus_->name());
}

QCoro::Task<bool> AtSpiAccessibility::ready() {
    if (connecting_)
        co_await qCoro(this, &AtSpiAccessibility::trustChanged, busTimeout);
    co_return bus_.has_value();
}

QCoro::Task<void> AtSpiAccessibility::connectToBus() {
    connecting_ = true;
    static int connections = 0;
    const QString connectionName = QStringLiteral("vellumline-accessibility-%1").arg(++connections);
    const QPointer<AtSpiAccessibility> self(this);
    // Qt and Firefox show their trees only when assistive technology is announced.
    requestTrust();

    QDBusMessage question =
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress"));
    const QDBusPendingCall pending = sessionBus_.asyncCall(question, static_cast<int>(busTimeout.count()));
    const QDBusMessage answer = co_await pending;
    if (!self)
        co_return;
    const auto address = atspi::text(answer);
    if (!address || address->isEmpty()) {
        connecting_ = false;
        Q_EMIT trustChanged();
        co_return;
    }
    // Connecting waits for the other end, so it happens elsewhere; a daemon that never answers costs that
    // thread only.
    QThreadPool::globalInstance()->start([self, bus = *address, name = connectionName] {
        const QDBusConnection made = QDBusConnection::connectToBus(bus, name);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, made, name] {
                if (!self) {
                    QDBusConnection::disconnectFromBus(name);
                    return;
                }
                self->connecting_ = false;
                if (made.isConnected()) {
                    self->bus_ = made;
                    self->bus_->connect(QString(), QString(), QStringLiteral("org.a11y.atspi.Event.Object"),
                                        QStringLiteral("StateChanged"), {QStringLiteral("focused")},
                                        QString(), self.data(), SLOT(focusEvent(QDBusMessage)));
                    self->bus_->connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                                        QStringLiteral("org.freedesktop.DBus.Local"),
                                        QStringLiteral("Disconnected"), self.data(), SLOT(busLost()));
                    // Programs send focus changes only when somebody has said that they are wanted.
                    self->start({desktop.bus, QStringLiteral("/org/a11y/atspi/registry")},
                                QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("RegisterEvent"),
                                {QStringLiteral("object:state-changed:focused"), QStringList(), QString()},
                                busTimeout);
                }
                Q_EMIT self->trustChanged();
            },
            Qt::QueuedConnection);
    });
}

/// The accessibility bus ended; its launcher starts another one when it is asked for the address.
void AtSpiAccessibility::busLost() {
    if (!bus_)
        return;
    closeLater(bus_->name());
    bus_.reset();
    processes_.clear();
    toolkits_.clear();
    lastFocus_ = {};
    Q_EMIT trustChanged();
    if (!connecting_)
        connectToBus();
}

bool AtSpiAccessibility::isProcessTrusted() const {
    return bus_ && bus_->isConnected();
}

void AtSpiAccessibility::requestTrust() {
    QDBusMessage enable =
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       propertiesInterface, QStringLiteral("Set"));
    enable << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled")
           << QVariant::fromValue(QDBusVariant(true));
    sessionBus_.asyncCall(enable);
    if (!bus_ && !connecting_)
        connectToBus();
}

AccessibilityElement AtSpiAccessibility::applicationElement(qint64 processIdentifier) {
    if (auto known = applications_.value(processIdentifier).lock())
        return known;
    auto made = std::make_shared<Application>();
    made->processIdentifier = processIdentifier;
    applications_.removeIf([](const auto& each) { return each.value().expired(); });
    applications_.insert(processIdentifier, made);
    return made;
}

void AtSpiAccessibility::setMessagingTimeout(const AccessibilityElement& element,
                                             std::chrono::milliseconds timeout) {
    if (const auto application = std::dynamic_pointer_cast<const Application>(element))
        std::const_pointer_cast<Application>(application)->timeout = timeout;
    else if (const auto node = std::dynamic_pointer_cast<const Node>(element); node && node->application)
        node->application->timeout = timeout;
}

QDBusPendingCall AtSpiAccessibility::start(const Reference& target, const QString& interface,
                                           const QString& method, const QVariantList& arguments,
                                           std::chrono::milliseconds timeout) const {
    if (!bus_)
        return QDBusPendingCall::fromError(QDBusError(QDBusError::Disconnected, QString()));
    QDBusMessage message = QDBusMessage::createMethodCall(target.bus, target.path, interface, method);
    message.setAutoStartService(false);
    message.setArguments(arguments);
    return bus_->asyncCall(message, static_cast<int>(std::max<std::int64_t>(1, timeout.count())));
}

QDBusPendingCall AtSpiAccessibility::getProperty(const Reference& target, const QString& interface,
                                                 const QString& name,
                                                 std::chrono::milliseconds timeout) const {
    return start(target, propertiesInterface, QStringLiteral("Get"), {interface, name}, timeout);
}

QCoro::Task<QDBusMessage> AtSpiAccessibility::call(Reference target, QString interface, QString method,
                                                   QVariantList arguments,
                                                   std::chrono::milliseconds timeout) {
    const QDBusPendingCall pending = start(target, interface, method, arguments, timeout);
    const QDBusMessage answer = co_await pending;
    co_return answer;
}

void AtSpiAccessibility::focusEvent(const QDBusMessage& message) {
    // (s state, i on, i 0, v any, …); the sender is the program itself.
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || arguments.at(1).metaType() != QMetaType::fromType<int>() ||
        arguments.at(1).toInt() != 1)
        return;
    lastFocus_ = {message.service(), message.path()};
}

/// Finds the program's root by its process. False when it has no tree.
QCoro::Task<bool> AtSpiAccessibility::locate(std::shared_ptr<Application> application) {
    const QPointer<AtSpiAccessibility> self(this);
    const auto listed = co_await call(desktop, accessibleInterface, QStringLiteral("GetChildren"), {},
                                      application->remaining());
    const auto roots = atspi::references(listed, mostApplications);
    if (!self || !roots)
        co_return false;
    QList<std::pair<QString, QDBusPendingCall>> questions;
    for (const Reference& root : *roots) {
        if (!root.isNull() && !processes_.contains(root.bus))
            questions.append(
                {root.bus,
                 start({QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus")},
                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetConnectionUnixProcessID"),
                       {root.bus}, application->remaining())});
    }
    for (const auto& [name, pending] : questions) {
        const QDBusMessage answer = co_await pending;
        if (!self)
            co_return false;
        if (const auto process = atspi::unsignedNumber(answer))
            processes_.insert(name, *process);
    }
    // What has left the desktop does not come back under its old name.
    const auto isGone = [&roots](const QString& name) {
        return std::none_of(roots->cbegin(), roots->cend(),
                            [&name](const Reference& root) { return root.bus == name; });
    };
    processes_.removeIf([&isGone](const auto& each) { return isGone(each.key()); });
    toolkits_.removeIf([&isGone](const auto& each) { return isGone(each.key()); });
    for (const Reference& root : *roots) {
        if (processes_.value(root.bus) != application->processIdentifier)
            continue;
        application->root = root;
        co_return true;
    }
    co_return false;
}

/// "gtk", "GTK" (version 4), "Qt", "Chromium" …; empty when the program does not say.
QCoro::Task<QString> AtSpiAccessibility::toolkitName(std::shared_ptr<Application> application) {
    const Reference root = application->root;
    const auto known = toolkits_.constFind(root.bus);
    if (known != toolkits_.constEnd())
        co_return *known;
    const QPointer<AtSpiAccessibility> self(this);
    const QDBusPendingCall pending = getProperty(root, QStringLiteral("org.a11y.atspi.Application"),
                                                 QStringLiteral("ToolkitName"), application->remaining());
    const QDBusMessage answer = co_await pending;
    const auto name = atspi::textProperty(answer);
    if (self && name)
        toolkits_.insert(root.bus, name->left(longestName));
    co_return name.value_or(QString());
}

QCoro::Task<bool> AtSpiAccessibility::setAttribute(AccessibilityElement element, QString attribute,
                                                   bool value) {
    const auto constant = std::dynamic_pointer_cast<const Application>(element);
    if (!constant || !bus_ || attribute != AccessibilityAttribute::manualAccessibility || !value)
        co_return false;
    if (constant->processIdentifier == QCoreApplication::applicationPid())
        co_return true;
    const auto application = std::const_pointer_cast<Application>(constant);
    application->beginCall();
    const QPointer<AtSpiAccessibility> self(this);
    const bool located = co_await locate(application);
    if (!self || !located)
        co_return false;
    // Chromium builds its tree when the attributes of a frame are asked for, and by no other sign.
    const QList<Reference> frames = co_await activeFrames(application);
    if (!self)
        co_return false;
    application->treeIsYoung = true;
    for (const Reference& frame : frames.mid(0, 4)) {
        co_await call(frame, accessibleInterface, QStringLiteral("GetAttributes"), {},
                      application->remaining());
        if (!self)
            co_return false;
    }
    co_return !frames.isEmpty();
}

/// The program's frames, active ones alone when there are any.
QCoro::Task<QList<Reference>> AtSpiAccessibility::activeFrames(std::shared_ptr<Application> application) {
    const auto listed = co_await call(application->root, accessibleInterface, QStringLiteral("GetChildren"),
                                      {}, application->remaining());
    const auto frames = atspi::references(listed, mostChildren);
    if (!frames)
        co_return QList<Reference>();
    QList<std::pair<Reference, QDBusPendingCall>> questions;
    for (const Reference& frame : frames->mid(0, nodesAtATime)) {
        if (!frame.isNull())
            questions.append({frame, start(frame, accessibleInterface, QStringLiteral("GetState"), {},
                                           application->remaining())});
    }
    QList<Reference> active;
    QList<Reference> all;
    for (const auto& [frame, pending] : questions) {
        const QDBusMessage answer = co_await pending;
        const auto states = atspi::states(answer);
        all.append(frame);
        if (states && states->contains(State::active))
            active.append(frame);
    }
    co_return active.isEmpty() ? all : active;
}

QCoro::Task<Result> AtSpiAccessibility::copyAttribute(AccessibilityElement element, QString attribute) {
    namespace Attribute = AccessibilityAttribute;
    if (const auto application = std::dynamic_pointer_cast<const Application>(element)) {
        if (attribute != Attribute::focusedElement)
            co_return failure(AccessibilityError::noValue);
        const auto root = std::const_pointer_cast<Application>(application);
        root->beginCall();
        co_return co_await focusedElement(root);
    }
    const auto node = std::dynamic_pointer_cast<const Node>(element);
    if (!node)
        co_return failure(AccessibilityError::failed);

    if (node->kind == Node::Kind::terminalByClass) {
        if (attribute == Attribute::role)
            co_return success(QStringLiteral("AXTerminal"));
        if (attribute == Attribute::selectedTextRange)
            co_return success(TextRange{0, 1});
        co_return failure(AccessibilityError::noValue);
    }
    if (node->kind == Node::Kind::ownWidget) {
        const auto field = ownField(node->widget);
        if (!field)
            co_return failure(AccessibilityError::noValue);
        if (attribute == Attribute::role)
            co_return success(field->secure ? Attribute::secureTextField : QStringLiteral("AXTextField"));
        if (attribute == Attribute::selectedTextRange)
            co_return success(TextRange{std::max<qint64>(0, field->start), field->length});
        if (attribute == Attribute::selectedText && !field->secure)
            co_return success(field->text);
        co_return failure(AccessibilityError::noValue);
    }

    node->application->beginCall();
    if (attribute == Attribute::role) {
        const QString name = node->role == static_cast<uint>(atspi::Role::passwordText)
                                 ? Attribute::secureTextField
                             : node->role == static_cast<uint>(atspi::Role::terminal)
                                 ? QStringLiteral("AXTerminal")
                                 : QStringLiteral("AXRole%1").arg(node->role);
        co_return success(name);
    }
    if (attribute == Attribute::selectedTextRange)
        co_return co_await selectedRange(node);
    if (attribute == Attribute::selectedText)
        co_return co_await selectedText(node);
    co_return failure(AccessibilityError::noValue);
}

QCoro::Task<Result> AtSpiAccessibility::focusedElement(std::shared_ptr<Application> application) {
    if (application->processIdentifier == QCoreApplication::applicationPid()) {
        QWidget* widget = qApp != nullptr ? QApplication::focusWidget() : nullptr;
        if (!ownField(widget))
            co_return failure(AccessibilityError::noValue);
        auto node = std::make_shared<Node>();
        node->kind = Node::Kind::ownWidget;
        node->application = application;
        node->widget = widget;
        co_return success(AccessibilityElement(node));
    }

    // By its window alone, since a terminal need not have a tree and may not answer: Control-C would end what
    // runs in it.
    if (activeWindowClass_ && isTerminalClass(activeWindowClass_())) {
        auto node = std::make_shared<Node>();
        node->kind = Node::Kind::terminalByClass;
        node->application = application;
        co_return success(AccessibilityElement(node));
    }

    // Most often the last focus event tells where to ask. Its program is known by then, so the registry, a
    // program of its own that would have to wake up, is not needed.
    const QPointer<AtSpiAccessibility> self(this);
    const auto remembered = co_await rememberedFocus(application);
    if (!self)
        co_return failure(AccessibilityError::failed);
    if (remembered)
        co_return success(*remembered);
    const bool wasKnown = processes_.value(lastFocus_.bus) == application->processIdentifier;
    const bool located = co_await locate(application);
    if (!self || !located)
        co_return failure(AccessibilityError::failed);
    if (!wasKnown) {
        const auto rememberedNow = co_await rememberedFocus(application);
        if (!self)
            co_return failure(AccessibilityError::failed);
        if (rememberedNow)
            co_return success(*rememberedNow);
    }

    for (;;) {
        auto search = std::make_shared<Search>();
        search->application = application;
        const Result result = co_await searchFocus(search);
        if (!self)
            co_return failure(AccessibilityError::failed);
        // A page may be there before the field in it.
        const bool again = application->treeIsYoung && !search->isDecided() && !search->isOver();
        if (!again) {
            application->treeIsYoung = false;
            co_return result;
        }
        co_await QCoro::sleepFor(treeRetry);
        if (!self)
            co_return failure(AccessibilityError::failed);
    }
}

/// The node of the last focus event, when it is this program's, still focused, and decides alone: the events'
/// own states are stale at times, and a page and a field in it may both be focused.
QCoro::Task<std::optional<AccessibilityElement>>
AtSpiAccessibility::rememberedFocus(std::shared_ptr<Application> application) {
    const Reference focus = lastFocus_;
    if (focus.isNull() || processes_.value(focus.bus) != application->processIdentifier)
        co_return std::nullopt;
    const QDBusPendingCall stateCall =
        start(focus, accessibleInterface, QStringLiteral("GetState"), {}, application->remaining());
    const QDBusPendingCall roleCall =
        start(focus, accessibleInterface, QStringLiteral("GetRole"), {}, application->remaining());
    const QDBusMessage stateAnswer = co_await stateCall;
    const QDBusMessage roleAnswer = co_await roleCall;
    const auto states = atspi::states(stateAnswer);
    const auto role = atspi::unsignedNumber(roleAnswer);
    if (!states || !role || !states->contains(State::focused) || states->contains(State::defunct))
        co_return std::nullopt;
    const bool decides = isEditable(*states) || *role == static_cast<uint>(atspi::Role::passwordText) ||
                         *role == static_cast<uint>(atspi::Role::terminal);
    if (!decides)
        co_return std::nullopt;
    auto node = std::make_shared<Node>();
    node->reference = focus;
    node->role = *role;
    node->application = application;
    co_return AccessibilityElement(node);
}

QCoro::Task<Result> AtSpiAccessibility::searchFocus(std::shared_ptr<Search> search) {
    const std::shared_ptr<Application> application = search->application;
    const QPointer<AtSpiAccessibility> self(this);
    const QList<Reference> frames = co_await activeFrames(application);
    for (const Reference& frame : frames) {
        if (!self)
            co_return failure(AccessibilityError::failed);
        if (search->isOver())
            break;
        co_await searchBelow(frame, search);
    }
    const Search::Found* best = search->best();
    if (best == nullptr)
        co_return failure(frames.isEmpty() || search->timedOut || search->isOver()
                              ? AccessibilityError::cannotComplete
                              : AccessibilityError::noValue);
    auto node = std::make_shared<Node>();
    node->reference = best->reference;
    node->role = best->role;
    node->application = application;
    co_return success(AccessibilityElement(node));
}

QCoro::Task<void> AtSpiAccessibility::searchBelow(Reference frame, std::shared_ptr<Search> search) {
    const QPointer<AtSpiAccessibility> self(this);

    // Toolkits with the Collection interface find their focused nodes themselves, in one call of 1 to 9 ms.
    const QDBusMessage interfacesAnswer =
        co_await call(frame, accessibleInterface, QStringLiteral("GetInterfaces"), {}, search->remaining());
    if (!self)
        co_return;
    const auto interfaces = atspi::names(interfacesAnswer, mostInterfaces);
    if (!interfaces) {
        search->timedOut = true;
        co_return;
    }
    if (interfaces->contains(collectionInterface)) {
        atspi::MatchRule rule;
        rule.stateWords = {1 << static_cast<int>(State::focused), 0};
        constexpr uint canonicalOrder = 1;
        constexpr int mostMatches = 64;
        const QVariantList arguments = {QVariant::fromValue(rule), canonicalOrder, mostMatches, true};
        const QDBusMessage matchAnswer = co_await call(
            frame, collectionInterface, QStringLiteral("GetMatches"), arguments, search->remaining());
        if (!self)
            co_return;
        if (const auto matches = atspi::references(matchAnswer, mostMatches)) {
            co_await visit(*matches, frame, search);
            co_return;
        }
    }

    // GTK 4 never says that anything is showing.
    const QString toolkit = co_await toolkitName(search->application);
    if (!self)
        co_return;
    search->pruneHidden = toolkit != QStringLiteral("GTK");
    if (!search->pruneHidden) {
        // And it has no Collection: a walk through an editor takes 170 ms, its list of everything 15 ms.
        const Reference cache{frame.bus, QStringLiteral("/org/a11y/atspi/cache")};
        const QDBusMessage itemsAnswer = co_await call(cache, QStringLiteral("org.a11y.atspi.Cache"),
                                                       QStringLiteral("GetItems"), {}, search->remaining());
        if (!self)
            co_return;
        const auto items = atspi::focusedItems(itemsAnswer, mostNodes);
        if (items && !items->isEmpty()) {
            co_await visit(items->mid(0, nodesAtATime), frame, search);
            co_return;
        }
    }
    QSet<QString> seen = {frame.path};
    QList<Reference> level = {frame};
    while (!level.isEmpty() && !search->isOver()) {
        QList<Reference> next;
        for (qsizetype begin = 0; begin < level.size() && !search->isOver(); begin += nodesAtATime) {
            const QList<Reference> group = level.mid(begin, nodesAtATime);
            const QList<Reference> parents = co_await visit(group, frame, search);
            if (!self)
                co_return;
            QList<QDBusPendingCall> questions;
            for (const Reference& parent : parents)
                questions.append(start(parent, accessibleInterface, QStringLiteral("GetChildren"), {},
                                       search->remaining()));
            for (const QDBusPendingCall& question : questions) {
                const QDBusMessage answer = co_await question;
                if (!self)
                    co_return;
                const auto children = atspi::references(answer, mostChildren);
                for (const Reference& child : children.value_or(QList<Reference>())) {
                    // A tree may name a node twice, or be no tree at all.
                    if (seen.size() >= mostNodes || seen.contains(child.path))
                        continue;
                    seen.insert(child.path);
                    next.append(child);
                }
            }
        }
        level = next;
    }
}

/// Notes those of the nodes that are focused; gives back those whose children are worth a visit.
QCoro::Task<QList<Reference>> AtSpiAccessibility::visit(QList<Reference> nodes, Reference frame,
                                                        std::shared_ptr<Search> search) {
    struct Question {
        Reference reference;
        QDBusPendingCall states;
        QDBusPendingCall role;
        QDBusPendingCall childCount;
    };
    QList<Question> questions;
    for (const Reference& each : nodes) {
        if (each.isNull() || each.bus != frame.bus)
            continue;
        questions.append(
            {each, start(each, accessibleInterface, QStringLiteral("GetState"), {}, search->remaining()),
             start(each, accessibleInterface, QStringLiteral("GetRole"), {}, search->remaining()),
             getProperty(each, accessibleInterface, QStringLiteral("ChildCount"), search->remaining())});
    }
    QList<Reference> parents;
    for (const Question& question : questions) {
        const QDBusMessage stateAnswer = co_await question.states;
        const QDBusMessage roleAnswer = co_await question.role;
        const QDBusMessage countAnswer = co_await question.childCount;
        ++search->visited;
        const auto states = atspi::states(stateAnswer);
        const auto role = atspi::unsignedNumber(roleAnswer);
        if (!states || !role) {
            if (errorOf(stateAnswer) == AccessibilityError::cannotComplete)
                search->timedOut = true;
            continue;
        }
        const bool focused = states->contains(State::focused);
        const bool secure = *role == static_cast<uint>(atspi::Role::passwordText);
        if (focused && (secure || states->contains(State::focusable)))
            search->found.append({question.reference, *role, isEditable(*states)});
        const bool hidden =
            search->pruneHidden && question.reference != frame && !states->contains(State::showing);
        // A spreadsheet has 17 thousand million cells: such a parent names its active child by other means.
        const int count = atspi::numberProperty(countAnswer).value_or(0);
        if (!atspi::isMenuRole(*role) && !hidden && !states->contains(State::defunct) &&
            !states->contains(State::managesDescendants) && count > 0 && count <= mostChildren)
            parents.append(question.reference);
    }
    co_return parents;
}

/// How many selections there are, and the first of them: one way to the program and back for both. Without a
/// selection the second answer is an error or means nothing.
AtSpiAccessibility::Selections AtSpiAccessibility::askForSelections(const Node& node) const {
    const auto timeout = node.application->remaining();
    const QVariantList first = {0};
    return {start(node.reference, textInterface, QStringLiteral("GetNSelections"), {}, timeout),
            start(node.reference, textInterface, QStringLiteral("GetSelection"), first, timeout)};
}

QCoro::Task<Result> AtSpiAccessibility::selectedRange(std::shared_ptr<const Node> node) {
    const QPointer<AtSpiAccessibility> self(this);
    // Nothing may be copied from a terminal with a key: there it would interrupt a program.
    if (node->role == static_cast<uint>(atspi::Role::terminal))
        co_return success(TextRange{0, 1});

    const auto [countCall, firstCall] = askForSelections(*node);
    const QDBusMessage countAnswer = co_await countCall;
    const QDBusMessage firstAnswer = co_await firstCall;
    if (!self)
        co_return failure(AccessibilityError::failed);
    const auto count = atspi::number(countAnswer);
    if (!count)
        co_return failure(errorOf(countAnswer));

    TextRange range;
    for (int i = 0; i < std::min(*count, mostSelections); ++i) {
        QDBusMessage spanAnswer = firstAnswer;
        if (i > 0) {
            const QVariantList arguments = {i};
            spanAnswer = co_await call(node->reference, textInterface, QStringLiteral("GetSelection"),
                                       arguments, node->application->remaining());
        }
        if (!self)
            co_return failure(AccessibilityError::failed);
        const auto span = atspi::span(spanAnswer);
        if (!span)
            co_return failure(errorOf(spanAnswer));
        if (range.length == 0)
            range.location = span->start;
        range.length += span->end - span->start;
    }
    if (range.length == 0 && node->role == static_cast<uint>(atspi::Role::paragraph)) {
        const bool selected = co_await neighbourIsSelected(node);
        if (selected)
            range.length = 1;
    }
    co_return success(range);
}

/// An office document is one node a paragraph: a selection may lie in several, while only the last is
/// focused.
QCoro::Task<bool> AtSpiAccessibility::neighbourIsSelected(std::shared_ptr<const Node> node) {
    const QPointer<AtSpiAccessibility> self(this);
    const QDBusPendingCall parentCall = getProperty(node->reference, accessibleInterface,
                                                    QStringLiteral("Parent"), node->application->remaining());
    const QDBusPendingCall indexCall =
        start(node->reference, accessibleInterface, QStringLiteral("GetIndexInParent"), {},
              node->application->remaining());
    const QDBusMessage parentAnswer = co_await parentCall;
    const QDBusMessage indexAnswer = co_await indexCall;
    const auto index = atspi::number(indexAnswer);
    const auto parent = atspi::referenceProperty(parentAnswer);
    if (!self || !index || !parent || parent->isNull())
        co_return false;
    for (const int offset : {-1, 1}) {
        const QVariantList position = {*index + offset};
        const QDBusMessage siblingAnswer =
            co_await call(*parent, accessibleInterface, QStringLiteral("GetChildAtIndex"), position,
                          node->application->remaining());
        if (!self)
            co_return false;
        const auto sibling = atspi::reference(siblingAnswer);
        if (*index + offset < 0 || !sibling || sibling->isNull())
            continue;
        const QDBusMessage countAnswer = co_await call(
            *sibling, textInterface, QStringLiteral("GetNSelections"), {}, node->application->remaining());
        if (!self)
            co_return false;
        if (atspi::number(countAnswer).value_or(0) > 0)
            co_return true;
    }
    co_return false;
}

QCoro::Task<Result> AtSpiAccessibility::selectedText(std::shared_ptr<const Node> node) {
    const QPointer<AtSpiAccessibility> self(this);
    // A paragraph knows only its own part of a selection, and a password field shows bullets.
    if (node->role == static_cast<uint>(atspi::Role::paragraph) ||
        node->role == static_cast<uint>(atspi::Role::passwordText))
        co_return failure(AccessibilityError::noValue);
    const auto [countCall, spanCall] = askForSelections(*node);
    const QDBusMessage countAnswer = co_await countCall;
    const QDBusMessage spanAnswer = co_await spanCall;
    if (!self)
        co_return failure(AccessibilityError::failed);
    if (atspi::number(countAnswer) != 1)
        co_return failure(AccessibilityError::noValue);
    const auto span = atspi::span(spanAnswer);
    if (!span || span->end - span->start > longestText)
        co_return failure(AccessibilityError::noValue);
    const QVariantList ends = {span->start, span->end};
    const QDBusMessage textAnswer = co_await call(node->reference, textInterface, QStringLiteral("GetText"),
                                                  ends, node->application->remaining());
    auto text = atspi::text(textAnswer);
    if (!text)
        co_return failure(errorOf(textAnswer));
    if (atspi::mayLackItsFirstCharacter(*span, *text)) {
        const QVariantList first = {span->start};
        const QDBusMessage characterAnswer =
            co_await call(node->reference, textInterface, QStringLiteral("GetCharacterAtOffset"), first,
                          node->application->remaining());
        if (atspi::number(characterAnswer) == int{QChar::ByteOrderMark})
            text->prepend(QChar::ByteOrderMark);
    }
    if (!atspi::isWholeText(*span, *text))
        co_return failure(AccessibilityError::failed);
    co_return success(*text);
}

QCoro::Task<AccessibilityResult<bool>> AtSpiAccessibility::isAttributeSettable(AccessibilityElement element,
                                                                               QString attribute) {
    const auto node = std::dynamic_pointer_cast<const Node>(element);
    const bool known =
        attribute == AccessibilityAttribute::selectedText || attribute == AccessibilityAttribute::value;
    if (!node || !known)
        co_return AccessibilityResult<bool>{AccessibilityError::failed};
    if (node->kind == Node::Kind::terminalByClass || node->role == static_cast<uint>(atspi::Role::terminal))
        co_return AccessibilityResult<bool>{false};
    if (node->kind == Node::Kind::ownWidget) {
        const auto field = ownField(node->widget);
        if (!field)
            co_return AccessibilityResult<bool>{AccessibilityError::failed};
        co_return AccessibilityResult<bool>{field->editable};
    }
    node->application->beginCall();
    const QDBusMessage answer = co_await call(node->reference, accessibleInterface,
                                              QStringLiteral("GetState"), {}, node->application->remaining());
    const auto states = atspi::states(answer);
    if (!states)
        co_return AccessibilityResult<bool>{errorOf(answer)};
    co_return AccessibilityResult<bool>{isEditable(*states)};
}

bool AtSpiAccessibility::isTerminalClass(const QStringList& windowClass) {
    // Terminal emulators, with a tree or without one; and two editors to which Control-C is a command.
    static const QSet<QString> names = {QStringLiteral("xterm"),
                                        QStringLiteral("uxterm"),
                                        QStringLiteral("urxvt"),
                                        QStringLiteral("rxvt"),
                                        QStringLiteral("st"),
                                        QStringLiteral("st-256color"),
                                        QStringLiteral("kitty"),
                                        QStringLiteral("alacritty"),
                                        QStringLiteral("foot"),
                                        QStringLiteral("konsole"),
                                        QStringLiteral("yakuake"),
                                        QStringLiteral("terminology"),
                                        QStringLiteral("cool-retro-term"),
                                        QStringLiteral("qterminal"),
                                        QStringLiteral("wezterm"),
                                        QStringLiteral("org.wezfurlong.wezterm"),
                                        QStringLiteral("ghostty"),
                                        QStringLiteral("com.mitchellh.ghostty"),
                                        QStringLiteral("terminator"),
                                        QStringLiteral("tilix"),
                                        QStringLiteral("guake"),
                                        QStringLiteral("tilda"),
                                        QStringLiteral("sakura"),
                                        QStringLiteral("termite"),
                                        QStringLiteral("eterm"),
                                        QStringLiteral("aterm"),
                                        QStringLiteral("mlterm"),
                                        QStringLiteral("xfce4-terminal"),
                                        QStringLiteral("gnome-terminal"),
                                        QStringLiteral("gnome-terminal-server"),
                                        QStringLiteral("mate-terminal"),
                                        QStringLiteral("lxterminal"),
                                        QStringLiteral("org.gnome.console"),
                                        QStringLiteral("kgx"),
                                        QStringLiteral("zutty"),
                                        QStringLiteral("deepin-terminal"),
                                        QStringLiteral("footclient"),
                                        QStringLiteral("koi8rxterm"),
                                        QStringLiteral("lxterm"),
                                        QStringLiteral("stterm"),
                                        QStringLiteral("roxterm"),
                                        QStringLiteral("ptyxis"),
                                        QStringLiteral("org.gnome.ptyxis"),
                                        QStringLiteral("org.gnome.terminal"),
                                        QStringLiteral("org.kde.konsole"),
                                        QStringLiteral("org.kde.yakuake"),
                                        QStringLiteral("pantheon-terminal"),
                                        QStringLiteral("io.elementary.terminal"),
                                        QStringLiteral("contour"),
                                        QStringLiteral("hyper"),
                                        QStringLiteral("tabby"),
                                        QStringLiteral("emacs"),
                                        QStringLiteral("gvim")};
    for (const QString& each : windowClass) {
        if (names.contains(each.toLower()))
            return true;
    }
    return false;
}

} // namespace vellumline
