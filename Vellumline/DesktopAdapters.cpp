#include "Vellumline/DesktopAdapters.h"

namespace vellumline {

DesktopAdapters::DesktopAdapters(X11Connection& connection)
    : keyEvents(connection), secureInput(connection), hotkeys(connection), workspace(connection),
      accessibility([this] {
          const X11Workspace::WindowClass windowClass = workspace.activeWindowClass();
          return QStringList{windowClass.instance, windowClass.name};
      }),
      probe(accessibility, workspace, secureInput) {}

} // namespace vellumline
