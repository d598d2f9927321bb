#include "Vellumline/Platform/Linux/QtKeyMonitor.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QKeySequence>

namespace vellumline {

namespace {

bool isModifierOrLock(int key) {
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_Mode_switch:
        return true;
    default:
        return false;
    }
}

HotkeyModifiers modifiersOf(Qt::KeyboardModifiers modifiers) {
    HotkeyModifiers result;
    if (modifiers.testFlag(Qt::ControlModifier))
        result = result | HotkeyModifiers::control;
    if (modifiers.testFlag(Qt::AltModifier))
        result = result | HotkeyModifiers::option;
    if (modifiers.testFlag(Qt::ShiftModifier))
        result = result | HotkeyModifiers::shift;
    if (modifiers.testFlag(Qt::MetaModifier))
        result = result | HotkeyModifiers::command;
    return result;
}

QString keyName(int key) {
    if (key == 0 || key == Qt::Key_unknown)
        return {};
    // Keys below that value stand for their own character.
    constexpr int firstNamedKey = 0x01000000;
    if (key < firstNamedKey) {
        const auto character = static_cast<char32_t>(key);
        return QString::fromUcs4(&character, 1).toLower();
    }
    return QKeySequence(key).toString(QKeySequence::PortableText);
}

} // namespace

QtKeyMonitor::QtKeyMonitor(KeyCodeSource keyCodes, CharacterSource characters)
    : keyCodes_(std::move(keyCodes)), characters_(std::move(characters)) {}

QtKeyMonitor::~QtKeyMonitor() {
    if (isInstalled_ && QCoreApplication::instance() != nullptr)
        QCoreApplication::instance()->removeEventFilter(this);
}

std::optional<KeyMonitor::Token> QtKeyMonitor::addLocalMonitor(Handler handler) {
    auto* application = QCoreApplication::instance();
    if (application == nullptr)
        return std::nullopt;
    monitors_.append({nextToken_, std::move(handler)});
    watch();
    return nextToken_++;
}

void QtKeyMonitor::removeMonitor(Token token) {
    monitors_.removeIf([token](const auto& each) { return each.first == token; });
    watch();
}

void QtKeyMonitor::watch() {
    // A key that was swallowed may still be down and repeat after its monitor has gone.
    const bool isNeeded = !monitors_.isEmpty() || !swallowedAndDown_.isEmpty() || releaseWasSwallowed_;
    auto* application = QCoreApplication::instance();
    if (isNeeded == isInstalled_ || application == nullptr)
        return;
    isInstalled_ = isNeeded;
    if (isNeeded)
        application->installEventFilter(this);
    else
        application->removeEventFilter(this);
}

KeyPress QtKeyMonitor::keyPress(const QKeyEvent& event) const {
    KeyPress result;
    const std::uint32_t scanCode = event.nativeScanCode();
    result.keyCode = keyCodes_(scanCode);
    result.modifiers = modifiersOf(event.modifiers());
    if (characters_)
        result.characters = characters_(scanCode);
    if (result.characters.isEmpty())
        result.characters = keyName(event.key());
    return result;
}

QtKeyMonitor::Press QtKeyMonitor::pressOf(const QKeyEvent& event) {
    return {event.timestamp(), event.nativeScanCode(), event.key()};
}

bool QtKeyMonitor::swallows(const QKeyEvent& event) {
    if (event.isAutoRepeat())
        return swallowedAndDown_.contains(event.nativeScanCode());
    const Press press = pressOf(event);
    if (released_ && released_->scanCode != press.scanCode) {
        released_.reset();
        releaseWasSwallowed_ = false;
    }
    if (isModifierOrLock(event.key()))
        return false;
    if (decided_ == press)
        return decidedToSwallow_;
    decided_ = press;
    if (released_ == press) {
        decidedToSwallow_ = releaseWasSwallowed_;
        if (releaseWasSwallowed_)
            swallowedAndDown_.insert(event.nativeScanCode());
        return decidedToSwallow_;
    }
    released_.reset();
    releaseWasSwallowed_ = false;
    swallowedAndDown_.remove(event.nativeScanCode()); // its release may have gone to another program
    decidedToSwallow_ = false;
    const KeyPress key = keyPress(event);
    const auto monitors = monitors_; // a handler may remove itself, or another
    for (const auto& [token, handler] : monitors) {
        if (handler(key) == Handling::swallow) {
            decidedToSwallow_ = true;
            swallowedAndDown_.insert(event.nativeScanCode());
            watch(); // the handler may have removed the last monitor, and the rest of the press is to come
            break;
        }
    }
    return decidedToSwallow_;
}

bool QtKeyMonitor::eventFilter(QObject* receiver, QEvent* event) {
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Comes first, to ask whether the focused control wants the key before shortcuts get it. Accepted,
        // no button's or window's shortcut runs, and the press follows as a plain one.
        if (swallows(*static_cast<QKeyEvent*>(event))) {
            event->accept();
            return true;
        }
        return false;
    case QEvent::KeyPress:
        return swallows(*static_cast<QKeyEvent*>(event));
    case QEvent::KeyRelease: {
        const auto& key = *static_cast<QKeyEvent*>(event);
        const Press release = pressOf(key);
        if (!key.isAutoRepeat() && released_ != release) {
            decided_.reset();
            released_ = release;
            releaseWasSwallowed_ = swallowedAndDown_.remove(key.nativeScanCode());
            watch();
        }
        return false;
    }
    default:
        return QObject::eventFilter(receiver, event);
    }
}

} // namespace vellumline
