#pragma once

#include "Vellumline/Platform/Linux/AtSpiAccessibility.h"
#include "Vellumline/Platform/X11/X11Connection.h"
#include "Vellumline/Platform/X11/X11Hotkeys.h"
#include "Vellumline/Platform/X11/X11KeyEvents.h"
#include "Vellumline/Platform/X11/X11Workspace.h"
#include "Vellumline/SelectionProbe.h"

namespace vellumline {

/// What a correction needs of an X11 desktop besides the clipboard, wired as the program and its doctor both
/// use it. Belongs to the entry: only that may know it. Main thread only; the connection outlives it.
struct DesktopAdapters {
    explicit DesktopAdapters(X11Connection& connection);
    Q_DISABLE_COPY_MOVE(DesktopAdapters)

    X11KeyEvents keyEvents;
    X11SecureInput secureInput;
    X11Hotkeys hotkeys;
    X11Workspace workspace;
    AtSpiAccessibility accessibility;
    SelectionProbe probe;
};

} // namespace vellumline
