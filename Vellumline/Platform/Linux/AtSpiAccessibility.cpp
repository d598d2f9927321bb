#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"

#include <QApplication>
#include <QCoreApplication>
#include <QCoroDBusPendingCall>
#include <QCoroSignal>
#include <QCoroTimer>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QElapsedTimer>
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
constexpr int mostApplications = 512;
constexpr int mostNodes = 6000;
constexpr int nodesAtATime = 64;
constexpr int longestText = 1'000'000; // code points; far beyond what is ever corrected

const QString accessibleInterface = QStringLiteral("org.a11y.atspi.Accessible");
const QString textInterface = QStringLiteral("org.a11y.atspi.Text");
const QString collectionInterface = QStringLiteral("org.a11y.atspi.Collection");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString rootPath = QStringLiteral("/org/a11y/atspi/accessible/root");
const Reference desktop{QStringLiteral("org.a11y.atspi.Registry"), rootPath};
const QString connectionName = QStringLiteral("vellumline-accessibility");

Result failure(AccessibilityError error) {
    return {error};
}

Result success(AccessibilityValue value) {
    return {std::move(value)};
}

AccessibilityError errorOf(const QDBusMessage& answer) {
    const QString name = answer.errorName();
    const bool silent = name == QStringLiteral("org.freedesktop.DBus.Error.NoReply") ||
                        name == QStringLiteral("org.freedesktop.DBus.Error.Timeout") ||
                        name == QStringLiteral("org.freedesktop.DBus.Error.TimedOut");
    return silent ? AccessibilityError::cannotComplete : AccessibilityError::failed;
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
    Reference root;           ///< null until located
    QString toolkit;          ///< "gtk", "GTK", "Qt", "Chromium" …
    bool treeIsYoung = false; ///< its tree was just asked for and may still be growing
};

struct AtSpiAccessibility::Node final : AccessibilityNode {
    enum class Kind { remote, ownWidget, terminalWithoutTree };
    Kind kind = Kind::remote;
    Reference reference;
    uint role = 0;
    std::shared_ptr<Application> application;
    QPointer<QWidget> widget;
};

struct AtSpiAccessibility::Search {
    struct Found {
        Reference reference;
        uint role = 0;
        bool editable = false;
    };
    QElapsedTimer elapsed;
    std::chrono::milliseconds budget = defaultTimeout;
    int visited = 0;
    bool timedOut = false;
    QList<Found> found;

    bool isOver() const { return elapsed.elapsed() >= budget.count() || visited >= mostNodes; }
    std::chrono::milliseconds remaining() const {
        return std::max<std::chrono::milliseconds>(1ms,
                                                   budget - std::chrono::milliseconds(elapsed.elapsed()));
    }
    /// Several nodes say that they are focused (Qt: the field and its ancestors; Chromium: address bar and
    /// page). A password field among them decides; else one that can be edited.
    const Found* best() const {
        const Found* chosen = nullptr;
        for (const Found& each : found) {
            if (each.role == static_cast<uint>(atspi::Role::passwordText))
                return &each;
            if (chosen == nullptr || (each.editable && !chosen->editable))
                chosen = &each;
        }
        return chosen;
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
        QDBusConnection::disconnectFromBus(connectionName);
}

QCoro::Task<bool> AtSpiAccessibility::ready() {
    if (connecting_)
        co_await qCoro(this, &AtSpiAccessibility::trustChanged, busTimeout);
    co_return bus_.has_value();
}

QCoro::Task<void> AtSpiAccessibility::connectToBus() {
    connecting_ = true;
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
    QThreadPool::globalInstance()->start([self, bus = *address] {
        const QDBusConnection made = QDBusConnection::connectToBus(bus, connectionName);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, made] {
                if (!self)
                    return;
                self->connecting_ = false;
                if (made.isConnected()) {
                    self->bus_ = made;
                    self->bus_->connect(QString(), QString(), QStringLiteral("org.a11y.atspi.Event.Object"),
                                        QStringLiteral("StateChanged"), {QStringLiteral("focused")},
                                        QString(), self.data(), SLOT(focusEvent(QDBusMessage)));
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
    const auto listed =
        co_await call(desktop, accessibleInterface, QStringLiteral("GetChildren"), {}, application->timeout);
    const auto roots = atspi::references(listed, mostApplications);
    if (!roots)
        co_return false;
    QList<std::pair<QString, QDBusPendingCall>> questions;
    for (const Reference& root : *roots) {
        if (!root.isNull() && !processes_.contains(root.bus))
            questions.append(
                {root.bus,
                 start({QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus")},
                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetConnectionUnixProcessID"),
                       {root.bus}, application->timeout)});
    }
    for (const auto& [name, pending] : questions) {
        const QDBusMessage answer = co_await pending;
        if (const auto process = atspi::unsignedNumber(answer))
            processes_.insert(name, *process);
    }
    for (const Reference& root : *roots) {
        if (processes_.value(root.bus) != application->processIdentifier)
            continue;
        if (application->root != root) {
            application->root = root;
            const QDBusPendingCall pending = getProperty(root, QStringLiteral("org.a11y.atspi.Application"),
                                                         QStringLiteral("ToolkitName"), application->timeout);
            const QDBusMessage answer = co_await pending;
            application->toolkit = atspi::textProperty(answer).value_or(QString());
        }
        co_return true;
    }
    co_return false;
}

QCoro::Task<bool> AtSpiAccessibility::setAttribute(AccessibilityElement element, QString attribute,
                                                   bool value) {
    const auto constant = std::dynamic_pointer_cast<const Application>(element);
    if (!constant || !bus_ || attribute != AccessibilityAttribute::manualAccessibility || !value)
        co_return false;
    if (constant->processIdentifier == QCoreApplication::applicationPid())
        co_return true;
    const auto application = std::const_pointer_cast<Application>(constant);
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
        co_await call(frame, accessibleInterface, QStringLiteral("GetAttributes"), {}, application->timeout);
        if (!self)
            co_return false;
    }
    co_return !frames.isEmpty();
}

/// The program's frames, active ones alone when there are any.
QCoro::Task<QList<Reference>> AtSpiAccessibility::activeFrames(std::shared_ptr<Application> application) {
    const auto listed = co_await call(application->root, accessibleInterface, QStringLiteral("GetChildren"),
                                      {}, application->timeout);
    const auto frames = atspi::references(listed, mostChildren);
    if (!frames)
        co_return QList<Reference>();
    QList<std::pair<Reference, QDBusPendingCall>> questions;
    for (const Reference& frame : frames->mid(0, nodesAtATime)) {
        if (!frame.isNull())
            questions.append({frame, start(frame, accessibleInterface, QStringLiteral("GetState"), {},
                                           application->timeout)});
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
        co_return co_await focusedElement(std::const_pointer_cast<Application>(application));
    }
    const auto node = std::dynamic_pointer_cast<const Node>(element);
    if (!node)
        co_return failure(AccessibilityError::failed);

    if (node->kind == Node::Kind::terminalWithoutTree) {
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

    if (!bus_)
        co_return failure(AccessibilityError::cannotComplete);
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

    const QPointer<AtSpiAccessibility> self(this);
    bool located = false;
    if (bus_)
        located = co_await locate(application);
    if (!self)
        co_return failure(AccessibilityError::failed);
    if (!located) {
        if (!isTerminalClass(activeWindowClass_()))
            co_return failure(AccessibilityError::failed);
        auto node = std::make_shared<Node>();
        node->kind = Node::Kind::terminalWithoutTree;
        node->application = application;
        co_return success(AccessibilityElement(node));
    }

    const auto remembered = co_await rememberedFocus(application);
    if (!self)
        co_return failure(AccessibilityError::failed);
    if (remembered)
        co_return success(*remembered);

    QElapsedTimer elapsed;
    elapsed.start();
    for (;;) {
        Result result = co_await searchFocus(application);
        if (!self)
            co_return failure(AccessibilityError::failed);
        const bool again = application->treeIsYoung && !result.isValue() &&
                           std::chrono::milliseconds(elapsed.elapsed()) < application->timeout;
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
    if (focus.isNull() || focus.bus != application->root.bus)
        co_return std::nullopt;
    const QDBusPendingCall stateCall =
        start(focus, accessibleInterface, QStringLiteral("GetState"), {}, application->timeout);
    const QDBusPendingCall roleCall =
        start(focus, accessibleInterface, QStringLiteral("GetRole"), {}, application->timeout);
    const QDBusMessage stateAnswer = co_await stateCall;
    const QDBusMessage roleAnswer = co_await roleCall;
    const auto states = atspi::states(stateAnswer);
    const auto role = atspi::unsignedNumber(roleAnswer);
    if (!states || !role || !states->contains(State::focused) || states->contains(State::defunct))
        co_return std::nullopt;
    const bool decides = states->contains(State::editable) ||
                         *role == static_cast<uint>(atspi::Role::passwordText) ||
                         *role == static_cast<uint>(atspi::Role::terminal);
    if (!decides)
        co_return std::nullopt;
    auto node = std::make_shared<Node>();
    node->reference = focus;
    node->role = *role;
    node->application = application;
    co_return AccessibilityElement(node);
}

QCoro::Task<Result> AtSpiAccessibility::searchFocus(std::shared_ptr<Application> application) {
    auto search = std::make_shared<Search>();
    search->elapsed.start();
    search->budget = application->timeout;
    const QPointer<AtSpiAccessibility> self(this);
    const QList<Reference> frames = co_await activeFrames(application);
    for (const Reference& frame : frames) {
        if (!self)
            co_return failure(AccessibilityError::failed);
        if (search->isOver())
            break;
        co_await searchBelow(frame, application, search);
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

QCoro::Task<void> AtSpiAccessibility::searchBelow(Reference frame, std::shared_ptr<Application> application,
                                                  std::shared_ptr<Search> search) {
    const QPointer<AtSpiAccessibility> self(this);

    // Toolkits with the Collection interface find their focused nodes themselves, in one call of 1 to 9 ms.
    const QDBusMessage interfacesAnswer =
        co_await call(frame, accessibleInterface, QStringLiteral("GetInterfaces"), {}, search->remaining());
    if (!self)
        co_return;
    QList<Reference> level = {frame};
    bool collected = false;
    const auto interfaces = atspi::names(interfacesAnswer, mostChildren);
    if (interfaces && interfaces->contains(collectionInterface)) {
        atspi::MatchRule rule;
        rule.stateWords = {1 << static_cast<int>(State::focused), 0};
        constexpr uint canonicalOrder = 1;
        constexpr int mostMatches = 64;
        const QVariantList arguments = {QVariant::fromValue(rule), canonicalOrder, mostMatches, true};
        const QDBusMessage matchAnswer = co_await call(
            frame, collectionInterface, QStringLiteral("GetMatches"), arguments, search->remaining());
        if (!self)
            co_return;
        if (const auto matches = atspi::references(matchAnswer, mostMatches);
            matches && !matches->isEmpty()) {
            level = *matches;
            collected = true;
        }
    }

    // GTK 4 never says that anything is showing.
    const bool pruneHidden = application->toolkit != QStringLiteral("GTK");
    QSet<QString> seen;
    while (!level.isEmpty() && !search->isOver()) {
        QList<Reference> next;
        for (qsizetype begin = 0; begin < level.size() && !search->isOver(); begin += nodesAtATime) {
            struct Question {
                Reference reference;
                QDBusPendingCall states;
                QDBusPendingCall role;
                QDBusPendingCall children;
            };
            QList<Question> questions;
            for (const Reference& each : level.mid(begin, nodesAtATime)) {
                // A tree may name a node twice, or be no tree at all.
                if (each.isNull() || each.bus != frame.bus || seen.contains(each.path))
                    continue;
                seen.insert(each.path);
                questions.append(
                    {each,
                     start(each, accessibleInterface, QStringLiteral("GetState"), {}, search->remaining()),
                     start(each, accessibleInterface, QStringLiteral("GetRole"), {}, search->remaining()),
                     start(each, accessibleInterface, QStringLiteral("GetChildren"), {},
                           search->remaining())});
            }
            for (const Question& question : questions) {
                const QDBusMessage stateAnswer = co_await question.states;
                const QDBusMessage roleAnswer = co_await question.role;
                const QDBusMessage childrenAnswer = co_await question.children;
                if (!self)
                    co_return;
                ++search->visited;
                const auto states = atspi::states(stateAnswer);
                const auto role = atspi::unsignedNumber(roleAnswer);
                if (!states || !role) {
                    if (errorOf(stateAnswer) == AccessibilityError::cannotComplete)
                        search->timedOut = true;
                    continue;
                }
                const bool isFrame = question.reference == frame;
                if (states->contains(State::focused) && states->contains(State::focusable))
                    search->found.append({question.reference, *role, states->contains(State::editable)});
                if (collected || atspi::isMenuRole(*role) || states->contains(State::defunct) ||
                    (pruneHidden && !isFrame && !states->contains(State::showing)))
                    continue;
                next += atspi::references(childrenAnswer, mostChildren).value_or(QList<Reference>());
            }
        }
        level = next;
    }
}

QCoro::Task<Result> AtSpiAccessibility::selectedRange(std::shared_ptr<const Node> node) {
    const auto timeout = node->application->timeout;
    const QPointer<AtSpiAccessibility> self(this);
    // Nothing may be copied from a terminal with a key: there it would interrupt a program.
    if (node->role == static_cast<uint>(atspi::Role::terminal))
        co_return success(TextRange{0, 1});

    const QDBusMessage countAnswer =
        co_await call(node->reference, textInterface, QStringLiteral("GetNSelections"), {}, timeout);
    if (!self)
        co_return failure(AccessibilityError::failed);
    const auto count = atspi::number(countAnswer);
    if (!count)
        co_return failure(errorOf(countAnswer));

    TextRange range;
    for (int i = 0; i < std::min(*count, 16); ++i) {
        const QVariantList arguments = {i};
        const QDBusMessage spanAnswer =
            co_await call(node->reference, textInterface, QStringLiteral("GetSelection"), arguments, timeout);
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
    const auto timeout = node->application->timeout;
    const QPointer<AtSpiAccessibility> self(this);
    const QDBusPendingCall parentCall =
        getProperty(node->reference, accessibleInterface, QStringLiteral("Parent"), timeout);
    const QDBusPendingCall indexCall =
        start(node->reference, accessibleInterface, QStringLiteral("GetIndexInParent"), {}, timeout);
    const QDBusMessage parentAnswer = co_await parentCall;
    const QDBusMessage indexAnswer = co_await indexCall;
    const auto index = atspi::number(indexAnswer);
    const auto parent = atspi::referenceProperty(parentAnswer);
    if (!self || !index || !parent || parent->isNull())
        co_return false;
    for (const int offset : {-1, 1}) {
        const QVariantList position = {*index + offset};
        const QDBusMessage siblingAnswer =
            co_await call(*parent, accessibleInterface, QStringLiteral("GetChildAtIndex"), position, timeout);
        if (!self)
            co_return false;
        const auto sibling = atspi::reference(siblingAnswer);
        if (*index + offset < 0 || !sibling || sibling->isNull())
            continue;
        const QDBusMessage countAnswer =
            co_await call(*sibling, textInterface, QStringLiteral("GetNSelections"), {}, timeout);
        if (!self)
            co_return false;
        if (atspi::number(countAnswer).value_or(0) > 0)
            co_return true;
    }
    co_return false;
}

QCoro::Task<Result> AtSpiAccessibility::selectedText(std::shared_ptr<const Node> node) {
    const auto timeout = node->application->timeout;
    const QPointer<AtSpiAccessibility> self(this);
    // A paragraph knows only its own part of a selection, and a password field shows bullets.
    if (node->role == static_cast<uint>(atspi::Role::paragraph) ||
        node->role == static_cast<uint>(atspi::Role::passwordText))
        co_return failure(AccessibilityError::noValue);
    const QDBusMessage countAnswer =
        co_await call(node->reference, textInterface, QStringLiteral("GetNSelections"), {}, timeout);
    if (!self)
        co_return failure(AccessibilityError::failed);
    if (atspi::number(countAnswer) != 1)
        co_return failure(AccessibilityError::noValue);
    const QVariantList first = {0};
    const QDBusMessage spanAnswer =
        co_await call(node->reference, textInterface, QStringLiteral("GetSelection"), first, timeout);
    if (!self)
        co_return failure(AccessibilityError::failed);
    const auto span = atspi::span(spanAnswer);
    if (!span || span->end - span->start > longestText)
        co_return failure(AccessibilityError::noValue);
    const QVariantList ends = {span->start, span->end};
    const QDBusMessage textAnswer =
        co_await call(node->reference, textInterface, QStringLiteral("GetText"), ends, timeout);
    const auto text = atspi::text(textAnswer);
    if (!text)
        co_return failure(errorOf(textAnswer));
    co_return success(*text);
}

QCoro::Task<AccessibilityResult<bool>> AtSpiAccessibility::isAttributeSettable(AccessibilityElement element,
                                                                               QString attribute) {
    const auto node = std::dynamic_pointer_cast<const Node>(element);
    const bool known =
        attribute == AccessibilityAttribute::selectedText || attribute == AccessibilityAttribute::value;
    if (!node || !known)
        co_return AccessibilityResult<bool>{AccessibilityError::failed};
    if (node->kind == Node::Kind::terminalWithoutTree ||
        node->role == static_cast<uint>(atspi::Role::terminal))
        co_return AccessibilityResult<bool>{false};
    if (node->kind == Node::Kind::ownWidget) {
        const auto field = ownField(node->widget);
        if (!field)
            co_return AccessibilityResult<bool>{AccessibilityError::failed};
        co_return AccessibilityResult<bool>{field->editable};
    }
    if (!bus_)
        co_return AccessibilityResult<bool>{AccessibilityError::cannotComplete};
    const QDBusMessage answer = co_await call(node->reference, accessibleInterface,
                                              QStringLiteral("GetState"), {}, node->application->timeout);
    const auto states = atspi::states(answer);
    if (!states)
        co_return AccessibilityResult<bool>{errorOf(answer)};
    co_return AccessibilityResult<bool>{states->contains(State::editable)};
}

bool AtSpiAccessibility::isTerminalClass(const QStringList& windowClass) {
    // Terminal emulators without an accessibility tree, or that may be started without one.
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
                                        QStringLiteral("deepin-terminal")};
    for (const QString& each : windowClass) {
        if (names.contains(each.toLower()))
            return true;
    }
    return false;
}

} // namespace vellumline
