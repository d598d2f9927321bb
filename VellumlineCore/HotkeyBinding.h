#pragma once

#include "VellumlineCore/UserDefaults.h"

#include <QHash>
#include <QString>
#include <cstdint>

namespace vellumline {

/// The modifiers of a shortcut. The stored and registered form is the Carbon flag word, on every platform.
struct HotkeyModifiers {
    int rawValue = 0;

    static const HotkeyModifiers control; ///< bit 1, ⌃, Carbon 0x1000
    static const HotkeyModifiers option;  ///< bit 2, ⌥, Carbon 0x800
    static const HotkeyModifiers shift;   ///< bit 4, ⇧, Carbon 0x200
    static const HotkeyModifiers command; ///< bit 8, ⌘, Carbon 0x100

    static HotkeyModifiers fromCarbonFlags(std::uint32_t flags);
    std::uint32_t carbonFlags() const;
    /// The symbols of the members present, always in the order ⌃⌥⇧⌘.
    QString symbols() const;

    constexpr bool contains(HotkeyModifiers other) const {
        return (rawValue & other.rawValue) == other.rawValue;
    }
    constexpr bool isEmpty() const { return rawValue == 0; }
    friend constexpr HotkeyModifiers operator|(HotkeyModifiers a, HotkeyModifiers b) {
        return {a.rawValue | b.rawValue};
    }
    bool operator==(const HotkeyModifiers&) const = default;
};

inline constexpr HotkeyModifiers HotkeyModifiers::control{1};
inline constexpr HotkeyModifiers HotkeyModifiers::option{2};
inline constexpr HotkeyModifiers HotkeyModifiers::shift{4};
inline constexpr HotkeyModifiers HotkeyModifiers::command{8};

/// Virtual key codes: they name a physical place on the keyboard, whatever the layout prints there.
namespace KeyCode {
inline constexpr std::uint16_t a = 0, h = 4, z = 6, x = 7, c = 8, v = 9, q = 12, w = 13, r = 15, m = 46;
inline constexpr std::uint16_t returnKey = 36, tab = 48, space = 49, deleteKey = 51, escape = 53;
/// Function keys with their labels "F1" … "F12".
const QHash<std::uint16_t, QString>& functionKeys();
} // namespace KeyCode

/// The one global shortcut that starts a correction.
struct HotkeyBinding {
    std::uint16_t keyCode = KeyCode::r;
    HotkeyModifiers modifiers = HotkeyModifiers::control | HotkeyModifiers::option;
    QString keyLabel = QStringLiteral("R");

    /// The modifier symbols followed directly by the key label.
    QString label() const;

    static HotkeyBinding defaultBinding() { return {}; }

    struct Check;
    /// Validates a recorded key press; `characters` is what the key produces without modifiers.
    static Check check(std::uint16_t keyCode, HotkeyModifiers modifiers, const QString& characters);
    /// Rebuilds a stored binding; the default when it is not one that could be recorded.
    static HotkeyBinding restored(std::uint16_t keyCode, std::uint32_t carbonFlags, const QString& keyLabel);
    static QString keyLabelFor(std::uint16_t keyCode, const QString& characters);

    /// Reads and writes "vellumline.hotkey.keyCode", ".modifiers" (Carbon flags) and ".keyLabel".
    static HotkeyBinding load(const UserDefaults& defaults);
    void save(UserDefaults& defaults) const;

    bool operator==(const HotkeyBinding&) const = default;
};

/// The result of validating a recorded key press.
struct HotkeyBinding::Check {
    enum class Kind { accepted, reserved, needsModifier };
    Kind kind = Kind::needsModifier;
    HotkeyBinding binding; ///< accepted: the new binding.
    QString reservedLabel; ///< reserved: the label of the system's own shortcut.

    bool operator==(const Check&) const = default;
};

} // namespace vellumline
