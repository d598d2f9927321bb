#pragma once

#include "Vellumline/Platform/KeyEvents.h"
#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/X11Keyboard.h"

#include <QString>

namespace vellumline {

/// Key strokes through XTEST. Shares its connection with X11Hotkeys: only the connection whose grab a pressed
/// hot key activated can give the keyboard back, and until then no other program sees a key. Main thread
/// only.
class X11KeyEvents final : public KeyEvents {
  public:
    /// The connection must outlive it.
    explicit X11KeyEvents(X11Connection& connection);
    /// Keys pressed again on the user's behalf are let go.
    ~X11KeyEvents() override;
    X11KeyEvents(const X11KeyEvents&) = delete;
    X11KeyEvents& operator=(const X11KeyEvents&) = delete;

    void postCommand(std::uint16_t keyCode) override;

    /// What an X key code gives without modifiers in the layout in use; empty when no text.
    QString characters(std::uint32_t xKeyCode);

  private:
    std::uint8_t keyThatTypes(std::uint16_t keyCode, std::uint8_t group);
    void pressAgain(X11KeySet held);
    void letGoOfReleasedKeys();

    X11Connection& connection_;
    X11Keyboard& keyboard_;
    X11Connection::Token events_;
    /// Modifiers that XTEST holds down because the user still does.
    X11KeySet pressedAgain_;
};

/// Main thread only.
class X11SecureInput final : public SecureInput {
  public:
    /// The connection of X11Hotkeys, which must outlive it: a grab of that connection, as every pressed hot
    /// key makes one, is not secure input.
    explicit X11SecureInput(X11Connection& connection);
    ~X11SecureInput() override;
    X11SecureInput(const X11SecureInput&) = delete;
    X11SecureInput& operator=(const X11SecureInput&) = delete;

    bool isSecureEventInputEnabled() const override;

  private:
    X11Connection& connection_;
    xcb_window_t window_;
};

} // namespace vellumline
