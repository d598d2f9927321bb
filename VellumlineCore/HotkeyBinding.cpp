#include "VellumlineCore/HotkeyBinding.h"

#include "VellumlineCore/Text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vellumline {

namespace {

struct ModifierRow {
    HotkeyModifiers modifier;
    char16_t symbol;
    std::uint32_t carbonFlag;
};

constexpr std::array<ModifierRow, 4> modifierRows = {{{HotkeyModifiers::control, u'⌃', 0x1000},
                                                      {HotkeyModifiers::option, u'⌥', 0x800},
                                                      {HotkeyModifiers::shift, u'⇧', 0x200},
                                                      {HotkeyModifiers::command, u'⌘', 0x100}}};

struct Shortcut {
    std::uint16_t keyCode;
    HotkeyModifiers modifiers;
    bool operator==(const Shortcut&) const = default;
};

constexpr HotkeyModifiers command = HotkeyModifiers::command;

/// Shortcuts of the system and of common editing; the modifiers must match exactly.
constexpr std::array<Shortcut, 15> reservedShortcuts = {
    {{KeyCode::c, command},
     {KeyCode::v, command},
     {KeyCode::x, command},
     {KeyCode::z, command},
     {KeyCode::z, HotkeyModifiers::shift | command},
     {KeyCode::a, command},
     {KeyCode::q, command},
     {KeyCode::w, command},
     {KeyCode::h, command},
     {KeyCode::m, command},
     {KeyCode::tab, command},
     {KeyCode::space, command},
     {KeyCode::space, HotkeyModifiers::control},
     {KeyCode::space, HotkeyModifiers::option | command},
     {KeyCode::escape, HotkeyModifiers::option | command}}};

bool isReserved(std::uint16_t keyCode, HotkeyModifiers modifiers) {
    return std::ranges::find(reservedShortcuts, Shortcut{keyCode, modifiers}) != reservedShortcuts.end();
}

bool hasMainModifier(HotkeyModifiers modifiers) {
    return modifiers.contains(HotkeyModifiers::control) || modifiers.contains(HotkeyModifiers::option) ||
           modifiers.contains(HotkeyModifiers::command);
}

const QString keyCodeKey = QStringLiteral("vellumline.hotkey.keyCode");
const QString modifiersKey = QStringLiteral("vellumline.hotkey.modifiers");
const QString keyLabelKey = QStringLiteral("vellumline.hotkey.keyLabel");

} // namespace

HotkeyModifiers HotkeyModifiers::fromCarbonFlags(std::uint32_t flags) {
    HotkeyModifiers modifiers;
    for (const auto& row : modifierRows) {
        if ((flags & row.carbonFlag) != 0)
            modifiers = modifiers | row.modifier;
    }
    return modifiers;
}

std::uint32_t HotkeyModifiers::carbonFlags() const {
    std::uint32_t flags = 0;
    for (const auto& row : modifierRows) {
        if (contains(row.modifier))
            flags |= row.carbonFlag;
    }
    return flags;
}

QString HotkeyModifiers::symbols() const {
    QString text;
    for (const auto& row : modifierRows) {
        if (contains(row.modifier))
            text += QChar(row.symbol);
    }
    return text;
}

const QHash<std::uint16_t, QString>& KeyCode::functionKeys() {
    static const QHash<std::uint16_t, QString> labels = {
        {122, QStringLiteral("F1")},  {120, QStringLiteral("F2")},  {99, QStringLiteral("F3")},
        {118, QStringLiteral("F4")},  {96, QStringLiteral("F5")},   {97, QStringLiteral("F6")},
        {98, QStringLiteral("F7")},   {100, QStringLiteral("F8")},  {101, QStringLiteral("F9")},
        {109, QStringLiteral("F10")}, {103, QStringLiteral("F11")}, {111, QStringLiteral("F12")}};
    return labels;
}

QString HotkeyBinding::label() const {
    return modifiers.symbols() + keyLabel;
}

QString HotkeyBinding::keyLabelFor(std::uint16_t keyCode, const QString& characters) {
    switch (keyCode) {
    case KeyCode::returnKey:
        return QStringLiteral("Return");
    case KeyCode::tab:
        return QStringLiteral("Tab");
    case KeyCode::space:
        return QStringLiteral("Space");
    case KeyCode::deleteKey:
        return QStringLiteral("Delete");
    case KeyCode::escape:
        return QStringLiteral("Esc");
    default:
        break;
    }
    if (const auto function = KeyCode::functionKeys().constFind(keyCode);
        function != KeyCode::functionKeys().cend())
        return *function;
    const QString trimmed = trimmedWhitespace(characters);
    if (!trimmed.isEmpty())
        return trimmed.toUpper();
    return QStringLiteral("Key%1").arg(keyCode);
}

HotkeyBinding::Check HotkeyBinding::check(std::uint16_t keyCode, HotkeyModifiers modifiers,
                                          const QString& characters) {
    if (!hasMainModifier(modifiers))
        return {Check::Kind::needsModifier, {}, {}};
    const HotkeyBinding binding{keyCode, modifiers, keyLabelFor(keyCode, characters)};
    if (isReserved(keyCode, modifiers))
        return {Check::Kind::reserved, {}, binding.label()};
    return {Check::Kind::accepted, binding, {}};
}

HotkeyBinding HotkeyBinding::restored(std::uint16_t keyCode, std::uint32_t carbonFlags,
                                      const QString& keyLabel) {
    const HotkeyModifiers modifiers = HotkeyModifiers::fromCarbonFlags(carbonFlags);
    if (hasMainModifier(modifiers) && !isReserved(keyCode, modifiers))
        return {keyCode, modifiers, keyLabel};
    return defaultBinding();
}

HotkeyBinding HotkeyBinding::load(const UserDefaults& defaults) {
    if (!defaults.contains(keyCodeKey))
        return defaultBinding();
    const QString label = defaults.string(keyLabelKey);
    return restored(static_cast<std::uint16_t>(defaults.integer(keyCodeKey)),
                    static_cast<std::uint32_t>(defaults.integer(modifiersKey)),
                    label.isNull() ? QStringLiteral("?") : label);
}

void HotkeyBinding::save(UserDefaults& defaults) const {
    defaults.set(keyCodeKey, static_cast<int>(keyCode));
    defaults.set(modifiersKey, static_cast<int>(modifiers.carbonFlags()));
    defaults.set(keyLabelKey, keyLabel);
}

} // namespace vellumline
