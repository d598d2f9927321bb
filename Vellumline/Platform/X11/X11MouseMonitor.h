#pragma once

#include "Vellumline/Platform/MouseMonitor.h"
#include "Vellumline/Platform/X11/X11Connection.h"

#include <QList>
#include <memory>
#include <utility>

namespace vellumline {

/// Presses of the mouse anywhere on the display, from raw events of the X Input Extension (version 2.1 or
/// later reports them also while another program has grabbed the pointer). Listens only while somebody
/// monitors. Main thread only.
class X11MouseMonitor final : public MouseMonitor {
  public:
    X11MouseMonitor() = default;
    ~X11MouseMonitor() override;

    std::optional<Token> addGlobalMonitor(Handler handler) override;
    void removeMonitor(Token token) override;

  private:
    bool listen();
    void handle(const xcb_generic_event_t& event);

    /// Of its own: the selection of raw events belongs to the whole connection.
    std::unique_ptr<X11Connection> connection_;
    X11Connection::Token handlerToken_ = 0;
    std::uint8_t extension_ = 0; ///< major opcode
    QList<std::pair<Token, Handler>> monitors_;
    Token nextToken_ = 1;
};

} // namespace vellumline
